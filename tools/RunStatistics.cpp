#include "tools/RunStatistics.h"

#include <algorithm>
#include <cmath>

namespace vrx {

void RunStatistics::Add(const BlockRecord& block) {
    m_milliseconds.push_back(block.milliseconds);
    if (block.Failed() && m_failed++ == 0) m_firstFailed = block;
    if (block.retries > 0) ++m_retried;
    m_last = block;
}

BlockTimes RunStatistics::Times() const {
    if (m_milliseconds.empty()) return {};
    std::vector<double> sorted = m_milliseconds;
    std::sort(sorted.begin(), sorted.end());
    return {Percentile(sorted, 50), Percentile(sorted, 95), Percentile(sorted, 99), sorted.back()};
}

double Percentile(const std::vector<double>& sorted, double percent) {
    if (sorted.empty()) return 0;
    const double rank = std::ceil(percent * static_cast<double>(sorted.size()) / 100);
    return sorted[std::clamp<std::size_t>(static_cast<std::size_t>(rank), 1, sorted.size()) - 1];
}

double TimesRealTime(std::uint64_t frames, int sampleRate, double seconds) {
    if (seconds <= 0) return 0;
    return static_cast<double>(frames) / sampleRate / seconds;
}

} // namespace vrx
