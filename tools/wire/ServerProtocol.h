#pragma once

#include "host/Packet.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vrx::tool {

/// The wire as a server sees it: what a client sends cut into text lines and packets, packets checked,
/// replies built. Nothing here touches a socket. How packets are laid out: host/Packet.h.

inline constexpr size_t kLargestLine = 65536;

/// How the line begins that a client sends first: "connect,HOST,PORT".
inline constexpr std::string_view kConnectCommand = "connect,";

struct Frame {
    enum Kind {
        kIncomplete, ///< more bytes are needed
        kLine,       ///< `bytes` is a text line without its line feed
        kPacket,     ///< `bytes` is a whole packet by its length word, nothing else of it checked
        kBroken,     ///< `error` says why; where the next frame begins is unknown
    };
    Kind kind = kIncomplete;
    std::string_view bytes;
    std::string error;
};

/// Collects what one client sends and hands it out frame by frame. Holds at most the larger of
/// `largestPacket` and a text line of kLargestLine bytes with its line feed.
class FrameBuffer {
public:
    explicit FrameBuffer(size_t largestPacket);

    /// Where the next bytes are to be received; never empty after an incomplete Next(). Ends the life of
    /// every frame handed out before.
    std::span<char> Space();

    /// Says how many bytes were put into Space().
    void Received(size_t count) { m_end += count; }

    /// True when all that was received has been handed out.
    bool Empty() const { return m_begin == m_end; }

    /// Takes the next frame. Its bytes stay valid until Space(). After a broken frame nothing more comes.
    Frame Next();

private:
    Frame NextLine(std::string_view waiting);
    Frame NextPacket(std::string_view waiting);
    Frame Take(Frame::Kind kind, size_t count, size_t total);

    size_t m_largestPacket;
    std::vector<char> m_bytes;
    size_t m_begin = 0;    // the first byte not handed out yet
    size_t m_end = 0;      // behind the last byte received
    size_t m_searched = 0; // bytes of the waiting line known to hold no line feed
};

/// What this server accepts. An empty name accepts every name.
struct ObjectRules {
    std::string layout;
    std::string input;
    std::string output;
    size_t largestBlock = 0; ///< data words in either direction
};

struct Request {
    bool info = false;          ///< asks for the pins' info words instead of sending samples
    std::string_view dataBytes; ///< the data words as they came, 4 bytes each
    uint32_t replyDataWords = 0;
};

/// Checks packets. It remembers the last path that was right, since most that follow repeat it. For one thread at a
/// time.
class RequestReader {
public:
    /// rules   have to live as long as this
    explicit RequestReader(const ObjectRules& rules) : m_rules(rules) {}

    /// Checks a packet taken from a FrameBuffer. Returns "" and fills `request`, whose views point into `packet`;
    /// or returns what is wrong as one line without a line feed, and leaves `request` alone.
    std::string Read(std::string_view packet, Request& request);

private:
    std::string ReadPath(std::string_view padded, bool& info);

    const ObjectRules& m_rules;
    std::string m_rightPath; // with its zero bytes
    bool m_rightInfo = false;
};

struct PinInfo {
    uint32_t blockFrames = 0; ///< frames per block that the pin prefers, 0 to 131071; 0: not said
    uint32_t channels = 2;    ///< 0 to 1023
    bool floats = true;       ///< samples are 32-bit floats rather than 32-bit integers
};

/// The pin's info word: frames in bits 10 to 26, channels in bits 0 to 9, floats in bit 27.
uint32_t PackPinInfo(const PinInfo& pin);

/// A measured time as a cycle word: whole nanoseconds with 8 fraction bits, at most 8388607 ns.
uint32_t CycleWord(double nanoseconds);

/// Makes `reply` a packet with room for `dataWords` words, which stand behind the figures and keep whatever
/// they were; status 0, cycle words 0. Allocates only when `reply` has never been that large.
void StartReply(std::vector<uint32_t>& reply, size_t dataWords);

/// Text from a client made fit for a line of our own: at most 64 characters, what is not printable ASCII
/// replaced by '.'.
std::string Printable(std::string_view text);

} // namespace vrx::tool
