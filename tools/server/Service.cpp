#include "tools/server/Service.h"

#include "tools/server/Connection.h"

namespace vrx::tool {

Service::Service(const ServerOptions& serverOptions)
    : options(serverOptions), stock(serverOptions.steps), busy(serverOptions.threads, started),
      latencyFrames(stock.Latency()) {}

ServerFigures Service::Figures() const {
    const auto now = std::chrono::steady_clock::now();
    return {.clients = served,
            .packets = Packets(),
            .errors = errors,
            .uptimeSeconds = std::chrono::duration<double>(now - started).count(),
            .blocks = blocks,
            .busy = busy.Share(now),
            .latencyFrames = latencyFrames};
}

bool Service::CountFault() {
    uint64_t count = m_faults;
    while (count < options.faultLimit) {
        if (m_faults.compare_exchange_weak(count, count + 1)) return true;
    }
    return false;
}

void Service::Add(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(m_mutex);
    m_connections.insert(connection);
}

void Service::Remove(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(m_mutex);
    m_connections.erase(connection);
}

std::vector<std::shared_ptr<Connection>> Service::Connections() const {
    const std::lock_guard lock(m_mutex);
    return {m_connections.begin(), m_connections.end()};
}

size_t Service::CountConnections() const {
    const std::lock_guard lock(m_mutex);
    return m_connections.size();
}

void Service::Clear() {
    const std::lock_guard lock(m_mutex);
    for (const auto& connection : m_connections) connection->Disconnect();
    m_connections.clear();
}

} // namespace vrx::tool
