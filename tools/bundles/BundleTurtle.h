#pragma once

#include "lv2/settings/BundleSettings.h"

#include <string>

namespace vrx::tool {

/// The Turtle files of a bundle, by which LV2 hosts know its plug-in without loading it.

/// Says that there is a plug-in, and where the rest stands.
std::string ManifestTurtle(const lv2::BundleSettings& settings);

/// The plug-in with its ports, as its binary has them.
std::string PluginTurtle(const lv2::BundleSettings& settings);

} // namespace vrx::tool
