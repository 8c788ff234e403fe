#pragma once

#include "tools/program/Errors.h"

#include <charconv>
#include <string>

namespace vrx::tool {

/// A server as HOST:PORT names it.
struct Place {
    std::string host;
    int port = 0;
};

/// Throws Failure (wrong usage) when the text of `option` is no HOST:PORT.
inline Place ParsePlace(const std::string& text, const char* option) {
    const std::size_t colon = text.rfind(':');
    Place place;
    if (colon != text.npos && colon > 0) {
        place.host = text.substr(0, colon);
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, place.port);
        if (error == std::errc() && stop == end && place.port >= 1 && place.port <= 65535) return place;
    }
    throw Failure{kWrongUsage,
                  std::string(option) + " " + text + " is not HOST:PORT, such as 127.0.0.1:7000"};
}

} // namespace vrx::tool
