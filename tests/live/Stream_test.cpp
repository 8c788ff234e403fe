#include "live/Stream.h"
#include "tests/live/Rig.h"

#include <gtest/gtest.h>

#include <limits>

using vrx::live::Late;
using vrx::live::Shape;
using vrx::live::Slots;
using vrx::live::SlotState;
using vrx::live::Stream;

namespace {

struct Case {
    const char* name;
    std::size_t channels;
    std::size_t block;
    std::size_t period;
    std::size_t latency;
};
constexpr Case kShapes[] = {
    {"one block a period, the least latency", 2, 64, 64, 64},
    {"one block a period, two more", 2, 64, 64, 192},
    {"mono, one frame at a time", 1, 1, 1, 1},
    {"four blocks a period", 2, 16, 64, 64},
    {"four periods a block", 3, 64, 16, 64},
    {"a block and a period without a common measure", 2, 48, 64, 96},
    {"a period just shorter than a block", 2, 64, 63, 126},
    {"64 channels", 64, 31, 32, 62},
    {"a latency that is no multiple of anything", 2, 16, 32, 77},
    {"a second of latency", 1, 480, 480, 48000},
};

/// What arrives when the worker comes to its turn after every callback.
TEST(Stream, DelaysEveryFrameByTheLatencyAndLosesNone) {
    for (const Case& c : kShapes) {
        SCOPED_TRACE(c.name);
        Rig rig({c.channels, 48000, c.block, c.period, c.latency, Late::kDry}, {});
        const auto callbacks = static_cast<unsigned>(3 * (c.latency + c.block) / c.period + 50);
        for (unsigned i = 0; i < callbacks; ++i) {
            rig.Callback();
            for (std::size_t k = 0; k <= c.period / c.block; ++k) rig.Work();
        }
        rig.CheckCounts();
        EXPECT_EQ(rig.late, 0U);
        EXPECT_GT(rig.wet, 0U);
    }
}

TEST(Stream, KeepsTheDelayWhenNothingEverComesBack) {
    for (const Late late : {Late::kDry, Late::kSilence})
        for (const Case& c : kShapes) {
            SCOPED_TRACE(c.name);
            Rig rig({c.channels, 48000, c.block, c.period, c.latency, late}, {});
            const auto callbacks = static_cast<unsigned>(5 * (c.latency + c.block) / c.period + 50);
            rig.Callbacks(callbacks); // and the worker never gets its turn
            rig.CheckCounts();
            EXPECT_EQ(rig.wet, 0U);
            EXPECT_GT(rig.late, 0U);
        }
}

TEST(Stream, TakesAnyNumberOfFramesPerCall) {
    for (const Case& c : kShapes) {
        SCOPED_TRACE(c.name);
        std::uint32_t state = 1;
        Rig::Script script;
        script.frames = [&] {
            state = state * 1664525 + 1013904223;
            return (state >> 16) % (3 * c.period + 1); // 0 too, and more than the period
        };
        Rig rig({c.channels, 48000, c.block, c.period, c.latency, Late::kDry}, script);
        rig.Run(300);
    }
}

/// Drives the real-time side alone, with the test in the worker's place.
class StreamAlone : public testing::Test {
protected:
    static constexpr std::size_t kBlock = 96; // two milliseconds: half of it can fade
    static constexpr Shape kShape{1, 48000, kBlock, kBlock, kBlock, Late::kDry};

    /// One block in, one out.
    std::vector<float> Process(float value, const Shape& shape = kShape) {
        std::vector<float> buffer(shape.blockFrames, value);
        const float* in[] = {buffer.data()};
        float* out[] = {buffer.data()};
        stream.Process(in, out, buffer.size());
        return buffer;
    }
    void Reply(float value) {
        const auto block = slots.Take(std::chrono::microseconds(0));
        ASSERT_TRUE(block);
        std::fill_n(block->samples, kBlock, value);
        EXPECT_TRUE(slots.Finish(*block, true));
    }

    Slots slots{5, kBlock};
    Stream stream{kShape, slots};
};

TEST_F(StreamAlone, JoinsKindsByAFadeOfAMillisecond) {
    Process(0.25F);
    Reply(0.5F);
    EXPECT_EQ(Process(0.25F), std::vector<float>(kBlock, 0.5F)); // the first block: nothing to fade from
    const std::vector<float> dry = Process(0.25F);               // wet to dry
    EXPECT_FLOAT_EQ(dry[0], 0.5F - 0.25F / 49);
    EXPECT_FLOAT_EQ(dry[47], 0.5F - 0.25F * 48 / 49);
    EXPECT_EQ(dry[48], 0.25F);
    (void)slots.Take(std::chrono::microseconds(0));               // gives the late one up
    EXPECT_EQ(Process(0.25F), std::vector<float>(kBlock, 0.25F)); // dry to dry
}

TEST_F(StreamAlone, FadesFromDryToWetWithoutAStep) {
    Process(0.25F);
    Process(0.25F);
    Reply(0.75F);
    const std::vector<float> wet = Process(0.25F);
    EXPECT_FLOAT_EQ(wet[0], 0.25F + 0.5F / 49);
    EXPECT_FLOAT_EQ(wet[47], 0.25F + 0.5F * 48 / 49);
    EXPECT_EQ(wet[48], 0.75F);
}

TEST_F(StreamAlone, LeadsOverFromWhatIsNoNumberAsFromSilence) {
    Process(0.5F);
    Reply(std::numeric_limits<float>::quiet_NaN());
    EXPECT_TRUE(std::isnan(Process(0.5F)[0])); // what the server sent, bit for bit
    EXPECT_FLOAT_EQ(Process(0.5F)[0], 0.5F / 49);
}

TEST_F(StreamAlone, BypassTakesTheDryInputAndCountsNothing) {
    stream.Bypass(true);
    Process(0.25F);
    Reply(0.5F);
    EXPECT_EQ(Process(0.25F), std::vector<float>(kBlock, 0.25F));
    stream.Bypass(false);
    Reply(0.5F);
    EXPECT_EQ(Process(0.25F)[kBlock - 1], 0.5F);
    EXPECT_EQ(stream.LateBlocks(), 0U);
    EXPECT_EQ(stream.Blocks(), 2U);
}

TEST_F(StreamAlone, CountsFailedBlocksAmongTheLateOnes) {
    Process(0);
    const auto block = slots.Take(std::chrono::microseconds(0));
    ASSERT_TRUE(block);
    EXPECT_TRUE(slots.Finish(*block, false));
    Process(0);
    Process(0);
    EXPECT_EQ(stream.LateBlocks(), 2U);
    EXPECT_EQ(stream.FailedBlocks(), 1U);
}

} // namespace
