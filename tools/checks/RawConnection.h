#pragma once

#include "host/Packet.h"

#include <asio.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vrx::tool {

/// The first IPv4 address of this name, with this port; `error` says why there is none.
asio::ip::tcp::endpoint LookUp(const std::string& host, int port, asio::error_code& error);

/// A plain TCP connection whose every operation is limited in time, to see what the talker does not show. An
/// operation that takes longer gives asio::error::timed_out and ends the connection.
class RawConnection {
public:
    explicit RawConnection(std::chrono::milliseconds limit) : m_limit(limit) {}

    asio::error_code Connect(const asio::ip::tcp::endpoint& to);
    /// Connects, sends the connect text and takes its answer.
    asio::error_code Open(const asio::ip::tcp::endpoint& to, std::string_view connectText);
    asio::error_code Send(std::string_view bytes);
    /// Appends what one receive delivers; asio::error::eof at the end of the stream.
    asio::error_code Receive(std::string& bytes);

private:
    template <class Start>
    asio::error_code Limited(const Start& start);

    std::chrono::milliseconds m_limit;
    asio::io_context m_io;
    asio::ip::tcp::socket m_socket{m_io};
    std::vector<char> m_piece = std::vector<char>(host::kReceiveBuffer);
};

/// How one reply came.
struct RawReply {
    asio::error_code error;
    std::string bytes;
    std::size_t pieces = 0;
    std::size_t firstPiece = 0; ///< bytes of it
    bool isPacket = false;
};

/// Receives until a packet, or the first line of a text, is whole.
RawReply ReadReply(RawConnection& connection);

struct WholeReplies {
    int whole = 0; ///< packets that came in one piece
    RawReply last;
};

/// Asks the same `times` times, as long as `goOn` says so, and ends with the first reply that is no packet in one piece.
WholeReplies CountWholeReplies(
    RawConnection& connection, std::string_view request, int times,
    const std::function<bool()>& goOn = [] { return true; });

} // namespace vrx::tool
