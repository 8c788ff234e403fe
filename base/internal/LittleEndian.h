#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vrx {

static_assert(std::endian::native == std::endian::little, "words are copied as they stand in memory");

/// The 16-bit little-endian word at `bytes`; no alignment is needed.
inline uint16_t LoadLe16(const void* bytes) {
    uint16_t value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// The 32-bit little-endian word at `bytes`; no alignment is needed.
inline uint32_t LoadLe32(const void* bytes) {
    uint32_t value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// Writes a run of little-endian fields one behind the other. The caller's buffer must have room for all.
class LeWriter {
public:
    explicit LeWriter(void* bytes) : m_next(static_cast<unsigned char*>(bytes)) {}

    void U16(uint16_t value) { Raw(&value, sizeof value); }
    void U32(uint32_t value) { Raw(&value, sizeof value); }

    /// Copies `count` bytes; (nullptr, 0) writes nothing.
    void Raw(const void* bytes, size_t count) {
        if (count == 0) return;
        std::memcpy(m_next, bytes, count);
        m_next += count;
    }

    /// Copies all of `room`, of which the first `count` bytes count: what is written next overwrites the
    /// rest.
    template <size_t kRoom>
    void Part(const char (&room)[kRoom], size_t count) {
        std::memcpy(m_next, room, kRoom);
        m_next += count;
    }

private:
    unsigned char* m_next;
};

} // namespace vrx
