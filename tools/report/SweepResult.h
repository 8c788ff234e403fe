#pragma once

#include "host/RunStatistics.h"

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vrx::tool {

/// How one block size did, each block sent when it was due.
struct SweepRow {
    std::size_t frames = 0;
    double deadline = 0; ///< milliseconds that a block lasts
    std::uint64_t blocks = 0;
    std::uint64_t failed = 0; ///< refused by the server
    std::uint64_t missed = 0;
    std::uint64_t longestMissedRun = 0;
    host::BlockTimes sinceDue;
    std::string lost; ///< why a block did not get through, which ended this size; "" when all did

    bool Safe() const { return blocks > 0 && failed == 0 && missed == 0 && lost.empty(); }
};

/// The smallest size that may be relied on; 0 when there is none. A safe size counts only when no larger one
/// missed a deadline: the smaller one was lucky then. Larger sizes that do not work at all say nothing about
/// it. `rows` ascend by their frames.
std::size_t SmallestSafeBlock(const std::vector<SweepRow>& rows);

/// The table's heading and one of its rows, each with a line feed.
std::string SweepHeading();
std::string SweepLine(const SweepRow& row);
nlohmann::json SweepJson(const SweepRow& row);

} // namespace vrx::tool
