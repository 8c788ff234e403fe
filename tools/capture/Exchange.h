#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vrx::tool {

/// In the unit of all times of a recording.
inline constexpr std::int64_t kSecond = 1'000'000'000;

/// Reading a capture, the servers of so many are remembered: their later clients count whatever they say.
inline constexpr std::size_t kMostServers = 1024;

/// Who sent something.
enum class Side { kClient, kServer };

/// One thing that happened on a connection.
struct CaptureEvent {
    enum Kind {
        kOpened, ///< `bytes` is the server's address and port
        kBytes,  ///< `from` sent `bytes` in one piece
        kClosed, ///< `from` ended its sending side
        kReset,  ///< `from` reset the connection: nothing more comes
        kLost,   ///< what follows is not known: nothing more comes
    };
    Kind kind = kOpened;
    Side from = Side::kClient;
    std::uint64_t connection = 0; ///< from 1, in the order in which they were opened
    std::int64_t time = 0;        ///< nanoseconds since 1970
    std::string bytes = {};
};

/// What one receive delivered of a reply.
struct ReplyPiece {
    std::int64_t time = 0; ///< nanoseconds since 1970
    std::string bytes;
};

/// What the server did with the connection after a reply.
enum class ServerEnd { kStays, kCloses, kResets };

/// One request and all that the server did until the next one of that connection.
struct Exchange {
    enum Kind {
        kNothing, ///< the client sent nothing: what the server did by itself after the connection was opened
        kLine,    ///< `request` is a text line with its line feed
        kPacket,  ///< `request` is a packet, whole by its length word
        kBytes,   ///< `request` is neither
    };
    std::uint64_t number = 0; ///< from 1, in the order of the requests of all connections
    std::uint64_t connection = 0;
    Kind kind = kNothing;
    std::string request;
    std::int64_t asked = 0; ///< when the last byte of the request came; nanoseconds since 1970
    std::vector<ReplyPiece> reply;
    ServerEnd end = ServerEnd::kStays;
    std::int64_t ended = 0;  ///< when the server ended the connection, if it did
    bool whole = false;      ///< a whole line or packet was among the reply
    bool cut = false;        ///< the client hung up before there was a whole reply
    std::int64_t closed = 0; ///< when the client ended the connection after this exchange; 0: it did not
    bool last = false;       ///< nothing more comes on this connection
};

/// The reply in one piece.
inline std::string ReplyBytes(const Exchange& exchange) {
    std::string bytes;
    for (const ReplyPiece& piece : exchange.reply) bytes += piece.bytes;
    return bytes;
}

} // namespace vrx::tool
