#pragma once

#include <cctype>
#include <cstdlib>
#include <string>

namespace vrx::fuzz {

/// The low byte of the number that strtoul reads.
inline char LowByte(const std::string& digits, int base) {
    return static_cast<char>(std::strtoul(digits.c_str(), nullptr, base) & 0xFF);
}

/// The byte that the C escape at `pos`, behind its backslash, stands for. `pos` moves behind the escape, whose x takes
/// up to `hexDigits`.
inline char SlowEscape(const std::string& text, size_t& pos, int hexDigits) {
    static const std::string kLetters = "abftrnv";
    static const std::string kBytes = "\x07\x08\x0c\x09\x0d\x0a\x0b";
    const auto isA = [&](int (*isClass)(int)) {
        return pos < text.size() && isClass(static_cast<unsigned char>(text[pos])) != 0;
    };
    if (isA(std::isdigit)) {
        std::string digits;
        while (digits.size() < 3 && isA(std::isdigit)) digits += text[pos++];
        return LowByte(digits, 8);
    }
    const char c = text[pos++];
    if (c == 'x' || c == 'X') {
        for (int taken = 0; taken < hexDigits && isA(std::isxdigit); ++taken) ++pos;
        return '\0';
    }
    const size_t letter = kLetters.find(c);
    return letter == std::string::npos ? c : kBytes[letter];
}

/// What String::Decode makes of C escapes, one character at a time.
inline std::string SlowDecodedC(const std::string& text) {
    std::string output;
    for (size_t pos = 0; pos < text.size();) {
        const char c = text[pos++];
        if (c == '\\' && pos < text.size())
            output += SlowEscape(text, pos, 1);
        else if (c != '"')
            output += c;
    }
    return output;
}

} // namespace vrx::fuzz
