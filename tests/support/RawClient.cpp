#include "tests/support/RawClient.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace {

/// A connected socket, or -1 with errno set.
int Connect(uint16_t port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        return descriptor;
    }
    const int reason = errno;
    close(descriptor);
    errno = reason;
    return -1;
}

} // namespace

RawClient::RawClient(uint16_t port) : m_socket(Connect(port)) {
    if (m_socket < 0) throw std::runtime_error(std::string("cannot connect: ") + std::strerror(errno));
    const int on = 1;
    setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const timeval patience{20, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

RawClient::~RawClient() {
    if (m_socket >= 0) close(m_socket);
}

RawClient::RawClient(RawClient&& other) noexcept : m_socket(std::exchange(other.m_socket, -1)) {}

bool RawClient::CanConnect(uint16_t port) {
    const int descriptor = Connect(port);
    if (descriptor < 0) return false;
    close(descriptor);
    return true;
}

void RawClient::Send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t count = send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return;
        bytes.remove_prefix(static_cast<size_t>(count));
    }
}

size_t RawClient::SendWithoutWaiting(std::string_view bytes) const {
    const ssize_t count = send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return count > 0 ? static_cast<size_t>(count) : 0;
}

void RawClient::EndSending() const {
    ::shutdown(m_socket, SHUT_WR);
}

std::string RawClient::Receive(size_t count) const {
    std::string bytes(count, '\0');
    size_t received = 0;
    while (received < count) {
        const ssize_t piece = recv(m_socket, bytes.data() + received, count - received, 0);
        if (piece <= 0) break;
        received += static_cast<size_t>(piece);
    }
    bytes.resize(received);
    return bytes;
}

std::string RawClient::ReceiveLine() const {
    std::string line;
    for (char c; recv(m_socket, &c, 1, 0) == 1 && c != '\n';) line += c;
    return line;
}

std::string RawClient::ReceiveRest() const {
    std::string bytes;
    std::array<char, 65536> piece;
    for (;;) {
        const ssize_t count = recv(m_socket, piece.data(), piece.size(), 0);
        if (count == 0) return bytes + "<end>";
        if (count < 0) return bytes + (errno == ECONNRESET ? "<reset>" : "<silence>");
        bytes.append(piece.data(), static_cast<size_t>(count));
    }
}

std::string RawClient::Ask(std::string_view line) const {
    Send(std::string(line) + "\n");
    return ReceiveLine();
}
