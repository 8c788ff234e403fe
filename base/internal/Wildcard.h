#pragma once

#include <string>
#include <string_view>

namespace vrx {

/// String::CompareWild without a capture, on texts without NULs. Takes time proportional to text times
/// pattern at worst.
bool MatchesWild(std::string_view text, std::string_view pattern);

/// String::CompareWild with a capture, which must not hold the text or the pattern. Gives the same answers,
/// but tries every place for every star, for what is appended tells of each try.
bool CapturesWild(std::string_view text, std::string_view pattern, std::string& capture);

} // namespace vrx
