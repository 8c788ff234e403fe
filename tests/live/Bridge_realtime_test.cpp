// What the thread of the callback does while a bridge processes, counted from outside.

#include "live/Bridge.h"
#include "tests/live/FakeParts.h"
#include "tests/support/RealTimeCounts.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace vrx::live;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kCallbacks = 400;

int TooLate(const void* in, void* out, unsigned words) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return Echo(in, out, words);
}

int NoServer(const void*, void*, unsigned) {
    return CVRXTalker::kPeerClosed;
}

int Refuses(const void*, void*, unsigned) {
    return -5;
}

int SometimesLate(const void* in, void* out, unsigned words) {
    static int calls = 0;
    return ++calls % 3 == 0 ? TooLate(in, out, words) : Echo(in, out, words);
}

struct Case {
    const char* name;
    Shape shape;
    std::size_t frames; // per call
    FakeTalker::Pump pump;
    bool wet;  // some blocks come back in time
    bool late; // some do not
    bool bypassed = false;
};

/// Calls `Process` until what the case is about has come up; false when it does not.
bool Play(const Case& c) {
    Bridge bridge(c.shape, Parts(c.pump));
    bridge.Bypass(c.bypassed);
    std::vector<float> buffer(c.frames);
    const std::vector<const float*> in(c.shape.channels, buffer.data());
    const std::vector<float*> out(c.shape.channels, buffer.data());
    const auto seen = [&] {
        const Bridge::Counts counts = bridge.Count();
        return (!c.wet || counts.late < counts.blocks) && (!c.late || counts.late > 0);
    };
    const auto until = Clock::now() + std::chrono::seconds(20);
    for (int i = 0; i < kCallbacks || (!seen() && Clock::now() < until); ++i) {
        {
            const Watched watched;
            bridge.Process(in.data(), out.data(), c.frames);
        }
        if (c.wet) std::this_thread::sleep_for(std::chrono::microseconds(200)); // replies may come meanwhile
    }
    return seen();
}

TEST(BridgeRealTime, ACallbackDoesNothingButWakeTheWorkerOnceAPeriod) {
    const Shape usual{2, 48000, 64, 64, 128, Late::kDry};
    const Shape longer{2, 48000, 160, 64, 320, Late::kDry};
    const Shape shorter{8, 48000, 24, 64, 256, Late::kSilence};
    for (const Case& c : {
             Case{"wet", usual, 64, Echo, true, false},
             Case{"late", usual, 64, TooLate, false, true},
             Case{"wet and late by turns", usual, 64, SometimesLate, true, true},
             Case{"failing", usual, 64, Refuses, false, true},
             Case{"in an outage", usual, 64, NoServer, false, true},
             Case{"bypassed", usual, 64, Echo, true, false, true},
             Case{"blocks longer than a period", longer, 64, Echo, true, false},
             Case{"blocks shorter than a period", shorter, 64, Echo, true, false},
             Case{"one frame at a time", usual, 1, Echo, false, false},
             Case{"fewer frames than a period", usual, 17, Echo, false, false},
             Case{"many periods in one call", usual, 1000, Echo, false, true},
             Case{"no frames", usual, 0, Echo, false, false},
         }) {
        SCOPED_TRACE(c.name);
        const std::optional<RealTimeCounts> counts = CountRealTime([&] { return Play(c); });
        ASSERT_TRUE(counts);
        EXPECT_GE(counts->sections, kCallbacks);
        EXPECT_EQ(counts->allocations, 0);
        EXPECT_EQ(counts->locks, 0);
        EXPECT_EQ(counts->otherCalls, 0);
        const auto periods = static_cast<long>((c.frames + c.shape.periodFrames - 1) / c.shape.periodFrames);
        EXPECT_LE(counts->wakes, counts->sections * periods);
    }
}

/// The counting itself.
TEST(BridgeRealTime, EachOfTheThingsLookedForWouldBeSeen) {
    struct Action {
        const char* name;
        void (*act)();
        RealTimeCounts want;
    };
    static std::mutex mutex;
    static std::unique_ptr<int> memory;
    static auto old = std::make_unique<int>();
    for (const Action& action : {
             Action{"nothing", [] {}, {1, 0, 0, 0, 0}},
             Action{"memory", [] { memory = std::make_unique<int>(); }, {1, 1, 0, 0, 0}},
             Action{"memory given back", [] { old.reset(); }, {1, 1, 0, 0, 0}},
             Action{"a lock", [] { const std::lock_guard lock(mutex); }, {1, 0, 1, 0, 0}},
             Action{"a system call", [] { (void)::getuid(); }, {1, 0, 0, 0, 1}},
             Action{"a pause",
                    [] { std::this_thread::sleep_for(std::chrono::microseconds(1)); },
                    {1, 0, 0, 0, 1}},
         }) {
        SCOPED_TRACE(action.name);
        const std::optional<RealTimeCounts> counts = CountRealTime([&] {
            const Watched watched;
            action.act();
            return true;
        });
        ASSERT_TRUE(counts);
        EXPECT_EQ(counts->sections, action.want.sections);
        EXPECT_EQ(counts->allocations, action.want.allocations);
        EXPECT_EQ(counts->locks, action.want.locks);
        EXPECT_EQ(counts->wakes, action.want.wakes);
        EXPECT_EQ(counts->otherCalls, action.want.otherCalls);
    }
    EXPECT_FALSE(CountRealTime([] { return false; }));
}

} // namespace
