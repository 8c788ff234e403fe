#include "live/Latency.h"
#include "tests/live/FakeTalker.h"

#include <gtest/gtest.h>

#include <memory>

using namespace vrx::live;

namespace {

TEST(Latency, TheLeastOneLeavesAReplyAWholePeriod) {
    struct Case {
        std::size_t block;
        std::size_t period;
        std::size_t steady;
        std::size_t any;
    };
    for (const Case& c : {Case{64, 64, 64, 127}, Case{16, 64, 64, 79}, Case{64, 16, 64, 79},
                          Case{48, 64, 96, 111}, Case{1, 1, 1, 1}, Case{480, 1024, 1472, 1503}}) {
        EXPECT_EQ(LeastLatency(c.block, c.period), c.steady) << c.block << ' ' << c.period;
        EXPECT_EQ(LeastLatency(c.block, c.period, false), c.any) << c.block << ' ' << c.period;
    }
}

TEST(Latency, GrowsByWholeBlocks) {
    EXPECT_EQ(RoundedLatency(0, 64, 256), 256U);
    EXPECT_EQ(RoundedLatency(256, 64, 256), 256U);
    EXPECT_EQ(RoundedLatency(257, 64, 256), 320U);
    EXPECT_EQ(RoundedLatency(768, 256, 256), 768U);
    EXPECT_EQ(RoundedLatency(97, 48, 64), 144U);
    EXPECT_EQ(RoundedLatency(1, 64, 64, false), 127U);
}

TEST(Latency, ABlockIsAPeriodWhereAWholeReplyHoldsIt) {
    struct Case {
        std::size_t period;
        std::size_t channels;
        std::size_t block;
    };
    for (const Case& c : {Case{64, 2, 64}, Case{256, 2, 256}, Case{1020, 2, 1020}, Case{1024, 2, 512},
                          Case{64, 32, 32}, Case{1024, 64, 16}, Case{1023, 2, 341}, Case{1031, 2, 1020},
                          Case{64, 64, 16}, Case{16, 64, 16}, Case{1, 64, 1}})
        EXPECT_EQ(SuitingBlock(c.period, c.channels), c.block) << c.period << ' ' << c.channels;
}

/// A talker whose exchanges take simulated time.
class MeasuredServer : public testing::Test {
protected:
    class Clock : public vrx::host::RunClock {
    public:
        double Now() const override { return now; }
        void SleepUntil(double seconds) override { now = std::max(now, seconds); }
        double now = 0;
    };

    /// Milliseconds of each exchange, by its number from 0.
    std::function<double(int)> takes = [](int) { return 0.0; };
    std::function<int(int)> results = [](int) { return 0; };
    Clock clock;
    int exchanges = 0;
    vrx::host::Session session{vrx::host::ServerSettings{},
                               {[this] {
                                    return std::make_unique<FakeTalker>([this](const void*, void*, unsigned) {
                                        clock.now += takes(exchanges) / 1000;
                                        return results(exchanges++);
                                    });
                                },
                                nullptr, nullptr}};
};

constexpr Shape kShape{2, 48000, 48, 48, 48, Late::kDry}; // a millisecond

TEST_F(MeasuredServer, IsAskedOncePerBlockWhenItIsDue) {
    takes = [](int n) { return n % 100 == 50 ? 0.75 : 0.25; };
    const Measured measured = MeasureServer(session, clock, kShape, 1);
    EXPECT_NEAR(exchanges, 1000, 1);
    EXPECT_EQ(measured.periods, static_cast<std::uint64_t>(exchanges));
    EXPECT_NEAR(measured.times.p50, 0.25, 1e-6);
    EXPECT_NEAR(measured.times.p999, 0.75, 1e-6);
    EXPECT_TRUE(measured.keepsUp);
}

TEST_F(MeasuredServer, IsAskedInBurstsWherePeriodsAreLonger) {
    takes = [](int) { return 0.25; };
    Shape shape = kShape;
    shape.periodFrames = 144;
    const Measured measured = MeasureServer(session, clock, shape, 1);
    EXPECT_NEAR(exchanges, 1000, 6);
    EXPECT_NEAR(measured.times.p50, 0.75, 1e-6);
}

TEST_F(MeasuredServer, ThatIsTooSlowSaysSo) {
    takes = [](int) { return 1.5; };
    EXPECT_FALSE(MeasureServer(session, clock, kShape, 1).keepsUp);
}

TEST_F(MeasuredServer, MayFailMeanwhile) {
    takes = [](int) { return 0.25; };
    results = [](int n) { return n % 10 == 0 ? CVRXTalker::kPeerClosed : n % 10 == 1 ? -5 : 0; };
    const Measured measured = MeasureServer(session, clock, kShape, 1);
    EXPECT_NEAR(exchanges, 1000, 1);
    EXPECT_NEAR(static_cast<double>(measured.periods), 800, 1);
}

TEST_F(MeasuredServer, GetsBlocksThatLastLongerThanItsExchanges) {
    struct Case {
        double milliseconds;
        std::size_t period;
        std::size_t channels;
        std::size_t block;
    };
    for (const Case& c :
         {Case{0.1, 48, 2, 48}, Case{0.8, 48, 2, 96}, Case{6.9, 48, 2, 480}, Case{50, 48, 2, 1008},
          Case{50, 480, 2, 960}, Case{50, 480, 8, 240}, Case{50, 2048, 2, 512}}) {
        takes = [&](int) { return c.milliseconds; };
        Shape shape = kShape;
        shape.periodFrames = c.period;
        shape.channels = c.channels;
        EXPECT_EQ(SuitingBlock(session, clock, shape), c.block) << c.milliseconds << ' ' << c.period;
    }
}

TEST(Latency, LeavesAMarginAboveWhatWasMeasured) {
    struct Case {
        double p999;
        std::size_t latency;
    };
    // One period of a millisecond comes with the least latency.
    for (const Case& c : {Case{0, 48}, Case{0.01, 96}, Case{1, 96}, Case{1.01, 144}, Case{2, 144},
                          Case{4, 288}, Case{1e6, 48000}}) {
        vrx::host::BlockTimes times;
        times.p999 = c.p999;
        EXPECT_EQ(SafeLatency(kShape, times), c.latency) << c.p999;
    }
}

} // namespace
