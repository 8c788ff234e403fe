#pragma once

#include <string_view>

namespace vrx {

/// String::CompareWild without a capture, on texts without NULs. Takes time proportional to
/// text times pattern at worst.
bool MatchesWild(std::string_view text, std::string_view pattern);

} // namespace vrx
