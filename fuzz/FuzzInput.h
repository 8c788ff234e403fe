#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vrx::fuzz {

/// Hands a fuzz input out piece by piece. Past its end numbers are 0 and texts are empty.
class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) : m_rest(reinterpret_cast<const char*>(data), size) {}

    bool AtEnd() const { return m_rest.empty(); }

    uint8_t Byte() { return m_rest.empty() ? uint8_t{0} : static_cast<uint8_t>(Take(1).front()); }
    char Char() { return static_cast<char>(Byte()); }
    bool Flag() { return (Byte() & 1) != 0; }

    /// A number from 0 to `limit`, which is at most 255.
    unsigned UpTo(unsigned limit) { return Byte() % (limit + 1); }

    /// Four bytes, little-endian.
    uint32_t Word() {
        uint32_t word = 0;
        for (unsigned shift = 0; shift < 32; shift += 8) word |= uint32_t{Byte()} << shift;
        return word;
    }

    std::string Bytes(size_t count) { return Take(count); }

    /// The bytes up to the next `end`, which is dropped: a C string by default.
    std::string Field(char end = '\0') {
        std::string field = Take(std::min(m_rest.find(end), m_rest.size()));
        (void)Take(1);
        return field;
    }

    std::string Rest() { return Take(m_rest.size()); }

private:
    std::string Take(size_t count) {
        std::string taken(m_rest.substr(0, count));
        m_rest.remove_prefix(taken.size());
        return taken;
    }

    std::string_view m_rest;
};

} // namespace vrx::fuzz
