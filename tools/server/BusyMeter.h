#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>

namespace vrx::tool {

/// How busy the worker threads are. For any thread.
class BusyMeter {
public:
    using Clock = std::chrono::steady_clock;

    /// The share is taken over this long.
    static constexpr std::chrono::seconds kSpan{5};

    /// threads   how many there are
    BusyMeter(unsigned threads, Clock::time_point start) : m_threads(threads), m_samples{{start, 0}} {}

    /// One of the threads was busy for so long.
    void Add(std::chrono::nanoseconds time) { m_spent.fetch_add(time.count(), std::memory_order_relaxed); }

    /// To be called every now and then, at most a second apart.
    void Sample(Clock::time_point now);

    /// The share of all threads' time, 0 to 1, over the last kSpan or since the start.
    double Share(Clock::time_point now) const;

private:
    struct Moment {
        Clock::time_point time;
        int64_t spent;
    };
    unsigned m_threads;
    std::atomic<int64_t> m_spent{0};
    mutable std::mutex m_mutex;
    std::deque<Moment> m_samples; // never empty; the first is the one to compare with
};

} // namespace vrx::tool
