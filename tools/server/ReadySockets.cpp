#include "tools/server/ReadySockets.h"

#include "tools/server/Connection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <sys/epoll.h>
#include <system_error>
#include <utility>

namespace vrx::tool {

namespace {

/// Asked so often in a row before others, such as new clients, have their turn.
constexpr int kMostRounds = 16;

int MakeSet() {
    const int set = ::epoll_create1(EPOLL_CLOEXEC);
    if (set < 0) throw std::system_error(errno, std::generic_category(), "epoll_create1");
    return set;
}

} // namespace

ReadySockets::ReadySockets(Workers& workers) : m_workers(workers), m_set(workers.Io(), MakeSet()) {}

/// Events come once for what is new (EPOLLET), so that a socket in use needs no further call.
bool ReadySockets::Add(int socket, Connection& connection) {
    const std::lock_guard lock(m_mutex);
    epoll_event event{EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET, {.ptr = &connection}};
    if (::epoll_ctl(m_set.native_handle(), EPOLL_CTL_ADD, socket, &event) != 0) return false;
    ++m_sockets;
    if (!m_watched) Watch();
    return true;
}

void ReadySockets::Remove(int socket) {
    const std::lock_guard lock(m_mutex);
    if (::epoll_ctl(m_set.native_handle(), EPOLL_CTL_DEL, socket, nullptr) != 0) return; // never added
    if (--m_sockets > 0) return;
    asio::error_code ignored;
    m_set.cancel(ignored); // nothing to wait for: the threads may end
}

/// With the mutex held.
void ReadySockets::Watch() {
    m_watched = true;
    m_set.async_wait(asio::posix::descriptor_base::wait_read, [this](const asio::error_code&) { Deliver(); });
}

void ReadySockets::Deliver() {
    {
        Workers::Solitude solitude(m_workers);
        for (int round = 0; round < kMostRounds; ++round) {
            Collect();
            for (const Event& event : m_events) event.connection->Ready(event.last, solitude.Lasts());
            if (m_events.size() <= 1) break; // behind a single one there is hardly another yet
        }
        m_events.clear();
    }
    const std::lock_guard lock(m_mutex);
    m_watched = false;
    if (m_sockets > 0) Watch();
}

void ReadySockets::Collect() {
    std::array<epoll_event, 128> events;
    m_events.clear();
    const std::lock_guard lock(m_mutex); // a connection in the set exists until it is removed
    const int count = ::epoll_wait(m_set.native_handle(), events.data(), static_cast<int>(events.size()), 0);
    for (const epoll_event& event : std::span(events).first(static_cast<size_t>(std::max(count, 0)))) {
        auto connection = static_cast<Connection*>(event.data.ptr)->weak_from_this().lock();
        const bool last = (event.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
        if (connection) m_events.push_back({std::move(connection), last});
    }
}

} // namespace vrx::tool
