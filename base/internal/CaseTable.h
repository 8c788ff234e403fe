#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string_view>

namespace vrx {

/// What tolower(3) gives for each byte in the current C locale, indexed by unsigned char: the C library's own
/// table
/// (<ctype.h> declares it), so that a loop over bytes asks for it once. Valid until the locale changes.
inline const int32_t* LowerTable() {
    return *::__ctype_tolower_loc();
}

/// As LowerTable, for toupper(3).
inline const int32_t* UpperTable() {
    return *::__ctype_toupper_loc();
}

/// Whether the bytes at `text`, as many as `wanted` has, equal it without regard to case.
inline bool EqualIgnoringCase(const char* text, std::string_view wanted, const int32_t* lower) {
    return std::equal(wanted.begin(), wanted.end(), text, [lower](char a, char b) {
        return lower[static_cast<unsigned char>(a)] == lower[static_cast<unsigned char>(b)];
    });
}

/// As strcasecmp(3): compares two C strings without regard to case in the current C locale, whose LowerTable
/// is `lower`. Negative, 0 or positive.
inline int CompareIgnoringCase(const char* a, const char* b, const int32_t* lower) {
    for (;; ++a, ++b) {
        const int difference = lower[static_cast<unsigned char>(*a)] - lower[static_cast<unsigned char>(*b)];
        if (difference != 0 || *a == '\0') return difference;
    }
}

} // namespace vrx
