#pragma once

#include "tools/checks/CheckRunner.h"

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vrx::tool {

/// A whole run of checks, and the forms in which it is shown.
class CheckReport {
public:
    CheckReport(CheckTarget target, int level, std::vector<CheckResult> results);

    /// True when no check failed, crashed or timed out.
    bool Ok() const;

    /// {"ok", "target", "kind", "level", "seed", "counts", "checks"}.
    nlohmann::json Json() const;

    /// "41 checks at level 5: 40 passed, 1 failed", the states that there are.
    std::string Summary() const;

    /// "status, cycle-figures": the checks that make the target wrong.
    std::string WrongNames() const;

    /// A JUnit document: what warned has passed there, with the warning as its output. Only where the program was built
    /// with the library for XML.
    std::string JUnit() const;

private:
    std::size_t Count(CheckState state) const { return m_counts[static_cast<std::size_t>(state)]; }

    CheckTarget m_target;
    int m_level;
    std::vector<CheckResult> m_results;
    std::array<std::size_t, kCheckStates> m_counts{};
};

/// What a person reads about one result, several lines for one that did not pass. `again` is the command that runs
/// this check alone.
std::string ResultText(const CheckResult& result, const std::string& again, bool colors);

/// The list of checks as text, and as {"checks": [{"name", "kind", "level", "proves", "needs", "seconds"}]}.
std::string ListText();
nlohmann::json ListJson();

/// "plugin" or "server".
const char* KindName(CheckTarget::Kind kind);

} // namespace vrx::tool
