#include "tools/report/SweepResult.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx;
using namespace vrx::tool;

SweepRow Row(std::size_t frames, std::uint64_t missed, std::uint64_t failed = 0, const char* lost = "") {
    SweepRow row;
    row.frames = frames;
    row.blocks = 10;
    row.missed = missed;
    row.failed = failed;
    row.lost = lost;
    return row;
}

TEST(SmallestSafeBlock, IsWhatMayBeReliedOn) {
    struct Case {
        const char* name;
        std::vector<SweepRow> rows;
        std::size_t want;
    };
    const Case cases[] = {
        {"nothing tried", {}, 0},
        {"one safe size", {Row(16, 0)}, 16},
        {"none keeps up", {Row(16, 9), Row(32, 1)}, 0},
        {"all keep up", {Row(16, 0), Row(32, 0), Row(64, 0)}, 16},
        {"small ones do not", {Row(16, 9), Row(32, 1), Row(64, 0), Row(128, 0)}, 64},
        {"a small one was lucky", {Row(16, 0), Row(32, 1), Row(64, 0)}, 64},
        {"the largest misses", {Row(16, 0), Row(32, 1)}, 0},
        {"large ones do not get through", {Row(16, 3), Row(32, 0), Row(64, 1, 0, "cut off")}, 32},
        {"large ones are refused", {Row(16, 3), Row(32, 0), Row(64, 0, 10)}, 32},
        {"refused is not safe", {Row(16, 0, 1)}, 0},
        {"lost is not safe", {Row(16, 0, 0, "cut off")}, 0},
    };
    for (const Case& c : cases) EXPECT_EQ(SmallestSafeBlock(c.rows), c.want) << c.name;
}

TEST(SmallestSafeBlock, NeedsABlock) {
    SweepRow row = Row(16, 0);
    row.blocks = 0;
    EXPECT_FALSE(row.Safe());
}

TEST(SweepLine, LinesUpWithItsHeading) {
    SweepRow row = Row(128, 2);
    row.deadline = 2.6667;
    row.blocks = 750;
    row.longestMissedRun = 1;
    row.sinceDue = {0.05, 0.1, 0.25, 0.5, 3};
    EXPECT_EQ(SweepHeading(),
              "frames     lasts  blocks  missed longest run        p50        p99        max  safe\n");
    EXPECT_EQ(SweepLine(row),
              "   128   2.67 ms     750       2           1    0.05 ms    0.25 ms       3 ms  no\n");
    EXPECT_TRUE(SweepLine(Row(16, 0)).ends_with("  yes\n"));
    EXPECT_TRUE(SweepLine(Row(16, 0, 3)).ends_with("  no: 3 refused\n"));
    EXPECT_TRUE(SweepLine(Row(16, 0, 3, "cut off")).ends_with("  no: cut off\n"));
}

} // namespace
