#pragma once

#include "tools/checks/Check.h"

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace vrx::tool {

/// Values as they stand in observations.
std::string Shown(bool value);
std::string Shown(float value);
std::string Shown(std::string_view text); ///< in quotes, what is not printable as \xNN
inline std::string Shown(const std::string& text) {
    return Shown(std::string_view(text));
}
template <std::integral Number>
std::string Shown(Number value) {
    return std::to_string(value);
}

/// "0x0000002a".
std::string Hex(std::uint32_t word);

/// Throws Mismatch unless `condition` holds.
inline void Expect(bool condition, std::string expected, std::string got, std::string means) {
    if (!condition) throw Mismatch{{std::move(expected), std::move(got), std::move(means)}};
}

/// Throws Mismatch unless both are equal; `what` stands before either value.
template <class Value>
void ExpectSame(const std::string& what, const Value& expected, const Value& got, const std::string& means) {
    if (!(expected == got)) throw Mismatch{{what + " " + Shown(expected), what + " " + Shown(got), means}};
}

/// As ExpectSame for bytes: shows both around the first difference.
void ExpectBytes(const std::string& what, std::string_view expected, std::string_view got,
                 const std::string& means);

} // namespace vrx::tool
