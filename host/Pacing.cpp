#include "host/Pacing.h"

#include <algorithm>
#include <sys/prctl.h>
#include <thread>
#include <utility>

namespace vrx::host {

SteadyRunClock::SteadyRunClock(std::function<bool()> stopped) : m_stopped(std::move(stopped)) {
    (void)::prctl(PR_SET_TIMERSLACK, 1UL); // nanoseconds; by default a wake-up may come 50 microseconds late
    m_start = Clock::now();
}

double SteadyRunClock::Now() const {
    return std::chrono::duration<double>(Clock::now() - m_start).count();
}

void SteadyRunClock::SleepUntil(double seconds) {
    const auto end =
        m_start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    constexpr std::chrono::milliseconds kStep{20}; // a signal may arrive just before a sleep begins
    for (auto now = Clock::now(); now < end && !(m_stopped && m_stopped()); now = Clock::now())
        std::this_thread::sleep_until(std::min<Clock::time_point>(end, now + kStep));
}

double Pacing::AwaitNext() {
    if (m_period <= 0) return m_clock.Now();
    if (m_blocks == 0) m_first = m_clock.Now();
    const double due = m_first + static_cast<double>(m_blocks++) * m_period;
    m_clock.SleepUntil(due);
    return due;
}

} // namespace vrx::host
