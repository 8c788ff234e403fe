#include "tools/capture/SampleMute.h"

#include "host/Packet.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace vrx::tool {

namespace {

constexpr std::size_t kArgumentWordsAt = 8;
constexpr std::size_t kHeaderBytes = 16; // the words in front of those that the argument word count counts

} // namespace

void SampleMute::Apply(std::span<char> bytes) {
    while (!bytes.empty()) {
        const std::uint64_t begin = m_frame.Taken();
        const std::size_t count = m_frame.Take({bytes.data(), bytes.size()});
        const bool text = !m_frame.IsPacket() && static_cast<unsigned char>(m_frame.Head()[0]) >= 0x20;
        if (!text) {
            for (std::size_t i = 0; i < count; ++i) {
                const std::uint64_t at = begin + i;
                if (m_header.size() < host::kRequestHeaderBytes) m_header += bytes[i];
                if (at >= SamplesBegin() && at < SamplesEnd()) bytes[i] = 0;
            }
        }
        bytes = bytes.subspan(count);
        const std::string_view tag = host::kPacketTagBytes.substr(0, m_frame.Head().size());
        const bool noMessage = !text && !m_frame.Head().starts_with(tag);
        if (noMessage) std::ranges::fill(bytes, '\0'); // a spoilt packet: nobody knows where its samples end
        if (noMessage || m_frame.Whole()) {
            m_frame = {};
            m_header.clear();
        }
        if (noMessage) return;
    }
}

std::uint64_t SampleMute::SamplesBegin() const {
    return m_from == Side::kClient ? host::kRequestHeaderBytes : host::kReplyHeaderBytes;
}

std::uint64_t SampleMute::SamplesEnd() const {
    if (m_from == Side::kServer || !m_frame.IsPacket()) return UINT64_MAX;
    std::uint32_t words = 0;
    std::memcpy(&words, m_header.data() + kArgumentWordsAt, sizeof words);
    return kHeaderBytes + std::uint64_t{4} * words;
}

} // namespace vrx::tool
