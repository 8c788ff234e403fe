#include "tools/server/ProcessorStock.h"

#include "tools/program/Errors.h"

#include <algorithm>
#include <utility>

namespace vrx::tool {

namespace {

/// Null and why, instead of an exception.
std::unique_ptr<Processor> Make(const std::vector<ProcessStep>& steps, std::string& error) {
    try {
        return std::make_unique<Processor>(steps);
    } catch (const Failure& failure) {
        error = failure.message;
    } catch (const std::exception& exception) {
        error = exception.what();
    }
    return nullptr;
}

} // namespace

ProcessorStock::ProcessorStock(std::vector<ProcessStep> steps)
    : m_steps(std::move(steps)), m_costly(std::ranges::any_of(m_steps, &ProcessStep::costly)) {
    Processor first(m_steps); // no client's: it carries what it ran on
    uint32_t silence[1] = {};
    first.Run(silence);
    m_latency = first.Latency();
    if (m_costly) asio::post(m_maker, [this] { KeepOneReady(); });
}

ProcessorStock::~ProcessorStock() {
    Stop();
}

void ProcessorStock::Stop() {
    m_maker.stop();
    m_maker.join();
}

std::unique_ptr<Processor> ProcessorStock::Take() {
    if (!m_costly) return std::make_unique<Processor>(m_steps);
    auto taken = TakeReady();
    if (taken) asio::post(m_maker, [this] { KeepOneReady(); });
    return taken;
}

void ProcessorStock::Order(Delivery deliver) {
    asio::post(m_maker, [this, deliver = std::move(deliver)] {
        std::string error;
        auto made = TakeReady();
        if (!made) made = Make(m_steps, error);
        deliver(std::move(made), error);
        KeepOneReady();
    });
}

std::unique_ptr<Processor> ProcessorStock::TakeReady() {
    const std::lock_guard lock(m_mutex);
    return std::move(m_ready);
}

void ProcessorStock::KeepOneReady() {
    {
        const std::lock_guard lock(m_mutex);
        if (m_ready) return;
    }
    std::string error; // the next connection's own order will bring it up
    auto made = Make(m_steps, error);
    const std::lock_guard lock(m_mutex);
    m_ready = std::move(made);
}

void ProcessorStock::Return(std::unique_ptr<Processor> processor) {
    if (!m_costly || !processor) return;
    asio::post(m_maker,
               [taken = std::shared_ptr<Processor>(std::move(processor))]() mutable { taken.reset(); });
}

} // namespace vrx::tool
