#pragma once

#include <cmath>
#include <cstdio>
#include <string>

namespace vrx::tool {

/// "12.30" for (12.3, 2).
inline std::string Fixed(double value, int decimals) {
    char text[400];
    (void)std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

/// Three digits that matter, without an exponent: "0.0512", "3.14", "12300".
inline std::string Brief(double value) {
    const double size = std::abs(value);
    if (!(size > 0)) return "0";
    const int digitsBefore = static_cast<int>(std::floor(std::log10(size))) + 1;
    std::string text = Fixed(value, digitsBefore >= 3 ? 0 : digitsBefore < -6 ? 9 : 3 - digitsBefore);
    if (text.find('.') != text.npos) {
        while (text.back() == '0') text.pop_back();
        if (text.back() == '.') text.pop_back();
    }
    return text;
}

/// "0.0512 ms".
inline std::string BriefMilliseconds(double value) {
    return Brief(value) + " ms";
}

/// "1 block", "2 blocks".
inline std::string Counted(unsigned long long count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace vrx::tool
