#include "tools/server/Workers.h"

#include <utility>

namespace vrx::tool {

namespace {

/// How long the other threads stay after the last long handler.
constexpr std::chrono::milliseconds kShare{100};

} // namespace

Workers::Workers(unsigned threads) : m_io(static_cast<int>(threads)), m_count(threads) {}

Workers::~Workers() {
    Stop();
    for (std::thread& thread : m_threads) thread.join();
}

void Workers::Start() {
    m_running = m_count;
    m_threads.emplace_back([this] { Lead(); });
    while (m_threads.size() < m_count) m_threads.emplace_back([this] { Help(); });
}

void Workers::Lead() {
    m_io.run();
    {
        const std::lock_guard lock(m_mutex);
        m_over = true;
    }
    Ended();
}

void Workers::Help() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_over || (!m_kept && AreShared(Clock::now())); });
        if (m_over) break;
        ++m_helping;
        lock.unlock();
        m_io.run_until(m_shareUntil.load());
        lock.lock();
        --m_helping;
    }
    lock.unlock();
    Ended();
}

void Workers::Ended() {
    const std::lock_guard lock(m_mutex);
    --m_running;
    m_changed.notify_all();
}

void Workers::ShareWork(Clock::time_point now) {
    if (m_count == 1) return;
    const Clock::time_point until = m_shareUntil.load(std::memory_order_relaxed);
    if (until > now + kShare / 2) return; // they are here and stay for a while
    const std::lock_guard lock(m_mutex);
    m_shareUntil = now + kShare;
    if (until < now && !m_kept) m_changed.notify_all();
}

Workers::Solitude::Solitude(Workers& workers) : m_workers(workers), m_began(Clock::now()) {
    const std::lock_guard lock(m_workers.m_mutex);
    m_lasts = m_workers.m_helping == 0 && !m_workers.AreShared(m_began);
    m_workers.m_kept = m_lasts;
}

bool Workers::Solitude::Lasts() {
    if (m_lasts && m_workers.AreShared(m_began)) End();
    return m_lasts;
}

void Workers::Solitude::End() {
    if (!std::exchange(m_lasts, false)) return;
    const std::lock_guard lock(m_workers.m_mutex);
    m_workers.m_kept = false;
    if (m_workers.AreShared(m_began)) m_workers.m_changed.notify_all();
}

bool Workers::AwaitEnd(std::chrono::milliseconds longest) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, longest, [this] { return m_running == 0; });
}

void Workers::Stop() {
    m_io.stop();
}

} // namespace vrx::tool
