#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vrx {

/// What is known about one block after its exchange with the server.
struct BlockRecord {
    std::uint64_t number = 0; ///< from 1
    double sentAt = 0;        ///< seconds from the start of the run to its last sending
    double milliseconds = 0;  ///< that exchange alone, without earlier attempts and pauses
    int result = 0;           ///< the server's status; below 0: it failed there
    unsigned retries = 0;     ///< how often it had to be sent again
    float averageCycles = 0;  ///< the server's two figures as of this block
    float pumpCycles = 0;

    bool Failed() const { return result < 0; }
};

/// Times of the blocks of a run, in milliseconds.
struct BlockTimes {
    double p50 = 0;
    double p95 = 0;
    double p99 = 0;
    double max = 0;
};

/// Sums up the blocks of one run. Not for several threads.
class RunStatistics {
public:
    void Add(const BlockRecord& block);

    std::uint64_t Blocks() const { return m_milliseconds.size(); }
    std::uint64_t Failed() const { return m_failed; }
    /// Blocks that were sent more than once.
    std::uint64_t Retried() const { return m_retried; }
    /// The first block that failed at the server; its number is 0 when there is none.
    const BlockRecord& FirstFailed() const { return m_firstFailed; }
    /// The last block; its number is 0 before the first.
    const BlockRecord& Last() const { return m_last; }

    /// All 0 before the first block.
    BlockTimes Times() const;

private:
    std::vector<double> m_milliseconds;
    std::uint64_t m_failed = 0;
    std::uint64_t m_retried = 0;
    BlockRecord m_firstFailed;
    BlockRecord m_last;
};

/// The smallest of `sorted` that at least `percent` of 100 of its values do not exceed (nearest rank);
/// 0 for an empty list. `sorted` is ascending, `percent` above 0 and at most 100.
double Percentile(const std::vector<double>& sorted, double percent);

/// How many seconds of audio were handled per second; 0 when no time has passed.
double TimesRealTime(std::uint64_t frames, int sampleRate, double seconds);

} // namespace vrx
