#pragma once

#include "live/Shape.h"
#include "lv2/settings/BundleSettings.h"

#include <cstddef>
#include <optional>

namespace vrx::lv2 {

/// The measures of a plug-in's bridge: what the settings say, and where they leave it open what suits the host: blocks as
/// long as its own, and 20 ms for the server beyond the least delay.
///
/// hostFrames   that one call of `run` usually brings; nothing: taken for 1024
live::Shape ShapeFor(const BundleSettings& settings, double sampleRate,
                     std::optional<std::size_t> hostFrames);

} // namespace vrx::lv2
