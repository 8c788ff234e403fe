#include "tools/report/SweepResult.h"

#include "tools/program/Numbers.h"
#include "tools/report/RunSummary.h"

namespace vrx::tool {

namespace {

/// Cells of a table line, each at the right end of its column.
std::string TableLine(const std::string (&cells)[8], const std::string& last) {
    constexpr std::size_t kWidths[] = {6, 10, 8, 8, 12, 11, 11, 11};
    std::string line;
    for (std::size_t i = 0; i < std::size(cells); ++i) {
        const std::size_t width = kWidths[i];
        line += std::string(cells[i].size() < width ? width - cells[i].size() : 0, ' ') + cells[i];
    }
    return line + "  " + last + "\n";
}

std::string VerdictOn(const SweepRow& row) {
    if (!row.lost.empty()) return "no: " + row.lost;
    if (row.failed > 0) return "no: " + std::to_string(row.failed) + " refused";
    return row.Safe() ? "yes" : "no";
}

} // namespace

std::size_t SmallestSafeBlock(const std::vector<SweepRow>& rows) {
    std::size_t smallest = 0;
    for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
        if (row->Safe()) smallest = row->frames;
        if (row->lost.empty() && row->missed > 0) break;
    }
    return smallest;
}

std::string SweepHeading() {
    return TableLine({"frames", "lasts", "blocks", "missed", "longest run", "p50", "p99", "max"}, "safe");
}

std::string SweepLine(const SweepRow& row) {
    return TableLine({std::to_string(row.frames), BriefMilliseconds(row.deadline), std::to_string(row.blocks),
                      std::to_string(row.missed), std::to_string(row.longestMissedRun),
                      BriefMilliseconds(row.sinceDue.p50), BriefMilliseconds(row.sinceDue.p99),
                      BriefMilliseconds(row.sinceDue.max)},
                     VerdictOn(row));
}

nlohmann::json SweepJson(const SweepRow& row) {
    return {{"block_frames", row.frames},
            {"deadline_milliseconds", row.deadline},
            {"blocks", row.blocks},
            {"failed", row.failed},
            {"missed", row.missed},
            {"longest_missed_run", row.longestMissedRun},
            {"milliseconds_since_due", TimesAsJson(row.sinceDue)},
            {"lost", row.lost.empty() ? nlohmann::json() : nlohmann::json(row.lost)},
            {"safe", row.Safe()}};
}

} // namespace vrx::tool
