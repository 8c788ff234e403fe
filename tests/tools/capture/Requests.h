#pragma once

#include "host/Packet.h"
#include "tools/wire/Requests.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

/// Messages as talkers and servers send them, for tests of recordings.

inline std::string BlockRequest(const std::vector<std::uint32_t>& words) {
    return vrx::tool::SamplesRequest({"Main", "In", "Out"}, words, static_cast<std::uint32_t>(words.size()));
}

inline std::string PacketOf(const std::vector<std::uint32_t>& words) {
    return {reinterpret_cast<const char*>(words.data()), words.size() * sizeof(std::uint32_t)};
}

/// A reply packet with these data words.
inline std::string BlockReply(const std::vector<std::uint32_t>& words, std::uint32_t status = 0,
                              std::uint32_t cycles = 256) {
    const auto count = static_cast<std::uint32_t>(words.size());
    std::vector<std::uint32_t> packet = {
        vrx::host::kPacketTag, 28 + 4 * count, 3 + count, vrx::host::kObjectCommand, status, cycles, cycles};
    packet.insert(packet.end(), words.begin(), words.end());
    return PacketOf(packet);
}
