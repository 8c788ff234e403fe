#pragma once

#include "tools/checks/Check.h"

#include <span>

namespace vrx::tool {

/// The tables of checks for plug-ins, one for each source that holds some.
std::span<const Check> PluginLoadChecks();
std::span<const Check> PluginConfigureChecks();
std::span<const Check> PluginRequestChecks();
std::span<const Check> PluginReplyChecks();
std::span<const Check> PluginFailureChecks();
std::span<const Check> PluginEnduranceChecks();
std::span<const Check> PluginMannersChecks();
std::span<const Check> PluginHostileChecks();
std::span<const Check> PluginCostChecks();
std::span<const Check> PluginRandomChecks();

} // namespace vrx::tool
