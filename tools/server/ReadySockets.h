#pragma once

#include "tools/server/Workers.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace vrx::tool {

class Connection;

/// Tells connections when their sockets have become ready. For any thread.
///
/// One epoll set holds the sockets of all clients, and Asio watches the set. Left to Asio one by one, each would be
/// received from once more after every block, to find nothing, and hold a pending operation and a buffer of its own:
/// for small blocks a quarter of the work.
class ReadySockets {
public:
    explicit ReadySockets(Workers& workers);
    ReadySockets(const ReadySockets&) = delete;
    ReadySockets& operator=(const ReadySockets&) = delete;

    /// From now on calls connection.Ready whenever there is something new to receive or room to send after there was
    /// none. False when the system has no room for another socket.
    bool Add(int socket, Connection& connection);

    /// To be called before the socket is closed and before the connection goes.
    void Remove(int socket);

private:
    struct Event {
        std::shared_ptr<Connection> connection;
        bool last; // nothing comes after what is there
    };
    void Watch();
    void Deliver();
    void Collect();

    Workers& m_workers;
    std::mutex m_mutex;
    asio::posix::basic_stream_descriptor<asio::io_context::executor_type> m_set; // an epoll set
    size_t m_sockets = 0;
    bool m_watched = false;
    std::vector<Event> m_events; // of the one delivery that is under way
};

} // namespace vrx::tool
