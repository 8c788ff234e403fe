#include "host/Pacing.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

using namespace vrx::host;

/// Time that passes only when the test says so, or while someone sleeps.
class TestClock : public RunClock {
public:
    double Now() const override { return now; }
    void SleepUntil(double seconds) override { now = std::max(now, seconds); }

    double now = 0;
};

TEST(Pacing, SpacesBlocksByThePeriod) {
    TestClock clock;
    clock.now = 5;
    Pacing pacing(clock, 0.25);
    for (const double want : {5.0, 5.25, 5.5, 5.75}) {
        EXPECT_EQ(pacing.AwaitNext(), want);
        EXPECT_EQ(clock.now, want) << "not before, not after";
        clock.now += 0.125; // the exchange
    }
}

TEST(Pacing, AStallMakesTheFollowingBlocksLateToo) {
    TestClock clock;
    Pacing pacing(clock, 1);
    struct Case {
        double exchange;
        double due;
        double sent;
    };
    const Case cases[] = {
        {0.25, 0, 0},   {3.5, 1, 1},                                    // the stall
        {0.25, 2, 4.5}, {0.25, 3, 4.75}, {0.25, 4, 5}, {0.25, 5, 5.25}, // without pauses
        {0.25, 6, 6},                                                   // caught up
        {0.25, 7, 7},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.due);
        EXPECT_EQ(pacing.AwaitNext(), c.due);
        EXPECT_EQ(clock.now, c.sent);
        clock.now += c.exchange;
    }
}

TEST(Pacing, DoesNotDrift) {
    TestClock clock;
    Pacing pacing(clock, 16.0 / 44100);
    double due = 0;
    for (int block = 0; block <= 44100; ++block) due = pacing.AwaitNext();
    EXPECT_DOUBLE_EQ(due, 16);
}

TEST(Pacing, WithoutAPeriodEveryBlockIsDueAtOnce) {
    TestClock clock;
    Pacing pacing(clock, 0);
    for (const double now : {0.0, 0.5, 7.0}) {
        clock.now = now;
        EXPECT_EQ(pacing.AwaitNext(), now);
        EXPECT_EQ(clock.now, now);
    }
}

TEST(SteadyRunClock, SleepsUntilTheMomentAndNotForWhatIsOver) {
    SteadyRunClock clock;
    clock.SleepUntil(0.05);
    EXPECT_GE(clock.Now(), 0.05);
    const double before = clock.Now();
    clock.SleepUntil(before - 0.01);
    EXPECT_GE(clock.Now(), before);
}

} // namespace
