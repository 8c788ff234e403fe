#pragma once

#include "tools/server/BusyMeter.h"
#include "tools/server/LoopbackServer.h"
#include "tools/server/ProcessorStock.h"
#include "tools/server/TextCommands.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

namespace vrx::tool {

class Connection;

/// What all connections of a server share. For any thread.
class Service {
public:
    explicit Service(const ServerOptions& serverOptions);

    ServerFigures Figures() const;

    /// How many packets have been answered.
    uint64_t Packets() const { return questions + blocks; }

    /// Counts a reply that is to be spoilt; false when there have been as many as there may be.
    bool CountFault();

    void Add(const std::shared_ptr<Connection>& connection);
    void Remove(const std::shared_ptr<Connection>& connection);
    std::vector<std::shared_ptr<Connection>> Connections() const;
    size_t CountConnections() const;

    /// Disconnects and lets go of all connections, when nothing serves them any more.
    void Clear();

    const std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    const ServerOptions& options;
    ProcessorStock stock;
    BusyMeter busy;
    std::atomic<size_t> served = 0; // connections that are not being sent away
    std::atomic<uint64_t> clients = 0;
    std::atomic<uint64_t> questions = 0; // packets that ask for the pins
    std::atomic<uint64_t> blocks = 0;
    std::atomic<uint64_t> errors = 0;
    std::atomic<uint32_t> latencyFrames; // of the last block's processing

    /// Accepts no client for so long; calls `then` from any thread when the door is closed.
    std::function<void(std::chrono::milliseconds, std::function<void()> then)> refuseFor = {};

private:
    std::atomic<uint64_t> m_faults = 0;
    mutable std::mutex m_mutex;
    std::set<std::shared_ptr<Connection>> m_connections;
};

} // namespace vrx::tool
