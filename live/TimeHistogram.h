#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vrx::live {

/// The distribution of a stream of times in memory that does not grow. One thread adds, in real time if need be; any
/// thread asks.
class TimeHistogram {
public:
    void Add(double milliseconds);

    /// The time that `percent` of 100 of those added do not exceed, to within 3 of 100; exactly the longest for 100; 0
    /// before the first one.
    double Percentile(double percent) const;
    double Longest() const { return m_longest.load(std::memory_order_relaxed); }
    std::uint64_t Count() const { return m_count.load(std::memory_order_relaxed); }

private:
    static constexpr std::size_t kPerOctave = 32;
    static constexpr int kOctaves = 40; // from a nanosecond to 18 minutes

    static std::size_t Bucket(double milliseconds);
    static double UpperEnd(std::size_t bucket);

    std::array<std::atomic<std::uint64_t>, kPerOctave * kOctaves> m_buckets{};
    std::atomic<std::uint64_t> m_count{0};
    std::atomic<double> m_longest{0};
};

} // namespace vrx::live
