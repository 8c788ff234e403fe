#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace vrx::tool {

/// The figures of a run as `vrx pump --json` prints them.
struct RunFigures {
    std::string what; ///< "in.wav through host:port, 480 frames a block"
    bool finished = false;
    bool paced = false;
    double blocks = 0;
    double blockFrames = 0;
    double failed = 0;
    double retried = 0;
    double missed = 0; ///< deadlines; of paced runs only
    double p50 = 0;    ///< milliseconds, as the next ones
    double p95 = 0;
    double p99 = 0;
    double p999 = 0;
    double max = 0;
    double realtimeFactor = 0;
    double averageCycles = 0;
};

/// Throws nlohmann::json::exception when something is missing. The times of a paced run count from when each
/// block was due.
RunFigures ReadFigures(const nlohmann::json& summary);

/// Which of two runs was better, and why.
struct Verdict {
    char better = 0; ///< 'A', 'B', or 0 for neither
    std::string why;
};

/// What counts first: reaching the end; then the share of failed blocks, of missed deadlines (where both were
/// paced) and of blocks sent again; then the p99, if it differs by at least 5 of 100.
Verdict Compare(const RunFigures& a, const RunFigures& b);

/// Both runs' figures side by side with what B changed, as a table.
std::string ComparisonTable(const RunFigures& a, const RunFigures& b);

} // namespace vrx::tool
