#include "tools/server/Processing.h"

#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using vrx::host::SampleFormat;
using vrx::tool::Processor;
using vrx::tool::ProcessStep;
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

Processor Chain(const std::vector<std::string>& texts, const StreamShape& shape) {
    std::vector<ProcessStep> steps;
    for (const std::string& text : texts) {
        EXPECT_EQ(vrx::tool::ParseStep(text, shape, steps.emplace_back()), "");
    }
    return Processor(steps);
}

template <class Sample>
std::vector<Sample> RunOnce(const std::string& step, const std::vector<Sample>& block) {
    Processor processor = Chain({step}, std::is_same_v<Sample, float> ? kFloats : kIntegers);
    return Process(processor, block);
}

using Floats = std::vector<float>;
using Integers = std::vector<int32_t>;

TEST(ParseStep, ReadsEachStep) {
    for (const char* text :
         {"pass", "gain=-6.5", "gain=200", "invert", "delay=0", "delay=524288", "lowpass=1e3"}) {
        SCOPED_TRACE(text);
        ProcessStep step;
        EXPECT_EQ(vrx::tool::ParseStep(text, {}, step), "");
        EXPECT_TRUE(step.make);
        EXPECT_FALSE(step.costly);
    }
}

struct BadStepCase {
    const char* text;
    const char* error;
};
constexpr BadStepCase kBadSteps[] = {
    {"", "'' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ, lv2=URI[;SYMBOL=VALUE...]"},
    {"loud", "'loud' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ, lv2=URI[;SYMBOL=VALUE...]"},
    {"pass=1",
     "'pass=1' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ, lv2=URI[;SYMBOL=VALUE...]"},
    {"gain", "'gain' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ, lv2=URI[;SYMBOL=VALUE...]"},
    {"gain=",
     "'gain=' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ, lv2=URI[;SYMBOL=VALUE...]"},
    {"gain=3dB",
     "'gain=3dB' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ, lv2=URI[;SYMBOL=VALUE...]"},
    {"gain=nan",
     "'gain=nan' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ, lv2=URI[;SYMBOL=VALUE...]"},
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
        ProcessStep step;
        EXPECT_EQ(vrx::tool::ParseStep(c.text, {}, step), c.error);
        EXPECT_FALSE(step.make);
    }
}

TEST(Processor, PassesEveryBitPattern) {
    std::vector<uint32_t> words{0, 0x80000000, 0x7F800001, 0xFFFFFFFF, 0x07FF0003};
    const auto before = words;
    for (const StreamShape& shape : {kFloats, kIntegers}) {
        Processor processor = Chain({"pass"}, shape);
        processor.Run(words);
        EXPECT_EQ(words, before);
    }
}

TEST(Processor, TakesAnEmptyBlock) {
    Processor processor = Chain({"gain=1", "delay=1", "lowpass=1"}, kFloats);
    EXPECT_EQ(Process(processor, Floats{}), Floats{});
}

TEST(Processor, AppliesGain) {
    EXPECT_EQ(RunOnce("gain=20", Floats{0.5F, -1, 0}), (Floats{5, -10, 0}));
    EXPECT_EQ(RunOnce("gain=-20", Integers{1000, -15, -16}), (Integers{100, -2, -2}));
    EXPECT_EQ(RunOnce("gain=20", Integers{kMax, kMin, 214748364, -214748364}),
              (Integers{kMax, kMin, 2147483640, -2147483640}));
}

TEST(Processor, Inverts) {
    EXPECT_EQ(RunOnce("invert", Floats{0.25F, -1}), (Floats{-0.25F, 1}));
    EXPECT_TRUE(std::signbit(RunOnce("invert", Floats{0.0F})[0]));
    EXPECT_EQ(RunOnce("invert", Integers{5, 0, kMax, kMin}), (Integers{-5, 0, -kMax, kMax}));
}

TEST(Processor, DelaysOverBlocksAndChannels) {
    Processor processor = Chain({"delay=2"}, {SampleFormat::kS32, 2, 48000});
    EXPECT_EQ(Process(processor, Integers{1, 2, 3, 4, 5, 6}), (Integers{0, 0, 0, 0, 1, 2}));
    EXPECT_EQ(Process(processor, Integers{7, 8}), (Integers{3, 4}));
    EXPECT_EQ(Process(processor, Integers{9, 10, 11, 12}), (Integers{5, 6, 7, 8}));
}

TEST(Processor, DelayOfNothingPasses) {
    EXPECT_EQ(RunOnce("delay=0", Integers{1, 2}), (Integers{1, 2}));
}

TEST(Processor, LowpassKeepsChannelsApartAndItsStateBetweenBlocks) {
    // 1 - exp(-2 pi f / rate) is one half at this frequency
    const double half = 48000 * std::log(2) / (2 * 3.14159265358979323846);
    Processor processor = Chain({"lowpass=" + std::to_string(half)}, {SampleFormat::kF32, 2, 48000});
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
    const auto result = RunOnce("lowpass=1000", Floats{infinity, 0, std::nanf(""), 0});
    EXPECT_EQ(result[0], infinity);
    EXPECT_EQ(result[1], 0);
    EXPECT_TRUE(std::isnan(result[2]));
    EXPECT_EQ(result[3], 0);
}

TEST(Processor, LowpassOfIntegersReachesTheLimitsOnly) {
    const auto result = RunOnce("lowpass=23999", Integers(200, kMin));
    EXPECT_LT(result.front(), 0);
    EXPECT_EQ(result.back(), kMin);
}

TEST(Processor, ChainsStepsInOrder) {
    Processor processor = Chain({"gain=20", "delay=1", "invert"}, kIntegers);
    EXPECT_EQ(Process(processor, Integers{1, 2, 3}), (Integers{0, -10, -20}));
}

} // namespace
