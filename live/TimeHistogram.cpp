// Real-time code: nothing here allocates, locks, throws or calls the system.

#include "live/TimeHistogram.h"

#include <algorithm>
#include <cmath>

namespace vrx::live {

namespace {

constexpr double kNanosecond = 1e-6; // in milliseconds

} // namespace

std::size_t TimeHistogram::Bucket(double milliseconds) {
    const double octaves = std::log2(std::max(milliseconds / kNanosecond, 1.0));
    return std::min(static_cast<std::size_t>(octaves * kPerOctave), kPerOctave * kOctaves - 1);
}

double TimeHistogram::UpperEnd(std::size_t bucket) {
    return std::exp2(static_cast<double>(bucket + 1) / kPerOctave) * kNanosecond;
}

void TimeHistogram::Add(double milliseconds) {
    constexpr auto kRelaxed = std::memory_order_relaxed; // one thread writes: plain additions do
    std::atomic<std::uint64_t>& bucket = m_buckets[Bucket(milliseconds)];
    bucket.store(bucket.load(kRelaxed) + 1, kRelaxed);
    m_count.store(m_count.load(kRelaxed) + 1, kRelaxed);
    if (milliseconds > m_longest.load(kRelaxed)) m_longest.store(milliseconds, kRelaxed);
}

double TimeHistogram::Percentile(double percent) const {
    const double rank = std::ceil(percent * static_cast<double>(Count()) / 100);
    double below = 0;
    for (std::size_t bucket = 0; bucket < m_buckets.size() && rank > 0; ++bucket) {
        below += static_cast<double>(m_buckets[bucket].load(std::memory_order_relaxed));
        if (below >= rank) return percent < 100 ? std::min(UpperEnd(bucket), Longest()) : Longest();
    }
    return Longest();
}

} // namespace vrx::live
