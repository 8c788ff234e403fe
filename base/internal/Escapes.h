#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace vrx {

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// The values of the hexadecimal digits of either case; -1 for all other bytes.
inline constexpr auto kHexValues = [] {
    std::array<signed char, 256> values{};
    values.fill(-1);
    for (unsigned char digit = 0; digit < 10; ++digit)
        values[size_t{'0'} + digit] = static_cast<signed char>(digit);
    for (unsigned char digit = 0; digit < 6; ++digit) {
        values[size_t{'A'} + digit] = values[size_t{'a'} + digit] = static_cast<signed char>(digit + 10);
    }
    return values;
}();

constexpr int HexValue(char c) {
    return kHexValues[static_cast<unsigned char>(c)];
}

/// What each byte means behind a backslash: most mean themselves.
inline constexpr auto kEscapedBytes = [] {
    std::array<char, 256> bytes{};
    for (unsigned byte = 0; byte < 256; ++byte) bytes[byte] = static_cast<char>(byte);
    bytes['a'] = '\a';
    bytes['b'] = '\b';
    bytes['f'] = '\f';
    bytes['n'] = '\n';
    bytes['r'] = '\r';
    bytes['t'] = '\t';
    bytes['v'] = '\v';
    return bytes;
}();

/// The number of up to three decimal digits at `pos`, read as octal: an 8 or 9 ends the number, but is
/// stepped over like the digits. Gives the number's low byte.
constexpr char TakeOctal(std::string_view text, size_t& pos) {
    unsigned value = 0;
    bool octal = true;
    for (size_t left = 3; left > 0 && pos < text.size() && IsDigit(text[pos]); --left, ++pos) {
        octal = octal && text[pos] < '8';
        if (octal) value = value * 8 + static_cast<unsigned>(text[pos] - '0');
    }
    return static_cast<char>(static_cast<unsigned char>(value));
}

/// Reads a C escape: `pos` is the position behind the backslash and must lie inside `text`; it is moved
/// behind the escape. `hexDigits` is the number of digits that an x escape takes at most. Any byte that has
/// no meaning of its own stands for itself.
constexpr char TakeEscape(std::string_view text, size_t& pos, int hexDigits) {
    const char c = text[pos];
    if (IsDigit(c)) return TakeOctal(text, pos);
    ++pos;
    if (c != 'x' && c != 'X') return kEscapedBytes[static_cast<unsigned char>(c)];
    // an x escape takes its digits and always gives 0: readers of older texts rely on it
    for (; hexDigits > 0 && pos < text.size() && HexValue(text[pos]) >= 0; --hexDigits) ++pos;
    return '\0';
}

} // namespace vrx
