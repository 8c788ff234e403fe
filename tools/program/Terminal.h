#pragma once

#include <cstdlib>
#include <string>
#include <string_view>
#include <unistd.h>

namespace vrx::tool {

/// True when what is written to this descriptor may be coloured: it is a terminal that knows colours, and the
/// environment variable NO_COLOR is not set to anything (https://no-color.org).
inline bool ColorsWanted(int descriptor) {
    const char* refused = std::getenv("NO_COLOR");
    const char* kind = std::getenv("TERM");
    if (refused != nullptr && *refused != '\0') return false;
    return ::isatty(descriptor) == 1 && kind != nullptr && std::string_view(kind) != "dumb";
}

enum class Color { kRed = 31, kGreen = 32, kYellow = 33 };

inline std::string Colored(const std::string& text, Color color, bool wanted) {
    if (!wanted) return text;
    return "\033[" + std::to_string(static_cast<int>(color)) + "m" + text + "\033[0m";
}

} // namespace vrx::tool
