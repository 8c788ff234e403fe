#pragma once

#include "tools/checks/Check.h"

#include <string>

namespace vrx::tool {

/// "" when there is something to check; otherwise one sentence that says why FILE is no plug-in, or why no server is
/// there, and what to do. The target's code runs in a process of its own.
std::string WhyNothingToCheck(const CheckTarget& target);

} // namespace vrx::tool
