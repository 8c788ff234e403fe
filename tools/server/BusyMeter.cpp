#include "tools/server/BusyMeter.h"

#include <algorithm>

namespace vrx::tool {

void BusyMeter::Sample(Clock::time_point now) {
    const std::lock_guard lock(m_mutex);
    m_samples.push_back({now, m_spent.load(std::memory_order_relaxed)});
    while (m_samples.size() > 1 && now - m_samples[1].time >= kSpan) m_samples.pop_front();
}

double BusyMeter::Share(Clock::time_point now) const {
    const std::lock_guard lock(m_mutex);
    const std::chrono::duration<double, std::nano> passed = now - m_samples.front().time;
    const auto spent = static_cast<double>(m_spent.load(std::memory_order_relaxed) - m_samples.front().spent);
    if (passed.count() <= 0) return 0;
    return std::clamp(spent / (passed.count() * m_threads), 0.0, 1.0);
}

} // namespace vrx::tool
