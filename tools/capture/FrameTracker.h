#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vrx::tool {

/// Follows one message, a text line or a packet, through the pieces in which it comes: a message that begins with
/// the packet tag ends where its length word says, any other one with its line feed.
class FrameTracker {
public:
    /// How many of `bytes`, the ones behind those taken before, belong to the message.
    std::size_t Take(std::string_view bytes);

    bool Whole() const { return m_whole; }
    bool IsPacket() const;
    /// The bytes taken so far.
    std::uint64_t Taken() const { return m_taken; }
    /// What the packet's length word says; 0 until that is known, and for a line.
    std::uint32_t PacketLength() const;
    /// The first bytes, at most eight.
    const std::string& Head() const { return m_head; }

private:
    bool HeadMayGrow() const;

    std::string m_head;
    std::uint64_t m_taken = 0;
    bool m_whole = false;
};

} // namespace vrx::tool
