#pragma once

#include <algorithm>
#include <cctype>
#include <string>

namespace vrx::fuzz {

inline bool IsLetter(char c) {
    return std::isalpha(static_cast<unsigned char>(c));
}

inline bool IsLetterOrDigit(char c) {
    return std::isalnum(static_cast<unsigned char>(c));
}

inline bool Holds(const char* set, char c) {
    return set && std::string(set).find(c) != std::string::npos;
}

/// What String::IsIdentifier says, by the C library's character classes.
inline bool SlowIsIdentifier(const char* name, const char* extra, const char* extraFirst) {
    if (!name || !*name) return false;
    const std::string text = name;
    if (text[0] != '_' && !IsLetter(text[0]) && !Holds(extraFirst, text[0])) return false;
    return std::all_of(text.begin() + 1, text.end(),
                       [&](char c) { return c == '_' || IsLetterOrDigit(c) || Holds(extra, c); });
}

} // namespace vrx::fuzz
