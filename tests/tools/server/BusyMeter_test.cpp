#include "tools/server/BusyMeter.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using vrx::tool::BusyMeter;

const BusyMeter::Clock::time_point kStart{1000s};

TEST(BusyMeter, IsIdleAtFirst) {
    BusyMeter meter(2, kStart);
    EXPECT_EQ(meter.Share(kStart), 0);
    EXPECT_EQ(meter.Share(kStart + 1s), 0);
}

TEST(BusyMeter, SharesOutOverAllThreads) {
    BusyMeter meter(4, kStart);
    meter.Add(500ms);
    meter.Add(500ms);
    EXPECT_DOUBLE_EQ(meter.Share(kStart + 1s), 0.25);
    EXPECT_DOUBLE_EQ(meter.Share(kStart + 2s), 0.125);
}

TEST(BusyMeter, ForgetsWhatIsLongAgo) {
    BusyMeter meter(1, kStart);
    meter.Add(1s);
    for (int second = 1; second <= 10; ++second) meter.Sample(kStart + second * 1s);
    EXPECT_EQ(meter.Share(kStart + 10s), 0);
    meter.Add(2500ms);
    EXPECT_DOUBLE_EQ(meter.Share(kStart + 10s), 0.5); // of the last five seconds
}

TEST(BusyMeter, NeverExceedsOne) {
    BusyMeter meter(1, kStart);
    meter.Add(100s); // ended just now, began before the span
    EXPECT_EQ(meter.Share(kStart + 1s), 1);
}

} // namespace
