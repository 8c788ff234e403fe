// What the host's audio thread does in `run`, counted from outside.

#include "lv2/Instance.h"
#include "lv2/settings/BundleSettings.h"
#include "tests/live/FakeParts.h"
#include "tests/support/RealTimeCounts.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using namespace vrx;
using lv2::ControlPort;

constexpr std::size_t kFrames = 64;

live::Shape Mono() {
    live::Shape shape;
    shape.channels = 1;
    shape.blockFrames = shape.periodFrames = kFrames;
    shape.latencyFrames = 2 * kFrames;
    return shape;
}

TEST(InstanceRealTime, RunDoesNothingButWakeTheWorker) {
    for (const std::size_t frames : {std::size_t{0}, std::size_t{1}, kFrames}) {
        SCOPED_TRACE(frames);
        const std::optional<RealTimeCounts> counts = CountRealTime([&] {
            lv2::Instance instance(Mono(), EchoBridge);
            std::vector<float> buffer(kFrames);
            float enabled = 1;
            float freeWheeling = 0;
            float latency = 0;
            float late = 0;
            instance.ConnectPort(0, buffer.data());
            instance.ConnectPort(1, buffer.data());
            instance.ConnectPort(PortIndex(ControlPort::kEnabled, 1), &enabled);
            instance.ConnectPort(PortIndex(ControlPort::kFreeWheeling, 1), &freeWheeling);
            instance.ConnectPort(PortIndex(ControlPort::kLatency, 1), &latency);
            instance.ConnectPort(PortIndex(ControlPort::kLate, 1), &late);
            instance.Activate();
            for (int i = 0; i < 1000; ++i) {
                enabled = i % 100 < 50 ? 1 : 0;
                const Watched watched;
                instance.Run(frames);
            }
            return latency == 2 * kFrames;
        });
        ASSERT_TRUE(counts);
        EXPECT_EQ(counts->sections, 1000);
        EXPECT_EQ(counts->allocations, 0);
        EXPECT_EQ(counts->locks, 0);
        EXPECT_EQ(counts->otherCalls, 0);
        EXPECT_LE(counts->wakes, counts->sections);
    }
}

} // namespace
