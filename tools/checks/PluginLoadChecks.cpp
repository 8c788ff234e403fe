#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"
#include "tools/checks/ProcessState.h"

#include <chrono>
#include <dlfcn.h>

namespace vrx::tool {

namespace {

using Clock = std::chrono::steady_clock;

void Loads(Trial& trial) {
    PluginBench bench(trial);
    CheckedTalker talker = bench.Make();
    talker.Delete();
    bench.Unload();
}

void LoadsQuietly(Trial& trial) {
    constexpr double kQuick = 1;
    const auto began = Clock::now();
    PluginBench bench(trial);
    CheckedTalker talker = bench.Make();
    const double took = std::chrono::duration<double>(Clock::now() - began).count();
    bench.ExpectPrinted("loading the plug-in and making a talker", "");
    if (took > kQuick)
        trial.Warn({"loading and TalkerFactory take less than " + Shown(static_cast<float>(kQuick)) + " s",
                    "they took " + Shown(static_cast<float>(took)) + " s",
                    "a host that scans its plug-ins stands still for so long"});
}

void TwoObjects(Trial& trial) {
    PluginBench bench(trial);
    CheckedTalker first = bench.Make();
    CheckedTalker second = bench.Make();
    Expect(&first.Bare() != &second.Bare(), "TalkerFactory called twice returns two objects",
           "it returned the same object twice",
           "the second talker of a host is the first one, and dies with it");
    first.Delete();
    (void)bench.Printed();
    PinSix pins = {};
    ExpectSame("with another talker deleted, PinProps of a new one returns", -1, second.Pins(pins),
               "a host's talkers depend on each other");
}

void NoNetwork(Trial& trial) {
    PluginBench bench(trial);
    const std::vector<std::string> before = OpenSockets();
    CheckedTalker talker = bench.Make();
    CheckedTalker second = bench.Make();
    const std::vector<std::string> after = OpenSockets();
    Expect(after.size() <= before.size(), "TalkerFactory opens no socket",
           std::to_string(after.size() - before.size()) + " sockets more after TalkerFactory",
           "hosts make talkers when they scan plug-ins, without a network and without being asked");
}

constexpr Check kPluginLoadChecks[] = {
    {"loads", CheckTarget::kPlugin, 1,
     "The library loads with all symbols bound, makes a talker, and unloads.", "", 15, Loads},
    {"loads-quietly", CheckTarget::kPlugin, 1, "Loading it and making a talker prints nothing and is quick.",
     "loads", 15, LoadsQuietly},
    {"two-objects", CheckTarget::kPlugin, 1, "TalkerFactory makes a new talker each time.", "loads", 15,
     TwoObjects},
    {"no-network", CheckTarget::kPlugin, 1, "Nothing touches the network before Configure.", "loads", 15,
     NoNetwork},
};

} // namespace

std::span<const Check> PluginLoadChecks() {
    return kPluginLoadChecks;
}

} // namespace vrx::tool
