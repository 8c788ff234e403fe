#include "tools/checks/CheckReport.h"

#include "tools/program/Errors.h"
#include "tools/program/Numbers.h"
#include "tools/program/Terminal.h"

#include <algorithm>

namespace vrx::tool {

namespace {

constexpr std::size_t kNameColumn = 34;

std::string Padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

} // namespace

const char* KindName(CheckTarget::Kind kind) {
    return kind == CheckTarget::kPlugin ? "plugin" : "server";
}

CheckReport::CheckReport(CheckTarget target, int level, std::vector<CheckResult> results)
    : m_target(std::move(target)), m_level(level), m_results(std::move(results)) {
    for (const CheckResult& result : m_results) ++m_counts[static_cast<std::size_t>(result.state)];
}

bool CheckReport::Ok() const {
    return std::ranges::none_of(m_results, [](const CheckResult& result) { return IsWrong(result.state); });
}

nlohmann::json CheckReport::Json() const {
    nlohmann::json counts = nlohmann::json::object();
    for (std::size_t i = 0; i < kCheckStates; ++i)
        counts[StateName(static_cast<CheckState>(i))] = m_counts[i];
    nlohmann::json checks = nlohmann::json::array();
    for (const CheckResult& result : m_results)
        checks.push_back({{"name", result.check->name},
                          {"level", result.check->level},
                          {"state", StateName(result.state)},
                          {"seconds", result.seconds},
                          {"expected", result.what.expected},
                          {"got", result.what.got},
                          {"means", result.what.means}});
    return {{"ok", Ok()},       {"target", m_target.Name()}, {"kind", KindName(m_target.kind)},
            {"level", m_level}, {"seed", m_target.seed},     {"counts", counts},
            {"checks", checks}};
}

std::string CheckReport::Summary() const {
    constexpr const char* kWords[] = {"passed", "failed", "crashed", "timed out", "warned", "skipped"};
    std::string text = Counted(m_results.size(), "check") + " at level " + std::to_string(m_level) + ":";
    const char* before = " ";
    for (std::size_t i = 0; i < kCheckStates; ++i) {
        if (m_counts[i] == 0) continue;
        text += before + std::to_string(m_counts[i]) + " " + kWords[i];
        before = ", ";
    }
    return text;
}

std::string CheckReport::WrongNames() const {
    std::string names;
    for (const CheckResult& result : m_results)
        if (IsWrong(result.state)) names += (names.empty() ? "" : ", ") + std::string(result.check->name);
    return names;
}

std::string ResultText(const CheckResult& result, const std::string& again, bool colors) {
    constexpr const char* kWords[] = {"ok", "FAIL", "CRASH", "TIME-OUT", "warning", "skipped"};
    constexpr Color kColors[] = {Color::kGreen, Color::kRed,    Color::kRed,
                                 Color::kRed,   Color::kYellow, Color::kYellow};
    const auto state = static_cast<std::size_t>(result.state);
    std::string seconds = Fixed(result.seconds, 2) + " s";
    seconds.insert(0, seconds.size() < 9 ? 9 - seconds.size() : 0, ' ');
    std::string text = Padded(result.check->name, kNameColumn) +
                       Colored(Padded(kWords[state], 8), kColors[state], colors) + seconds;
    if (result.state == CheckState::kPassed) return text + "\n";
    if (result.state == CheckState::kSkipped) return text + "  " + WithoutControls(result.what.got) + "\n";
    text += "\n    proves: " + std::string(result.check->proves);
    text += "\n    expected: " + WithoutControls(result.what.expected);
    text += "\n    got: " + WithoutControls(result.what.got);
    text += "\n    means: " + WithoutControls(result.what.means);
    if (IsWrong(result.state)) text += "\n    again: " + again;
    return text + "\n";
}

std::string ListText() {
    std::string text;
    for (const CheckTarget::Kind kind : {CheckTarget::kPlugin, CheckTarget::kServer})
        for (const Check& check : ChecksOf(kind))
            text += std::string(KindName(kind)) + " " + (check.level < 10 ? " " : "") +
                    std::to_string(check.level) + "  " + Padded(check.name, kNameColumn) + check.proves +
                    "\n";
    return text;
}

nlohmann::json ListJson() {
    nlohmann::json checks = nlohmann::json::array();
    for (const CheckTarget::Kind kind : {CheckTarget::kPlugin, CheckTarget::kServer})
        for (const Check& check : ChecksOf(kind))
            checks.push_back({{"name", check.name},
                              {"kind", KindName(kind)},
                              {"level", check.level},
                              {"proves", check.proves},
                              {"needs", check.needs},
                              {"seconds", check.seconds}});
    return {{"checks", checks}};
}

} // namespace vrx::tool
