#pragma once

#include <cstddef>
#include <string_view>

namespace vrx {

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// The value of a hexadecimal digit of either case, or -1.
constexpr int HexValue(char c) {
    if (IsDigit(c)) return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

/// The number of up to three decimal digits at `pos`, read as octal: an 8 or 9 ends the number, but is
/// stepped over like the digits. Gives the number's low byte.
constexpr char TakeOctal(std::string_view text, size_t& pos) {
    unsigned value = 0;
    bool octal = true;
    for (const size_t end = pos + 3; pos < end && pos < text.size() && IsDigit(text[pos]); ++pos) {
        octal = octal && text[pos] < '8';
        if (octal) value = value * 8 + static_cast<unsigned>(text[pos] - '0');
    }
    return static_cast<char>(static_cast<unsigned char>(value));
}

/// Reads a C escape: `pos` is the position behind the backslash and must lie inside `text`; it is moved
/// behind the escape. `hexDigits` is the number of digits that an x escape takes at most. Any byte that has
/// no meaning of its own stands for itself.
constexpr char TakeEscape(std::string_view text, size_t& pos, int hexDigits) {
    constexpr std::string_view kLetters = "abfnrtv";
    constexpr std::string_view kBytes = "\a\b\f\n\r\t\v";
    const char c = text[pos];
    if (IsDigit(c)) return TakeOctal(text, pos);
    ++pos;
    if (c == 'x' || c == 'X') {
        // an x escape takes its digits and always gives 0: readers of older texts rely on it
        for (; hexDigits > 0 && pos < text.size() && HexValue(text[pos]) >= 0; --hexDigits) ++pos;
        return '\0';
    }
    const size_t letter = kLetters.find(c);
    return letter != kLetters.npos ? kBytes[letter] : c;
}

} // namespace vrx
