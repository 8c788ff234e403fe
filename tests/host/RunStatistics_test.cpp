#include "host/RunStatistics.h"

#include <gtest/gtest.h>
#include <numeric>

namespace {

using namespace vrx::host;

TEST(Percentile, IsTheNearestRank) {
    struct Case {
        const char* name;
        std::vector<double> sorted;
        double percent;
        double want;
    };
    const Case cases[] = {
        {"nothing measured", {}, 50, 0},
        {"one value is every percentile", {7}, 1, 7},
        {"one value is the largest, too", {7}, 100, 7},
        {"half of two is the first", {1, 2}, 50, 1},
        {"just above half of two is the second", {1, 2}, 51, 2},
        {"half of five is the middle", {15, 20, 35, 40, 50}, 50, 35},
        {"30 % of five is the second", {15, 20, 35, 40, 50}, 30, 20},
        {"all of five is the last", {15, 20, 35, 40, 50}, 100, 50},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Percentile(c.sorted, c.percent), c.want);
    }
}

TEST(RunStatistics, IsZeroBeforeTheFirstBlock) {
    const RunStatistics statistics;
    EXPECT_EQ(statistics.Blocks(), 0U);
    EXPECT_EQ(statistics.Failed(), 0U);
    EXPECT_EQ(statistics.Retried(), 0U);
    EXPECT_EQ(statistics.FirstFailed().number, 0U);
    EXPECT_EQ(statistics.Times().p50, 0);
    EXPECT_EQ(statistics.Times().max, 0);
}

TEST(RunStatistics, TakesTheTimesInAnyOrder) {
    RunStatistics statistics;
    for (int i = 0; i < 200; ++i) {
        BlockRecord block;
        block.milliseconds = (i * 77) % 200 + 1; // every whole number from 1 to 200 once
        statistics.Add(block);
    }
    const BlockTimes times = statistics.Times();
    EXPECT_EQ(times.p50, 100);
    EXPECT_EQ(times.p95, 190);
    EXPECT_EQ(times.p99, 198);
    EXPECT_EQ(times.p999, 200);
    EXPECT_EQ(times.max, 200);
}

TEST(RunStatistics, CountsFailedAndRetriedBlocks) {
    RunStatistics statistics;
    BlockRecord block;
    for (block.number = 1; block.number <= 6; ++block.number) {
        block.result = block.number == 2 ? -5 : block.number == 4 ? -6 : static_cast<int>(block.number);
        block.retries = block.number == 3 ? 2 : 0;
        statistics.Add(block);
    }
    EXPECT_EQ(statistics.Blocks(), 6U);
    EXPECT_EQ(statistics.Failed(), 2U);
    EXPECT_EQ(statistics.Retried(), 1U) << "a block sent three times is one retried block";
    EXPECT_EQ(statistics.FirstFailed().number, 2U);
    EXPECT_EQ(statistics.FirstFailed().result, -5);
    EXPECT_EQ(statistics.Last().number, 6U);
}

TEST(RunStatistics, CountsMissedDeadlinesAndTheirLongestRun) {
    RunStatistics statistics(10);
    for (const double sinceDue : {10.0, 10.1, 3.0, 11.0, 12.0, 13.0, 9.0, 99.0, 99.0}) {
        BlockRecord block;
        block.milliseconds = 1;
        block.sinceDue = sinceDue;
        statistics.Add(block);
    }
    EXPECT_EQ(statistics.Missed(), 6U) << "the deadline itself is in time";
    EXPECT_EQ(statistics.LongestMissedRun(), 3U);
    EXPECT_EQ(statistics.Times().max, 1);
    EXPECT_EQ(statistics.TimesSinceDue().p50, 11);
    EXPECT_EQ(statistics.TimesSinceDue().max, 99);
}

TEST(RunStatistics, HasNoDeadlineUnlessGiven) {
    RunStatistics statistics;
    BlockRecord block;
    block.sinceDue = 1e300;
    statistics.Add(block);
    EXPECT_EQ(statistics.Missed(), 0U);
}

TEST(TimesRealTime, ComparesTheAudioWithTheClock) {
    EXPECT_EQ(TimesRealTime(96000, 48000, 0.5), 4);
    EXPECT_EQ(TimesRealTime(24000, 48000, 1), 0.5);
    EXPECT_EQ(TimesRealTime(0, 48000, 1), 0);
    EXPECT_EQ(TimesRealTime(48000, 48000, 0), 0) << "no time, no speed";
}

} // namespace
