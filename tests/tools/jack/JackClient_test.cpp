#include "tools/jack/JackClient.h"

#include "tests/support/FakeJack.h"
#include "tools/program/Errors.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace vrx::tool;

namespace {

/// Hands the input on, and keeps what it was told.
class Through : public JackAudio {
public:
    void Process(const float* const* in, float* const* out, std::size_t frames) override {
        for (std::size_t channel = 0; channel < 2; ++channel) std::copy_n(in[channel], frames, out[channel]);
        periods.push_back(frames);
    }
    void Freewheel(bool on) override { freewheels.push_back(on); }

    std::vector<std::size_t> periods;
    std::vector<bool> freewheels;
};

class JackClientTest : public testing::Test {
protected:
    void SetUp() override { m_jack = FakeJack(); }

    static Failure FailureOf(const std::string& name, std::size_t channels) {
        try {
            const JackClient client(name, channels);
        } catch (const Failure& failure) {
            return failure;
        }
        return {kDone, "it did not fail"};
    }
    void SetLatency(const std::string& port, jack_latency_callback_mode_t mode, jack_nframes_t min,
                    jack_nframes_t max) {
        m_jack.PortOf(port).latency[mode] = {min, max};
    }
    std::pair<jack_nframes_t, jack_nframes_t> LatencyOf(const std::string& port,
                                                        jack_latency_callback_mode_t mode) {
        const jack_latency_range_t range = m_jack.PortOf(port).latency[mode];
        return {jack_nframes_t{range.min}, jack_nframes_t{range.max}};
    }

    FakeJack& m_jack = TheJack();
    Through m_audio;
};

TEST_F(JackClientTest, HasAsManyInputsAsOutputsInOrder) {
    const JackClient client("fake", 2);
    std::vector<std::string> names;
    for (const FakeJack::Port& port : m_jack.ports) {
        names.push_back(port.name);
        EXPECT_EQ(port.flags, port.name.find("in_") == 5 ? JackPortIsInput : JackPortIsOutput) << port.name;
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"fake:in_1", "fake:in_2", "fake:out_1", "fake:out_2"}));
    EXPECT_EQ(client.Name(), "fake");
    EXPECT_EQ(client.SampleRate(), 48000U);
    EXPECT_EQ(client.PeriodFrames(), 64U);
    EXPECT_EQ(client.Ended(), "");
}

TEST_F(JackClientTest, SaysWhyItCannotBe) {
    EXPECT_EQ(FailureOf("", 1).code, kWrongUsage);
    EXPECT_EQ(FailureOf(std::string(33, 'x'), 1).code, kWrongUsage);
    EXPECT_EQ(FailureOf(std::string(32, 'x'), 1).code, kDone);
    m_jack.mostPorts = m_jack.ports.size() + 3;
    m_jack.closed = 0;
    EXPECT_EQ(FailureOf("fake", 2).code, kRunFailed);
    EXPECT_EQ(m_jack.closed, 1);
    m_jack.running = false;
    EXPECT_EQ(FailureOf("fake", 1).code, kCannotConnect);
}

TEST_F(JackClientTest, HandsEachPeriodOn) {
    JackClient client("fake", 2);
    client.Activate(m_audio);
    m_jack.PortOf("fake:in_2").samples[63] = 0.5F;
    EXPECT_EQ(m_jack.process(64, m_jack.argument), 0);
    EXPECT_EQ(m_jack.PortOf("fake:out_2").samples[63], 0.5F);
    EXPECT_EQ(m_audio.periods, std::vector<std::size_t>{64});
    m_jack.periodChanged(256, m_jack.argument);
    m_jack.rateChanged(44100, m_jack.argument);
    EXPECT_EQ(client.PeriodFrames(), 256U);
    EXPECT_EQ(client.SampleRate(), 44100U);
}

TEST_F(JackClientTest, JoinsThePhysicalPortsFirstToFirst) {
    JackClient client("fake", 2);
    m_jack.physicalOutputs = {"card:mic"};
    m_jack.physicalInputs = {"card:left", "card:right", "card:centre"};
    client.ConnectToPhysical();
    using Connections = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(
        m_jack.connections,
        (Connections{{"card:mic", "fake:in_1"}, {"fake:out_1", "card:left"}, {"fake:out_2", "card:right"}}));
    m_jack.connections.clear();
    m_jack.physicalOutputs.clear();
    m_jack.physicalInputs.clear();
    client.ConnectToPhysical();
    EXPECT_TRUE(m_jack.connections.empty());
}

/// Each direction is worked out from its own side.
TEST_F(JackClientTest, AddsItsDelayToTheLatenciesOfEitherDirection) {
    JackClient client("fake", 2);
    client.SetLatency(1000);
    EXPECT_EQ(m_jack.recomputed, 1);
    SetLatency("fake:in_1", JackCaptureLatency, 10, 20);
    SetLatency("fake:in_2", JackCaptureLatency, 30, 40);
    SetLatency("fake:out_1", JackPlaybackLatency, 1, 2);
    SetLatency("fake:out_2", JackPlaybackLatency, 3, 4);
    m_jack.latency(JackCaptureLatency, m_jack.argument);
    EXPECT_EQ(LatencyOf("fake:out_1", JackCaptureLatency), (std::pair{1010U, 1020U}));
    EXPECT_EQ(LatencyOf("fake:out_2", JackCaptureLatency), (std::pair{1030U, 1040U}));
    EXPECT_EQ(LatencyOf("fake:in_1", JackPlaybackLatency), (std::pair{0U, 0U}));
    m_jack.latency(JackPlaybackLatency, m_jack.argument);
    EXPECT_EQ(LatencyOf("fake:in_1", JackPlaybackLatency), (std::pair{1001U, 1002U}));
    EXPECT_EQ(LatencyOf("fake:in_2", JackPlaybackLatency), (std::pair{1003U, 1004U}));
    EXPECT_EQ(LatencyOf("fake:in_1", JackCaptureLatency), (std::pair{10U, 20U}));
}

TEST_F(JackClientTest, TheWorkerStandsBelowJacksOwnThreads) {
    const JackClient client("fake", 1);
    for (const auto& [jack, worker] : {std::pair{-1, 0}, {0, 0}, {1, 0}, {2, 1}, {15, 14}}) {
        m_jack.priority = jack;
        EXPECT_EQ(client.WorkerPriority(), worker);
    }
}

TEST_F(JackClientTest, XrunsAroundFreewheelingAreNone) {
    JackClient client("fake", 1);
    client.Activate(m_audio);
    const auto xrunAt = [&](std::uint64_t microseconds) {
        m_jack.microseconds = microseconds;
        m_jack.xrun(m_jack.argument);
        return client.Xruns();
    };
    EXPECT_EQ(xrunAt(5), 1U);
    m_jack.microseconds = 1000;
    m_jack.freewheel(1, m_jack.argument);
    EXPECT_EQ(xrunAt(9000000), 1U); // while it lasts
    m_jack.microseconds = 10000000;
    m_jack.freewheel(0, m_jack.argument);
    EXPECT_EQ(xrunAt(11000000), 1U); // within a second
    EXPECT_EQ(xrunAt(11000001), 2U);
    EXPECT_EQ(m_audio.freewheels, (std::vector<bool>{true, false}));
}

TEST_F(JackClientTest, SaysWhyTheServerLetItGo) {
    struct Case {
        int code;
        const char* why;
    };
    for (const Case& c : {
             Case{JackFailure | JackClientZombie,
                  "JACK removed this client because it was too slow: use longer periods"},
             Case{JackFailure | JackServerError, "the JACK server has ended"},
             Case{JackFailure, "the JACK server has ended"},
         }) {
        JackClient client("fake", 1);
        m_jack.shutdown(static_cast<jack_status_t>(c.code), "reason", m_jack.argument);
        EXPECT_EQ(client.Ended(), c.why);
        m_jack.activates = false;
        try {
            client.Activate(m_audio);
            ADD_FAILURE();
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code, kRunFailed);
            EXPECT_EQ(failure.message, c.why);
        }
    }
}

} // namespace
