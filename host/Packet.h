#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vrx::host {

/// The measures of what goes over the wire, as far as hosts, servers and tools need them. A request packet, in
/// little-endian 32-bit words:
///
///     offset 0    tag, 0x07FF0003
///            4    length of the whole packet in bytes
///            8    argument words: the reply-size word and the data words
///           12    command, 0x3A
///           16    reply words: status, two cycle words and the data words asked for
///           20    data words
///           ...   "LAYOUT,INPUT.samples[0],OUTPUT.samples[0]" or "-1,INPUT.info1,OUTPUT.info1",
///                 ended and padded to a whole word by one to four zero bytes
///
/// A reply packet: tag, length in bytes, reply words, command, then the reply words themselves.

inline constexpr std::uint32_t kPacketTag = 0x07FF0003;
inline constexpr std::string_view kPacketTagBytes("\x03\x00\xFF\x07", 4);
inline constexpr std::uint32_t kObjectCommand = 0x3A;
inline constexpr std::string_view kSamplesMember = ".samples[0]";
inline constexpr std::string_view kInfoMember = ".info1";

inline constexpr std::size_t kRequestHeaderBytes = 20;
inline constexpr std::size_t kReplyHeaderWords = 4;
/// Status, average cycles and pump cycles: every reply carries them in front of its data words.
inline constexpr std::size_t kReplyFigures = 3;
inline constexpr std::size_t kReplyDataAt = kReplyHeaderWords + kReplyFigures;
inline constexpr std::size_t kReplyHeaderBytes = kReplyDataAt * 4;

/// What a talker can receive at most, and the largest block whose reply that holds.
inline constexpr std::size_t kReceiveBuffer = 1048576;
inline constexpr std::size_t kMostWords = (kReceiveBuffer - kReplyHeaderBytes) / 4;

/// What one TCP segment on Ethernet carries: a longer reply may arrive in several pieces.
inline constexpr std::size_t kSegmentBytes = 1460;

/// The words of the one size of reply that a talker collects from as many receives as it takes, and what is
/// subtracted from the server's port to ask for that.
inline constexpr std::size_t kWholeReplyWords = 2040;
inline constexpr int kWholeReplyPort = 65536;

/// The length of a request's text with its end and padding: the next whole word above `length`.
constexpr std::size_t PaddedText(std::size_t length) {
    return (length | 3) + 1;
}

/// The text of a request for samples.
inline std::string SamplesPath(std::string_view layout, std::string_view input, std::string_view output) {
    std::string path(layout);
    path.append(",").append(input).append(kSamplesMember);
    return path.append(",").append(output).append(kSamplesMember);
}

} // namespace vrx::host
