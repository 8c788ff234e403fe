#include "tools/wire/Requests.h"

#include "host/Packet.h"

#include <cstring>
#include <vector>

namespace vrx::tool {

namespace {

/// The words before the data words, these, and the path with its end and padding.
std::string ObjectRequest(std::string path, std::span<const std::uint32_t> words, std::uint32_t replyWords) {
    path.resize(host::PaddedText(path.size()));
    const std::size_t length = host::kRequestHeaderBytes + words.size_bytes() + path.size();
    const std::uint32_t head[] = {host::kPacketTag, static_cast<std::uint32_t>(length),
                                  static_cast<std::uint32_t>(words.size() + 1), host::kObjectCommand,
                                  replyWords + static_cast<std::uint32_t>(host::kReplyFigures)};
    static_assert(sizeof head == host::kRequestHeaderBytes);
    std::string packet(sizeof head + words.size_bytes(), '\0');
    std::memcpy(packet.data(), head, sizeof head);
    if (!words.empty()) std::memcpy(packet.data() + sizeof head, words.data(), words.size_bytes());
    return packet + path;
}

} // namespace

std::string SamplesRequest(const ObjectNames& names, std::span<const std::uint32_t> words,
                           std::uint32_t replyWords) {
    return ObjectRequest(host::SamplesPath(names.layout, names.input, names.output), words, replyWords);
}

std::string SilentRequest(const ObjectNames& names, std::size_t words) {
    return SamplesRequest(names, std::vector<std::uint32_t>(words), static_cast<std::uint32_t>(words));
}

std::string PinRequest(const ObjectNames& names) {
    constexpr std::uint32_t kNothing[4] = {};
    return ObjectRequest("-1," + names.input + std::string(host::kInfoMember) + "," + names.output +
                             std::string(host::kInfoMember),
                         kNothing, 2);
}

} // namespace vrx::tool
