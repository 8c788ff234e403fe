#include "tools/checks/Check.h"
#include "tools/checks/PluginChecks.h"
#include "tools/checks/ServerChecks.h"

#include <algorithm>
#include <vector>

namespace vrx::tool {

namespace {

using Tables = std::initializer_list<std::span<const Check>>;

std::vector<Check> ByLevel(Tables tables) {
    std::vector<Check> all;
    for (const auto& table : tables) all.insert(all.end(), table.begin(), table.end());
    std::ranges::stable_sort(all, {}, &Check::level);
    return all;
}

} // namespace

const std::string& CheckTarget::ConnectHost() const {
    static const std::string kHere = "127.0.0.1";
    return recorderPort != 0 ? kHere : host;
}

std::span<const Check> ChecksOf(CheckTarget::Kind kind) {
    static const std::vector<Check> kPlugin =
        ByLevel({PluginLoadChecks(), PluginConfigureChecks(), PluginRequestChecks(), PluginReplyChecks(),
                 PluginFailureChecks(), PluginEnduranceChecks(), PluginHostileChecks(), PluginMannersChecks(),
                 PluginCostChecks(), PluginRandomChecks()});
    static const std::vector<Check> kServer =
        ByLevel({ServerTalkChecks(), ServerBlockChecks(), ServerStrangeChecks(), ServerCrowdChecks(),
                 ServerEnduranceChecks()});
    return kind == CheckTarget::kPlugin ? kPlugin : kServer;
}

} // namespace vrx::tool
