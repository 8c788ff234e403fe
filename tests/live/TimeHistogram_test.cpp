#include "live/TimeHistogram.h"

#include <gtest/gtest.h>

using vrx::live::TimeHistogram;

namespace {

TEST(TimeHistogram, IsEmptyAtFirst) {
    const TimeHistogram histogram;
    EXPECT_EQ(histogram.Percentile(50), 0);
    EXPECT_EQ(histogram.Percentile(100), 0);
}

TEST(TimeHistogram, PercentilesAreCloseAndTheLongestIsExact) {
    TimeHistogram histogram;
    for (int i = 1; i <= 1000; ++i) histogram.Add(i * 0.01);
    EXPECT_NEAR(histogram.Percentile(50), 5, 5 * 0.03);
    EXPECT_NEAR(histogram.Percentile(99), 9.9, 9.9 * 0.03);
    EXPECT_EQ(histogram.Percentile(100), 10);
    EXPECT_EQ(histogram.Longest(), 10);
    EXPECT_EQ(histogram.Count(), 1000U);
}

TEST(TimeHistogram, TakesTimesBeyondItsRange) {
    TimeHistogram histogram;
    histogram.Add(0);
    EXPECT_EQ(histogram.Percentile(99), 0);
    histogram.Add(1e12);
    EXPECT_EQ(histogram.Percentile(100), 1e12);
}

} // namespace
