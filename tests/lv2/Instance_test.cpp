#include "lv2/Instance.h"

#include "lv2/settings/BundleSettings.h"
#include "tests/live/FakeParts.h"
#include "tests/support/NoMemory.h"

#include <gtest/gtest.h>
#include <system_error>

namespace {

using namespace vrx;
using lv2::ControlPort;
using lv2::Instance;

live::Shape Mono() {
    live::Shape shape;
    shape.channels = 1;
    shape.blockFrames = shape.periodFrames = 4;
    shape.latencyFrames = 8;
    return shape;
}

/// The audio ports and a buffer of four frames for each.
struct Ports {
    float in[4] = {1, 2, 3, 4};
    float out[4] = {9, 9, 9, 9};

    explicit Ports(Instance& instance) {
        instance.ConnectPort(0, in);
        instance.ConnectPort(1, out);
    }
};

TEST(Instance, AllocatesNothingWhileItRuns) {
    Instance instance(Mono(), EchoBridge);
    Ports ports(instance);
    float freeWheeling = 0;
    float late = -1;
    instance.ConnectPort(PortIndex(ControlPort::kFreeWheeling, 1), &freeWheeling);
    instance.ConnectPort(PortIndex(ControlPort::kLate, 1), &late);
    instance.Activate();
    const FailAllocation fail(0); // on this thread
    for (int i = 0; i < 1000; ++i) instance.Run(4);
    EXPECT_FALSE(fail.Failed());
    EXPECT_GE(late, 0);
}

TEST(Instance, LeavesMissingAudioPortsAlone) {
    Instance instance(Mono(), EchoBridge);
    instance.Run(4);
    Ports ports(instance);
    instance.ConnectPort(0, nullptr);
    instance.Run(4);
    EXPECT_EQ(ports.out[0], 9);
    instance.ConnectPort(0, ports.in);
    instance.ConnectPort(99, ports.out); // no such port
    instance.Run(4);
    EXPECT_EQ(ports.out[0], 0) << "the latency's silence";
}

TEST(Instance, IsSilentWithoutABridge) {
    int made = 0;
    Instance instance(Mono(), [&made](const live::Shape&) -> std::unique_ptr<live::Bridge> {
        ++made;
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    });
    Ports ports(instance);
    float latency = -1;
    float late = -1;
    instance.ConnectPort(PortIndex(ControlPort::kLatency, 1), &latency);
    instance.ConnectPort(PortIndex(ControlPort::kLate, 1), &late);
    instance.Run(4);
    instance.Run(4);
    EXPECT_EQ(made, 1) << "one attempt for each activation";
    EXPECT_EQ(ports.out[3], 0);
    EXPECT_EQ(latency, 8);
    EXPECT_EQ(late, 0);
    instance.Activate();
    EXPECT_EQ(made, 2);
}

TEST(Instance, MakesTheBridgeAtActivation) {
    int made = 0;
    Instance instance(Mono(), [&made](const live::Shape& shape) {
        ++made;
        EXPECT_EQ(shape.latencyFrames, 8U);
        return EchoBridge(shape);
    });
    EXPECT_EQ(made, 0);
    instance.Activate();
    EXPECT_EQ(made, 1);
    instance.Run(0);
    instance.Deactivate();
    EXPECT_EQ(made, 1);
    instance.Run(0); // a host that does not activate
    EXPECT_EQ(made, 2);
}

} // namespace
