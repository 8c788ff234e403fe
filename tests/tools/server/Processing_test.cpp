#include "tools/server/Processing.h"

#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using vrx::tool::Processor;
using vrx::tool::ProcessStep;
using vrx::tool::SampleFormat;
using vrx::tool::StreamShape;

constexpr StreamShape kFloats{SampleFormat::kF32, 1, 48000};
constexpr StreamShape kIntegers{SampleFormat::kS32, 1, 48000};
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

template <class Sample>
std::vector<Sample> Process(Processor& processor, const std::vector<Sample>& block) {
    std::vector<uint32_t> words;
    for (const Sample sample : block) words.push_back(std::bit_cast<uint32_t>(sample));
    processor.Run(words);
    std::vector<Sample> result;
    for (const uint32_t word : words) result.push_back(std::bit_cast<Sample>(word));
    return result;
}

template <class Sample>
std::vector<Sample> RunOnce(ProcessStep::Kind kind, double value, const std::vector<Sample>& block) {
    Processor processor({{kind, value}}, std::is_same_v<Sample, float> ? kFloats : kIntegers);
    return Process(processor, block);
}

using Floats = std::vector<float>;
using Integers = std::vector<int32_t>;

struct StepCase {
    const char* text;
    ProcessStep::Kind kind;
    double value;
};
constexpr StepCase kSteps[] = {
    {"pass", ProcessStep::kPass, 0},
    {"gain=-6.5", ProcessStep::kGain, -6.5},
    {"gain=200", ProcessStep::kGain, 200},
    {"invert", ProcessStep::kInvert, 0},
    {"delay=0", ProcessStep::kDelay, 0},
    {"delay=524288", ProcessStep::kDelay, 524288},
    {"lowpass=1e3", ProcessStep::kLowpass, 1000},
};

TEST(ParseStep, ReadsEachStep) {
    for (const StepCase& c : kSteps) {
        SCOPED_TRACE(c.text);
        ProcessStep step;
        EXPECT_EQ(vrx::tool::ParseStep(c.text, {}, step), "");
        EXPECT_EQ(step.kind, c.kind);
        EXPECT_EQ(step.value, c.value);
    }
}

struct BadStepCase {
    const char* text;
    const char* error;
};
constexpr BadStepCase kBadSteps[] = {
    {"", "'' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ"},
    {"loud", "'loud' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ"},
    {"pass=1", "'pass=1' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ"},
    {"gain", "'gain' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ"},
    {"gain=", "'gain=' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ"},
    {"gain=3dB", "'gain=3dB' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ"},
    {"gain=nan", "'gain=nan' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ"},
    {"gain=201", "gain is -200 to 200 dB"},
    {"delay=-1", "delay is a whole number of frames"},
    {"delay=1.5", "delay is a whole number of frames"},
    {"delay=524289", "delay holds at most 1048576 words"}, // of two channels
    {"lowpass=0", "lowpass lies above 0 and below half the rate"},
    {"lowpass=24000", "lowpass lies above 0 and below half the rate"},
};

TEST(ParseStep, SaysWhatIsWrong) {
    for (const BadStepCase& c : kBadSteps) {
        SCOPED_TRACE(c.text);
        ProcessStep step{ProcessStep::kGain, 7};
        EXPECT_EQ(vrx::tool::ParseStep(c.text, {}, step), c.error);
        EXPECT_EQ(step.value, 7);
    }
}

TEST(Processor, PassesEveryBitPattern) {
    std::vector<uint32_t> words{0, 0x80000000, 0x7F800001, 0xFFFFFFFF, 0x07FF0003};
    const auto before = words;
    for (const StreamShape& shape : {kFloats, kIntegers}) {
        Processor processor({{ProcessStep::kPass, 0}}, shape);
        processor.Run(words);
        EXPECT_EQ(words, before);
    }
}

TEST(Processor, TakesAnEmptyBlock) {
    Processor processor({{ProcessStep::kGain, 1}, {ProcessStep::kDelay, 1}, {ProcessStep::kLowpass, 1}},
                        kFloats);
    EXPECT_EQ(Process(processor, Floats{}), Floats{});
}

TEST(Processor, AppliesGain) {
    EXPECT_EQ(RunOnce(ProcessStep::kGain, 20, Floats{0.5F, -1, 0}), (Floats{5, -10, 0}));
    EXPECT_EQ(RunOnce(ProcessStep::kGain, -20, Integers{1000, -15, -16}), (Integers{100, -2, -2}));
    EXPECT_EQ(RunOnce(ProcessStep::kGain, 20, Integers{kMax, kMin, 214748364, -214748364}),
              (Integers{kMax, kMin, 2147483640, -2147483640}));
}

TEST(Processor, Inverts) {
    EXPECT_EQ(RunOnce(ProcessStep::kInvert, 0, Floats{0.25F, -1}), (Floats{-0.25F, 1}));
    EXPECT_TRUE(std::signbit(RunOnce(ProcessStep::kInvert, 0, Floats{0.0F})[0]));
    EXPECT_EQ(RunOnce(ProcessStep::kInvert, 0, Integers{5, 0, kMax, kMin}), (Integers{-5, 0, -kMax, kMax}));
}

TEST(Processor, DelaysOverBlocksAndChannels) {
    Processor processor({{ProcessStep::kDelay, 2}}, {SampleFormat::kS32, 2, 48000});
    EXPECT_EQ(Process(processor, Integers{1, 2, 3, 4, 5, 6}), (Integers{0, 0, 0, 0, 1, 2}));
    EXPECT_EQ(Process(processor, Integers{7, 8}), (Integers{3, 4}));
    EXPECT_EQ(Process(processor, Integers{9, 10, 11, 12}), (Integers{5, 6, 7, 8}));
}

TEST(Processor, DelayOfNothingPasses) {
    EXPECT_EQ(RunOnce(ProcessStep::kDelay, 0, Integers{1, 2}), (Integers{1, 2}));
}

TEST(Processor, LowpassKeepsChannelsApartAndItsStateBetweenBlocks) {
    // 1 - exp(-2 pi f / rate) is one half at this frequency
    const double half = 48000 * std::log(2) / (2 * 3.14159265358979323846);
    Processor processor({{ProcessStep::kLowpass, half}}, {SampleFormat::kF32, 2, 48000});
    const auto first = Process(processor, Floats{1, 0, 1, 0});
    const auto second = Process(processor, Floats{1, 8});
    EXPECT_NEAR(first[0], 0.5, 1e-6);
    EXPECT_EQ(first[1], 0);
    EXPECT_NEAR(first[2], 0.75, 1e-6);
    EXPECT_NEAR(second[0], 0.875, 1e-6);
    EXPECT_NEAR(second[1], 4, 1e-5);
}

TEST(Processor, LowpassForgetsWhatIsNotANumber) {
    const float infinity = std::numeric_limits<float>::infinity();
    const auto result = RunOnce(ProcessStep::kLowpass, 1000, Floats{infinity, 0, std::nanf(""), 0});
    EXPECT_EQ(result[0], infinity);
    EXPECT_EQ(result[1], 0);
    EXPECT_TRUE(std::isnan(result[2]));
    EXPECT_EQ(result[3], 0);
}

TEST(Processor, LowpassOfIntegersReachesTheLimitsOnly) {
    const auto result = RunOnce(ProcessStep::kLowpass, 23999, Integers(200, kMin));
    EXPECT_LT(result.front(), 0);
    EXPECT_EQ(result.back(), kMin);
}

TEST(Processor, ChainsStepsInOrder) {
    Processor processor({{ProcessStep::kGain, 20}, {ProcessStep::kDelay, 1}, {ProcessStep::kInvert, 0}},
                        kIntegers);
    EXPECT_EQ(Process(processor, Integers{1, 2, 3}), (Integers{0, -10, -20}));
}

} // namespace
