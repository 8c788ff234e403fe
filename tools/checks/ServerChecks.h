#pragma once

#include "tools/checks/Check.h"

#include <span>

namespace vrx::tool {

/// The tables of checks for servers, one for each source that holds some.
std::span<const Check> ServerTalkChecks();
std::span<const Check> ServerBlockChecks();
std::span<const Check> ServerStrangeChecks();
std::span<const Check> ServerCrowdChecks();
std::span<const Check> ServerEnduranceChecks();

} // namespace vrx::tool
