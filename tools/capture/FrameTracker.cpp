#include "tools/capture/FrameTracker.h"

#include "host/Packet.h"

#include <algorithm>
#include <cstring>

namespace vrx::tool {

namespace {

constexpr std::size_t kHeadBytes = 8; // tag and length word

} // namespace

std::size_t FrameTracker::Take(std::string_view bytes) {
    std::size_t at = 0;
    while (!m_whole && at < bytes.size()) {
        std::size_t count = 1;
        if (HeadMayGrow()) {
            m_head += bytes[at];
            m_whole =
                IsPacket() ? m_head.size() == kHeadBytes && PacketLength() <= kHeadBytes : bytes[at] == '\n';
        } else if (IsPacket()) {
            const std::uint64_t missing = PacketLength() - m_taken;
            m_whole = missing <= bytes.size() - at;
            count = m_whole ? static_cast<std::size_t>(missing) : bytes.size() - at;
        } else {
            const std::size_t feed = bytes.find('\n', at);
            m_whole = feed != bytes.npos;
            count = (m_whole ? feed + 1 : bytes.size()) - at;
        }
        m_taken += count;
        at += count;
    }
    return at;
}

bool FrameTracker::IsPacket() const {
    return m_head.starts_with(host::kPacketTagBytes);
}

std::uint32_t FrameTracker::PacketLength() const {
    if (!IsPacket() || m_head.size() < kHeadBytes) return 0;
    std::uint32_t length = 0;
    std::memcpy(&length, m_head.data() + host::kPacketTagBytes.size(), sizeof length);
    return length;
}

bool FrameTracker::HeadMayGrow() const {
    return m_head.size() < kHeadBytes;
}

} // namespace vrx::tool
