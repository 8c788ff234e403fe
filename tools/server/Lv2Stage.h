#pragma once

#include "tools/server/Processing.h"

#include <string>
#include <string_view>

namespace vrx::tool {

/// Reads "URI" or "URI;SYMBOL=VALUE;SYMBOL=VALUE...", an installed LV2 plug-in and values of its control inputs;
/// the others keep their defaults. A plug-in of one audio input and output is made once per channel; any other
/// has to have as many of both as the stream has channels. Returns "" and sets `step`, or says what is wrong.
std::string ParseLv2Step(std::string_view text, const StreamShape& shape, ProcessStep& step);

/// The installed LV2 plug-ins with what can be set of each: a block of lines per plug-in.
///
/// rate   frames per second, which the ranges of some controls depend on
std::string DescribeLv2Plugins(double rate);

} // namespace vrx::tool
