#pragma once

#include "tools/checks/Check.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace vrx::tool {

enum class CheckState { kPassed, kFailed, kCrashed, kTimedOut, kWarned, kSkipped };
inline constexpr std::size_t kCheckStates = 6;

/// "passed", "failed", "crashed", "timed_out", "warned", "skipped".
const char* StateName(CheckState state);

/// True for the states that make a target wrong.
constexpr bool IsWrong(CheckState state) {
    return state == CheckState::kFailed || state == CheckState::kCrashed || state == CheckState::kTimedOut;
}

struct CheckResult {
    const Check* check = nullptr;
    CheckState state = CheckState::kSkipped;
    double seconds = 0;
    Observation what;   ///< empty when passed; of a skipped one `got` says why
    std::string output; ///< the last of what the check's process wrote to standard error
};

struct RunOptions {
    std::size_t atOnce = 2;                        ///< processes
    std::chrono::seconds limit{570};               ///< for all; what has not ended by then counts as skipped
    std::function<bool()> stopped;                 ///< asked now and then whether to give up; null: never
    std::function<void(const CheckResult&)> ended; ///< called for each in the order of `checks`; may be null
};

/// Runs each of `checks` in a process of its own, which leads a group of its own and is killed with that group when its
/// time is up. The calling process must have one thread. Returns the results in the order of `checks`; when
/// `stopped` said so, those that there are.
std::vector<CheckResult> RunChecks(const std::vector<const Check*>& checks, const CheckTarget& target,
                                   const RunOptions& options);

} // namespace vrx::tool
