#include "tools/server/ClientSocket.h"

#include <cerrno>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace vrx::tool {

namespace {

/// Bytes moved, 0 when the call would have had to wait, none for any other error.
std::optional<size_t> Moved(long result) {
    if (result >= 0) return static_cast<size_t>(result);
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return 0;
    return std::nullopt;
}

} // namespace

// Not by ::recv and ::send: with several threads the C library makes each a place where the thread may be
// cancelled, which costs 2 % of a small block.

std::optional<size_t> ClientSocket::Receive(std::span<char> space) const {
    const long count =
        ::syscall(SYS_recvfrom, m_descriptor, space.data(), space.size(), MSG_DONTWAIT, nullptr, nullptr);
    return count == 0 ? std::nullopt : Moved(count);
}

std::optional<size_t> ClientSocket::Send(std::string_view bytes) const {
    constexpr int kFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
    return Moved(::syscall(SYS_sendto, m_descriptor, bytes.data(), bytes.size(), kFlags, nullptr, 0));
}

bool ClientSocket::HasWaitingBytes() const {
    int count = 0;
    return ::ioctl(m_descriptor, FIONREAD, &count) == 0 && count > 0;
}

void ClientSocket::SendNoMore() const {
    (void)::shutdown(m_descriptor, SHUT_WR);
}

void ClientSocket::Close() {
    if (IsOpen()) ::close(std::exchange(m_descriptor, -1));
}

void ClientSocket::Reset() {
    const linger atOnce{1, 0};
    (void)::setsockopt(m_descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    Close();
}

} // namespace vrx::tool
