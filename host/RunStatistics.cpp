#include "host/RunStatistics.h"

#include <algorithm>
#include <cmath>

namespace vrx::host {

namespace {

std::vector<double> Sorted(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values;
}

BlockTimes TimesOf(const std::vector<double>& sorted, double longest) {
    return {Percentile(sorted, 50), Percentile(sorted, 95), Percentile(sorted, 99), Percentile(sorted, 99.9),
            longest};
}

void DropEverySecond(std::vector<double>& values) {
    for (std::size_t i = 0; 2 * i + 1 < values.size(); ++i) values[i] = values[2 * i + 1];
    values.resize(values.size() / 2);
}

} // namespace

void RunStatistics::Add(const BlockRecord& block) {
    ++m_blocks;
    Keep(block);
    if (block.Failed() && m_failed++ == 0) m_firstFailed = block;
    if (block.retries > 0) ++m_retried;
    if (block.sinceDue > m_deadline) ++m_missed;
    m_missedRun = block.sinceDue > m_deadline ? m_missedRun + 1 : 0;
    m_longestMissedRun = std::max(m_longestMissedRun, m_missedRun);
    m_last = block;
}

void RunStatistics::Keep(const BlockRecord& block) {
    m_longest = std::max(m_longest, block.milliseconds);
    m_longestSinceDue = std::max(m_longestSinceDue, block.sinceDue);
    if (m_blocks % m_everyNth != 0) return;
    m_milliseconds.push_back(block.milliseconds);
    m_sinceDue.push_back(block.sinceDue);
    if (m_milliseconds.size() < kMostKept) return;
    DropEverySecond(m_milliseconds);
    DropEverySecond(m_sinceDue);
    m_everyNth *= 2;
}

BlockTimes RunStatistics::Times() const {
    return TimesOf(SortedMilliseconds(), m_longest);
}

BlockTimes RunStatistics::TimesSinceDue() const {
    return TimesOf(Sorted(m_sinceDue), m_longestSinceDue);
}

std::vector<double> RunStatistics::SortedMilliseconds() const {
    return Sorted(m_milliseconds);
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

} // namespace vrx::host
