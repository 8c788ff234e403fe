#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace vrx::tool {

/// The server's objects that a request names.
struct ObjectNames {
    std::string layout;
    std::string input;
    std::string output;
};

/// The packet that sends `words` to the input object and asks for `replyWords` words of the output object, byte
/// for byte as the talker makes it.
std::string SamplesRequest(const ObjectNames& names, std::span<const std::uint32_t> words,
                           std::uint32_t replyWords);

/// The one for `words` words of silence and as many back.
std::string SilentRequest(const ObjectNames& names, std::size_t words);

/// The packet that asks for the info words of both pins, byte for byte as the talker makes it; the layout is not
/// part of it.
std::string PinRequest(const ObjectNames& names);

} // namespace vrx::tool
