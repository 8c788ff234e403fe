#include "tools/wire/WireTap.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace vrx::tool {

namespace {

/// Longer pieces are told as several: a capture's segments hold no more.
constexpr std::size_t kMostBytes = 65495;

template <class Call>
ssize_t Uninterrupted(const Call& call) {
    ssize_t result = 0;
    do result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

} // namespace

void WireTap::Tell(WireEvent event, std::string_view bytes) const {
    if (m_socket < 0) return;
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    event.time = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    do {
        const std::size_t length = std::min(bytes.size(), kMostBytes);
        iovec parts[] = {{&event, sizeof event}, {const_cast<char*>(bytes.data()), length}};
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = 2;
        (void)Uninterrupted([&] { return ::sendmsg(m_socket, &message, MSG_NOSIGNAL); }); // see the class
        bytes.remove_prefix(length);
    } while (!bytes.empty());
}

std::uint64_t WireTap::NewConnection() {
    static std::atomic<std::uint32_t> last{0};
    return (static_cast<std::uint64_t>(::getpid()) << 32) | ++last;
}

bool WireTap::Hear(int socket, WireEvent& event, std::string& bytes) {
    bytes.resize(kMostBytes);
    iovec parts[] = {{&event, sizeof event}, {bytes.data(), bytes.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    const ssize_t count = Uninterrupted([&] { return ::recvmsg(socket, &message, 0); });
    if (count < static_cast<ssize_t>(sizeof event)) return false;
    bytes.resize(static_cast<std::size_t>(count) - sizeof event);
    return true;
}

} // namespace vrx::tool
