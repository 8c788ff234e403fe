#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace vrx::host {

/// What is known about one block after its exchange with the server.
struct BlockRecord {
    std::uint64_t number = 0; ///< from 1
    double dueAt = 0;         ///< seconds from the start of the run to when it was to be sent
    double sentAt = 0;        ///< seconds to its last sending
    double milliseconds = 0;  ///< that exchange alone, without earlier attempts and pauses
    double sinceDue = 0;      ///< milliseconds from when it was due to the reply, everything included
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
    double p999 = 0; ///< 99.9 of 100
    double max = 0;
};

/// Sums up the blocks of one run. Not for several threads. Memory does not grow with the length of the run: beyond
/// 262,144 blocks percentiles are taken from every second block, later every fourth, and so on; counts and the
/// longest times are always of all blocks.
class RunStatistics {
public:
    /// deadline   milliseconds a block may take from when it is due
    explicit RunStatistics(double deadline = std::numeric_limits<double>::infinity())
        : m_deadline(deadline) {}

    void Add(const BlockRecord& block);

    std::uint64_t Blocks() const { return m_blocks; }
    std::uint64_t Failed() const { return m_failed; }
    /// Blocks that were sent more than once.
    std::uint64_t Retried() const { return m_retried; }
    /// The first block that failed at the server; its number is 0 when there is none.
    const BlockRecord& FirstFailed() const { return m_firstFailed; }
    /// The last block; its number is 0 before the first.
    const BlockRecord& Last() const { return m_last; }

    /// Blocks whose reply came later than the deadline, and the most of them in a row.
    std::uint64_t Missed() const { return m_missed; }
    std::uint64_t LongestMissedRun() const { return m_longestMissedRun; }
    double Deadline() const { return m_deadline; }

    /// Of the exchanges alone; all 0 before the first block.
    BlockTimes Times() const;
    /// From when each block was due.
    BlockTimes TimesSinceDue() const;
    /// The times of the exchanges, ascending; of a very long run every nth one.
    std::vector<double> SortedMilliseconds() const;

private:
    static constexpr std::size_t kMostKept = 262144;

    void Keep(const BlockRecord& block);

    double m_deadline;
    std::uint64_t m_blocks = 0;
    std::uint64_t m_everyNth = 1; // of the blocks' times are kept
    std::vector<double> m_milliseconds;
    std::vector<double> m_sinceDue;
    double m_longest = 0;
    double m_longestSinceDue = 0;
    std::uint64_t m_missed = 0;
    std::uint64_t m_missedRun = 0; // up to the last block
    std::uint64_t m_longestMissedRun = 0;
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

} // namespace vrx::host
