#pragma once

#include "tools/server/Processing.h"

#include <asio.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vrx::tool {

/// Gives each connection the processing of its own. What takes long to make is made and taken down by a thread
/// of the stock's, never by one that serves clients, and one is kept ready for the next connection. For any
/// thread.
class ProcessorStock {
public:
    /// Makes one to see that it can be made, and lets it tell its latency; throws Failure when it cannot.
    explicit ProcessorStock(std::vector<ProcessStep> steps);
    ~ProcessorStock();
    ProcessorStock(const ProcessorStock&) = delete;
    ProcessorStock& operator=(const ProcessorStock&) = delete;

    /// In frames, as one told that had run on a first block.
    uint32_t Latency() const { return m_latency; }

    /// One that is ready, or is made in no time; null: Order one.
    std::unique_ptr<Processor> Take();

    /// What an order brings: a processor, or null and why.
    using Delivery = std::function<void(std::unique_ptr<Processor>, const std::string& error)>;

    /// Calls `deliver` later from the stock's thread, once.
    void Order(Delivery deliver);

    /// Takes one back that is no longer needed.
    void Return(std::unique_ptr<Processor> processor);

    /// Ends the thread after what it is at; nothing is delivered after this.
    void Stop();

private:
    std::unique_ptr<Processor> TakeReady();
    void KeepOneReady();

    std::vector<ProcessStep> m_steps;
    bool m_costly;
    uint32_t m_latency = 0;
    std::mutex m_mutex;
    std::unique_ptr<Processor> m_ready;
    asio::thread_pool m_maker{1};
};

} // namespace vrx::tool
