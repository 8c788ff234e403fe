#pragma once

#include <string_view>

namespace vrx {

/// A blank of the text functions, CSV fields and profile values: space or TAB, in every locale.
constexpr bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

/// Whether a text argument says nothing: null or empty.
constexpr bool IsEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

/// The part of `text` before its first NUL, as a C string reader would see it.
inline std::string_view UpToNul(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

} // namespace vrx
