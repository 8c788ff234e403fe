#pragma once

#include "tools/checks/Check.h"
#include "tools/checks/Expect.h"
#include "tools/checks/RawConnection.h"
#include "tools/wire/Requests.h"

#include <asio.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vrx::tool {

/// How long a talker waits, and so how long a server has for an answer.
inline constexpr std::chrono::milliseconds kServerPatience{10000};

/// How long nothing has to come for a reply to be the only one.
inline constexpr std::chrono::milliseconds kQuiet{50};

/// Throws Mismatch when the name is not known.
asio::ip::tcp::endpoint ServerEndpoint(const CheckTarget& target);

/// "connect,HOST,0\n".
std::string ServerConnectText(const CheckTarget& target);

ObjectNames ServerNames(const CheckTarget& target);
std::string ServerPinRequest(const CheckTarget& target);

/// What came after a request.
struct ServerReply {
    enum Kind {
        kPacket,  ///< whole by its length word
        kLine,    ///< a text line, its line feed included
        kHidden,  ///< a text line whose line feed stands behind a zero byte, where talkers do not see it
        kEnd,     ///< the server closed, perhaps after some bytes
        kReset,   ///< the server reset, perhaps after some bytes
        kSilence, ///< not whole in time
    };
    Kind kind = kSilence;
    std::string bytes;
    std::size_t pieces = 0;
    double seconds = 0; ///< until it was whole

    std::uint32_t Word(std::size_t offset) const;
    std::int32_t Status() const { return static_cast<std::int32_t>(Word(16)); }
    std::size_t DataWords() const;
    /// A packet or a text line: the talker's wait has an end.
    bool IsAnswer() const { return kind == kLine || kind == kPacket; }
    /// A packet whose status is not negative.
    bool Accepted() const { return kind == kPacket && bytes.size() >= 20 && Status() >= 0; }
    /// A text line, or a packet with a negative status.
    bool Refused() const { return kind == kLine || (kind == kPacket && bytes.size() >= 20 && Status() < 0); }
    /// What came behind the line or the packet in the same receive.
    std::string Behind() const;
    bool Alone() const { return Behind().empty(); }
    /// For observations.
    std::string Shown() const;
};

/// A client of the server under check, byte by byte. What it does is noted before it is done, in case it never ends.
class ServerClient {
public:
    /// Connects; throws Mismatch when that fails. With `hello` it sends the connect text and takes the answer.
    explicit ServerClient(Trial& trial, bool hello = true);

    /// What a server that has gone, or that does not go on receiving within `patience`, does not take is dropped:
    /// false.
    bool Send(std::string_view bytes, std::chrono::milliseconds patience = kServerPatience);
    ServerReply Receive(std::chrono::milliseconds patience = kServerPatience);
    ServerReply Ask(std::string_view request, std::chrono::milliseconds patience = kServerPatience);

    /// So many bytes, or what there is of them when the connection ends or nothing comes for kServerPatience.
    std::string Take(std::size_t count);

    /// True when nothing comes for so long, not even the end.
    bool Quiet(std::chrono::milliseconds time);

    /// True when bytes come within this time. They are not taken.
    bool MoreComes(std::chrono::milliseconds time);

    void Reset();
    void Close();
    /// Sends no more, but still receives.
    void HalfClose();

private:
    Trial& m_trial;
    asio::io_context m_io;
    asio::ip::tcp::socket m_socket{m_io};
};

/// A size of block that the server takes.
struct BlockShape {
    std::size_t words = 0;
    std::size_t channels = 0;
    bool pinsKnown = false;
    bool floats = false; ///< as the pins say
};

/// Looks for a size that the server takes: as the options or the pins say, else one segment. Throws Mismatch when there
/// is none.
BlockShape FindBlock(Trial& trial);

/// The most words of whole frames whose reply fits one segment; none when the server takes no block of that size.
std::optional<std::size_t> LargestOfSegment(Trial& trial, const BlockShape& shape);

/// The words of `shape` where their reply fits one segment, else LargestOfSegment.
std::optional<std::size_t> SegmentWords(Trial& trial, const BlockShape& shape);

/// A request for `in` words of a quiet tone and `out` words back.
std::string BlockRequest(const CheckTarget& target, std::size_t in, std::size_t out);

/// Throws Mismatch unless this is a packet as long as it says, with `words` words; a refusal passes where
/// `mayRefuse`.
void ExpectBlock(const std::string& when, const ServerReply& reply, std::size_t words,
                 bool mayRefuse = false);

/// Throws Mismatch unless the connection still takes a block.
void ExpectServed(ServerClient& client, const CheckTarget& target, std::size_t words,
                  const std::string& when);

/// As ExpectServed for a new client, within `patience`.
void ExpectOthersServed(Trial& trial, std::size_t words, const std::string& when,
                        std::chrono::milliseconds patience = kServerPatience);

} // namespace vrx::tool
