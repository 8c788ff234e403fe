#include "tools/checks/RawConnection.h"

#include <cstdint>
#include <cstring>

namespace vrx::tool {

namespace {

/// True when nothing of the packet, or of the text's first line, is missing.
bool IsWhole(const RawReply& reply) {
    if (!reply.isPacket) return reply.bytes.find('\n') != std::string::npos;
    std::uint32_t head[2]; // tag and length
    if (reply.bytes.size() < sizeof head) return false;
    std::memcpy(head, reply.bytes.data(), sizeof head);
    return reply.bytes.size() >= head[1];
}

} // namespace

asio::ip::tcp::endpoint LookUp(const std::string& host, int port, asio::error_code& error) {
    using asio::ip::tcp;
    asio::io_context io;
    tcp::resolver resolver(io);
    const auto found = resolver.resolve(tcp::v4(), host, std::to_string(port), error);
    if (!error && found.empty()) error = asio::error::host_not_found;
    return error ? tcp::endpoint() : found.begin()->endpoint();
}

/// `start` begins one asynchronous operation, which ends by calling what it is given.
template <class Start>
asio::error_code RawConnection::Limited(const Start& start) {
    asio::error_code result = asio::error::timed_out;
    start([&result](const asio::error_code& error, std::size_t = 0) { result = error; });
    m_io.restart();
    m_io.run_for(m_limit);
    if (m_io.stopped()) return result;
    asio::error_code ignored;
    m_socket.close(ignored);
    m_io.run(); // the cancelled operation must not outlive `result`
    return asio::error::timed_out;
}

asio::error_code RawConnection::Connect(const asio::ip::tcp::endpoint& to) {
    return Limited([&](auto done) { m_socket.async_connect(to, done); });
}

asio::error_code RawConnection::Open(const asio::ip::tcp::endpoint& to, std::string_view connectText) {
    asio::error_code error = Connect(to);
    if (!error) error = Send(connectText);
    return error ? error : ReadReply(*this).error;
}

asio::error_code RawConnection::Send(std::string_view bytes) {
    return Limited(
        [&](auto done) { asio::async_write(m_socket, asio::buffer(bytes.data(), bytes.size()), done); });
}

asio::error_code RawConnection::Receive(std::string& bytes) {
    std::size_t received = 0;
    const asio::error_code error = Limited([&](auto done) {
        m_socket.async_read_some(asio::buffer(m_piece),
                                 [&received, done](const asio::error_code& code, std::size_t count) {
                                     received = count;
                                     done(code);
                                 });
    });
    bytes.append(m_piece.data(), received);
    return error;
}

RawReply ReadReply(RawConnection& connection) {
    RawReply reply;
    while (!reply.error && !IsWhole(reply) && reply.bytes.size() < host::kReceiveBuffer) {
        reply.error = connection.Receive(reply.bytes);
        if (!reply.error && ++reply.pieces == 1) reply.firstPiece = reply.bytes.size();
        reply.isPacket = reply.bytes.starts_with(host::kPacketTagBytes);
    }
    return reply;
}

WholeReplies CountWholeReplies(RawConnection& connection, std::string_view request, int times,
                               const std::function<bool()>& goOn) {
    WholeReplies replies;
    while (replies.whole < times && goOn()) {
        RawReply& reply = replies.last = {};
        reply.error = connection.Send(request);
        if (!reply.error) reply = ReadReply(connection);
        if (reply.error || !reply.isPacket || reply.pieces > 1) break;
        ++replies.whole;
    }
    return replies;
}

} // namespace vrx::tool
