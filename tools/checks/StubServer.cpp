#include "tools/checks/StubServer.h"

#include "host/Packet.h"
#include "tools/program/Errors.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vrx::tool {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kSlice{5};
/// A request that stays unfinished for so long is taken as it is.
constexpr milliseconds kUnfinished{3000};
constexpr std::size_t kLargestRequest = std::size_t{64} << 20;

std::uint32_t WordAt(std::string_view bytes, std::size_t offset) {
    std::uint32_t word = 0;
    if (offset + sizeof word <= bytes.size()) std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

/// How many more bytes the request wants; 0 when it is whole.
std::size_t Missing(std::string_view bytes) {
    const std::string_view tag = host::kPacketTagBytes;
    const std::size_t known = std::min(bytes.size(), tag.size());
    if (bytes.substr(0, known) != tag.substr(0, known)) return bytes.find('\n') == bytes.npos ? 1 : 0;
    if (bytes.size() < 8) return 8 - bytes.size();
    const std::size_t length = std::min<std::size_t>(WordAt(bytes, 4), kLargestRequest);
    return length - std::min(length, bytes.size());
}

/// To close a connection with unread bytes resets it.
bool HasUnread(int socket) {
    int count = 0;
    return ::ioctl(socket, FIONREAD, &count) == 0 && count > 0;
}

Answer UsualAnswer(std::string_view request) {
    if (!request.starts_with(host::kPacketTagBytes)) return Answer::Bytes("ok\n");
    const std::size_t words = std::min<std::size_t>(WordAt(request, 8), request.size() / 4);
    const std::size_t wanted = std::min<std::size_t>(WordAt(request, 16), host::kMostWords);
    std::vector<std::uint32_t> data(wanted - std::min(wanted, host::kReplyFigures));
    for (std::size_t i = 0; i < data.size() && i + 1 < words; ++i)
        data[i] = WordAt(request, host::kRequestHeaderBytes + 4 * i);
    return Answer::Bytes(ReplyPacket(0, 0, 0, data));
}

Failure CannotListen() {
    return {kRunFailed, std::string("cannot listen on 127.0.0.1: ") + std::strerror(errno)};
}

} // namespace

std::string ReplyPacket(std::uint32_t status, std::uint32_t average, std::uint32_t pump,
                        std::span<const std::uint32_t> data) {
    const auto replyWords = static_cast<std::uint32_t>(host::kReplyFigures + data.size());
    const std::uint32_t head[] = {host::kPacketTag,
                                  static_cast<std::uint32_t>(host::kReplyHeaderBytes + data.size_bytes()),
                                  replyWords,
                                  host::kObjectCommand,
                                  status,
                                  average,
                                  pump};
    std::string packet(sizeof head + data.size_bytes(), '\0');
    std::memcpy(packet.data(), head, sizeof head);
    if (!data.empty()) std::memcpy(packet.data() + sizeof head, data.data(), data.size_bytes());
    return packet;
}

StubServer::StubServer() {
    m_place = Bind();
    Listen();
    m_thread = std::thread([this] { Accept(); });
}

StubServer::~StubServer() {
    {
        const std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
    CloseListener();
    ::close(m_place);
    for (Connection& connection : m_connections)
        if (connection.thread.joinable()) connection.thread.join();
}

/// A socket at the server's port, or the first time at one that the system picks.
int StubServer::Bind() {
    const int bound = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int yes = 1;
    ::setsockopt(bound, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(m_port));
    socklen_t length = sizeof address;
    if (bound < 0 || ::bind(bound, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0 ||
        ::getsockname(bound, reinterpret_cast<sockaddr*>(&address), &length) < 0)
        throw CannotListen();
    m_port = ntohs(address.sin_port);
    return bound;
}

void StubServer::Listen() {
    const int listener = Bind();
    if (::listen(listener, 512) < 0) throw CannotListen();
    m_listener = listener;
}

void StubServer::CloseListener() {
    const int listener = m_listener.exchange(-1);
    if (listener < 0) return;
    ::shutdown(listener, SHUT_RDWR); // at once, also while the other thread still waits for it
    ::close(listener);
}

void StubServer::Then(Answer answer) {
    const std::lock_guard lock(m_mutex);
    m_orders.push_back(std::move(answer));
}

void StubServer::Always(std::function<Answer(const Request&)> answer) {
    const std::lock_guard lock(m_mutex);
    m_always = std::move(answer);
}

std::optional<StubServer::Request> StubServer::Take(milliseconds patience) {
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, patience, [this] { return !m_requests.empty(); });
    if (m_requests.empty()) return std::nullopt;
    Request request = std::move(m_requests.front());
    m_requests.pop_front();
    return request;
}

void StubServer::Forget() {
    const std::lock_guard lock(m_mutex);
    m_requests.clear();
}

int StubServer::Connections() const {
    const std::lock_guard lock(m_mutex);
    return static_cast<int>(m_connections.size());
}

int StubServer::OpenConnections() const {
    const std::lock_guard lock(m_mutex);
    return static_cast<int>(std::ranges::count_if(m_connections, &Connection::open));
}

bool StubServer::WaitForOpen(int count, milliseconds patience) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(
        lock, patience, [&] { return std::ranges::count_if(m_connections, &Connection::open) <= count; });
}

void StubServer::Drop(Answer::End how) {
    std::unique_lock lock(m_mutex);
    if (how == Answer::kStopAll) CloseListener();
    for (Connection& connection : m_connections) connection.drop = how;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return std::ranges::none_of(m_connections, &Connection::open); });
}

void StubServer::ListenAgain() {
    Listen();
}

/// Ended threads hold memory until they are joined.
void StubServer::JoinServed() {
    const std::lock_guard lock(m_mutex);
    for (Connection& connection : m_connections)
        if (connection.served && connection.thread.joinable()) connection.thread.join();
}

void StubServer::Accept() {
    while (!m_stop) {
        JoinServed();
        pollfd waiting{m_listener, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(kSlice.count())) != 1) continue;
        const std::lock_guard lock(m_mutex);
        if (m_listener < 0) continue;
        sockaddr_in client{};
        socklen_t length = sizeof client;
        const int socket = ::accept4(m_listener, reinterpret_cast<sockaddr*>(&client), &length, SOCK_CLOEXEC);
        if (socket < 0) continue;
        const int yes = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        Connection& connection = m_connections.emplace_back();
        connection.number = static_cast<int>(m_connections.size());
        connection.socket = socket;
        connection.recorded = WireTap::NewConnection();
        s_tap.Tell({.kind = WireEvent::kOpened,
                    .clientPort = ntohs(client.sin_port),
                    .serverPort = static_cast<std::uint16_t>(m_port),
                    .connection = connection.recorded});
        connection.thread = std::thread([this, &connection] { Serve(connection); });
    }
}

void StubServer::Tell(const Connection& connection, WireEvent::Kind kind, bool fromServer,
                      std::string_view bytes) {
    s_tap.Tell({.kind = kind, .fromServer = fromServer, .connection = connection.recorded}, bytes);
}

void StubServer::Serve(Connection& connection) {
    AnswerAll(connection);
    const std::lock_guard lock(m_mutex);
    connection.served = true;
}

void StubServer::AnswerAll(Connection& connection) {
    std::string bytes;
    while (ReadRequest(connection, bytes)) {
        Request request{connection.number, std::move(bytes), true};
        const Answer answer = NextAnswer(request);
        if (answer.listen.count() > 0) {
            std::string more;
            request.alone = !Receive(connection, more, answer.listen, 4096);
            request.bytes += more;
        }
        {
            const std::lock_guard lock(m_mutex);
            m_requests.push_back(std::move(request));
        }
        m_changed.notify_all();
        if (!Perform(connection, answer)) return;
        bytes.clear();
    }
    std::optional<Answer::End> how;
    {
        const std::lock_guard lock(m_mutex);
        how = connection.drop;
    }
    End(connection, how.value_or(Answer::kClose));
}

/// True when there is something to receive or the peer has closed; false when the time is over or this side ends the
/// connection.
bool StubServer::Wait(const Connection& connection, milliseconds patience) const {
    const auto end = Clock::now() + patience;
    do {
        pollfd waiting{connection.socket, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(std::min(kSlice, patience).count())) == 1) return true;
    } while (!Over(connection) && Clock::now() < end);
    return false;
}

bool StubServer::Receive(const Connection& connection, std::string& bytes, milliseconds patience,
                         std::size_t most) const {
    if (!Wait(connection, patience)) return false;
    std::string piece(std::min<std::size_t>(most, 65536), '\0');
    piece.resize(Taken(connection, piece));
    bytes += piece;
    return !piece.empty();
}

/// What one receive takes of what has come, into `room`; 0 when the client has ended.
std::size_t StubServer::Taken(const Connection& connection, std::span<char> room) {
    const ssize_t count = ::recv(connection.socket, room.data(), room.size(), 0);
    if (count <= 0) {
        Tell(connection, count == 0 ? WireEvent::kClosed : WireEvent::kReset, false);
        return 0;
    }
    Tell(connection, WireEvent::kBytes, false, {room.data(), static_cast<std::size_t>(count)});
    return static_cast<std::size_t>(count);
}

/// The order that the next request will get; one without any wishes when there is none.
Answer StubServer::NextOrder() const {
    const std::lock_guard lock(m_mutex);
    return m_orders.empty() ? Answer() : m_orders.front();
}

/// False when the connection is over.
bool StubServer::ReadRequest(Connection& connection, std::string& bytes) {
    while (!Wait(connection, Answer::kUnaskedAfter)) {
        if (Over(connection)) return false;
        if (NextOrder().unasked) return true;
    }
    if (!Receive(connection, bytes, kSlice, 65536)) return false;
    const Answer order = NextOrder();
    if (order.takeUnfinished) return true;
    for (;;) {
        const std::size_t more = order.readAtLeast - std::min(order.readAtLeast, bytes.size());
        const std::size_t missing = std::max(Missing(bytes), more);
        if (missing == 0 || !Receive(connection, bytes, kUnfinished, std::max<std::size_t>(missing, 4096)))
            return true;
    }
}

Answer StubServer::NextAnswer(const Request& request) {
    const std::lock_guard lock(m_mutex);
    if (m_always) return m_always(request);
    if (m_orders.empty()) return UsualAnswer(request.bytes);
    Answer answer = std::move(m_orders.front());
    m_orders.pop_front();
    return answer;
}

bool StubServer::Over(const Connection& connection) const {
    const std::lock_guard lock(m_mutex);
    return m_stop || connection.drop;
}

void StubServer::Send(const Connection& connection, std::string_view bytes) const {
    while (!bytes.empty() && !Over(connection)) {
        pollfd room{connection.socket, POLLOUT, 0};
        if (::poll(&room, 1, static_cast<int>(kSlice.count())) != 1) continue;
        const ssize_t sent =
            ::send(connection.socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EAGAIN) continue;
        if (sent <= 0) return; // the client has gone: the next receive finds out
        Tell(connection, WireEvent::kBytes, true, bytes.substr(0, static_cast<std::size_t>(sent)));
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

/// False when that ended the connection.
bool StubServer::Perform(Connection& connection, const Answer& answer) {
    for (const std::string& piece : answer.pieces) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, answer.pause, [&] { return m_stop || connection.drop; });
        lock.unlock();
        Send(connection, piece);
    }
    if (answer.end == Answer::kStay) return true;
    if (answer.end == Answer::kStopAll) {
        const std::lock_guard lock(m_mutex);
        CloseListener();
    }
    End(connection, answer.end);
    return false;
}

void StubServer::End(Connection& connection, Answer::End how) {
    if (how == Answer::kReset) {
        const linger now{1, 0};
        ::setsockopt(connection.socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }
    const bool receives = how == Answer::kHalfClose || how == Answer::kStopAll;
    const bool resets = how == Answer::kReset || (!receives && HasUnread(connection.socket));
    Tell(connection, resets ? WireEvent::kReset : WireEvent::kClosed, true);
    if (receives)
        ::shutdown(connection.socket, SHUT_WR);
    else
        ::close(connection.socket);
    {
        const std::lock_guard lock(m_mutex);
        connection.open = false;
    }
    m_changed.notify_all();
    if (!receives) return;
    char piece[4096];
    while (!m_stop) {
        pollfd waiting{connection.socket, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(kSlice.count())) == 1 && Taken(connection, piece) == 0)
            break;
    }
    ::close(connection.socket);
}

} // namespace vrx::tool
