#include "tools/report/Envelope.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx::tool;

TEST(Envelope, KeepsAShortSeriesAsItIs) {
    Envelope envelope;
    EXPECT_TRUE(envelope.Columns().empty());
    EXPECT_EQ(envelope.Lowest(), 0);
    EXPECT_EQ(envelope.Highest(), 0);
    envelope.Add(3);
    envelope.Add(-2, 7);
    ASSERT_EQ(envelope.Columns().size(), 2U);
    EXPECT_EQ(envelope.PerColumn(), 1U);
    EXPECT_EQ(envelope.Columns()[0].low, 3);
    EXPECT_EQ(envelope.Columns()[0].high, 3);
    EXPECT_EQ(envelope.Columns()[1].low, -2);
    EXPECT_EQ(envelope.Columns()[1].high, 7);
    EXPECT_EQ(envelope.Lowest(), -2);
    EXPECT_EQ(envelope.Highest(), 7);
}

TEST(Envelope, BoundsItsColumnsAndLosesNoPeak) {
    for (const std::uint64_t count : {1023U, 1024U, 1025U, 2048U, 2049U, 100000U}) {
        SCOPED_TRACE(count);
        Envelope envelope;
        for (std::uint64_t i = 0; i < count; ++i) {
            const double value = i == 700 ? 1e9 : i == 1000 ? -1e9 : static_cast<double>(i);
            envelope.Add(value);
        }
        EXPECT_EQ(envelope.Count(), count);
        EXPECT_LE(envelope.Columns().size(), Envelope::kMostColumns);
        EXPECT_GT(envelope.Columns().size() * 2, std::min<std::size_t>(count, Envelope::kMostColumns));
        EXPECT_EQ(envelope.Columns().size(), (count + envelope.PerColumn() - 1) / envelope.PerColumn());
        for (std::size_t c = 0; c < envelope.Columns().size(); ++c) {
            const std::uint64_t first = c * envelope.PerColumn();
            const std::uint64_t last = std::min(count, first + envelope.PerColumn()) - 1;
            const auto holds = [&](std::uint64_t i) { return first <= i && i <= last; };
            if (holds(700) || holds(1000)) {
                EXPECT_EQ(envelope.Columns()[c].high == 1e9, holds(700));
                EXPECT_EQ(envelope.Columns()[c].low == -1e9, holds(1000));
                continue;
            }
            EXPECT_EQ(envelope.Columns()[c].low, static_cast<double>(first));
            EXPECT_EQ(envelope.Columns()[c].high, static_cast<double>(last));
        }
    }
}

} // namespace
