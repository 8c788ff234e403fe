#include "tools/server/Lv2Stage.h"

#include "tests/support/RawClient.h"
#include "tests/support/Subprocess.h"
#include "tools/program/Errors.h"

#include <bit>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>

namespace {

using vrx::host::SampleFormat;
using vrx::tool::Processor;
using vrx::tool::ProcessStep;
using vrx::tool::StreamShape;

// The plug-ins of this test and no others; set before any of them is looked for.
const int kPathSet = ::setenv("LV2_PATH", VRX_TEST_LV2_PATH, 1);

constexpr StreamShape kMono{SampleFormat::kF32, 1, 48000};
constexpr StreamShape kStereo{SampleFormat::kF32, 2, 48000};

Processor Make(const std::string& step, const StreamShape& shape) {
    std::vector<ProcessStep> steps(1);
    EXPECT_EQ(vrx::tool::ParseStep(step, shape, steps[0]), "");
    EXPECT_TRUE(steps[0].costly);
    return Processor(steps);
}

std::vector<float> Process(Processor& processor, const std::vector<float>& block) {
    std::vector<uint32_t> words;
    for (const float sample : block) words.push_back(std::bit_cast<uint32_t>(sample));
    processor.Run(words);
    std::vector<float> result;
    for (const uint32_t word : words) result.push_back(std::bit_cast<float>(word));
    return result;
}

/// A processor whose plug-ins have all had their work answered.
Processor MakeAnswered(const std::string& step, const StreamShape& shape) {
    Processor processor = Make(step, shape);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const auto answered = [&] {
        for (const float sample : Process(processor, std::vector<float>(shape.channels))) {
            if (sample < 1) return false;
        }
        return true;
    };
    while (!answered() && std::chrono::steady_clock::now() < until) std::this_thread::yield();
    return processor;
}

TEST(Lv2Stage, GivesThePluginWhatItAsksFor) {
    ASSERT_EQ(kPathSet, 0);
    testing::internal::CaptureStderr();
    Processor processor = Make("lv2=urn:vrx:probe", kMono);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "vrx serve: plug-in: probe made at 48000 Hz\n");
    // its default state adds a quarter; silence would be a complaint
    EXPECT_EQ(Process(processor, {0.5F}), (std::vector<float>{0.75F}));
}

TEST(Lv2Stage, WorksOnAThreadOfItsOwnAndAnswers) {
    Processor processor = MakeAnswered("lv2=urn:vrx:probe", kMono);
    EXPECT_EQ(Process(processor, {0.5F, -1}), (std::vector<float>{1.75F, 0.25F}));
}

TEST(Lv2Stage, RunsAMonoPluginOncePerChannel) {
    Processor processor = MakeAnswered("lv2=urn:vrx:probe;gain=2", kStereo);
    EXPECT_EQ(Process(processor, {1, 2, 3, 4}), (std::vector<float>{3.25F, 5.25F, 7.25F, 9.25F}));
    EXPECT_EQ(Process(processor, {1, 2, 3}), (std::vector<float>{3.25F, 5.25F, 7.25F})); // half a frame
    EXPECT_EQ(Process(processor, {}), (std::vector<float>{}));
}

TEST(Lv2Stage, CutsLongBlocksIntoRuns) {
    Processor processor = MakeAnswered("lv2=urn:vrx:probe", kStereo);
    std::vector<float> block(30001);
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<float>(i);
    const auto result = Process(processor, block);
    for (size_t i = 0; i < block.size(); ++i) ASSERT_EQ(result[i], block[i] + 1.25F) << i;
}

TEST(Lv2Stage, ConvertsIntegers) {
    Processor processor = Make("lv2=urn:vrx:probe;gain=4", {SampleFormat::kS32, 1, 48000});
    std::vector<uint32_t> words{0x10000000, 0x40000000, 0xE0000000}; // an eighth, a half, minus a quarter
    processor.Run(words);
    EXPECT_EQ(words, (std::vector<uint32_t>{0x60000000, 0x7FFFFFFF, 0xA0000000})); // plus a quarter, clipped
}

TEST(Lv2Stage, TellsItsLatencyAfterABlock) {
    Processor processor = Make("lv2=urn:vrx:probe", kStereo);
    Process(processor, {0, 0});
    EXPECT_EQ(processor.Latency(), 77U);
}

TEST(Lv2Stage, AServerTellsTheLatencyBeforeTheFirstBlock) {
    Subprocess server({VRX_PROGRAM, "serve", "--quiet", "--process", "lv2=urn:vrx:probe", "--process",
                       "lv2=urn:vrx:probe"});
    const std::string first = server.ReadLine();
    const auto port = static_cast<uint16_t>(std::stoi(first.substr(first.rfind(':') + 1)));
    const std::string status = RawClient(port).Ask("status json");
    EXPECT_TRUE(status.ends_with(R"("latency":154})")) << status;
}

struct WrongCase {
    const char* text;
    StreamShape shape;
    const char* error;
};
constexpr WrongCase kWrong[] = {
    {"lv2=", kMono, "no LV2 plug-in '' is installed; --process lv2=list lists those that are"},
    {"lv2=urn:vrx:nothing", kMono,
     "no LV2 plug-in 'urn:vrx:nothing' is installed; --process lv2=list lists those that are"},
    {"lv2=no uri", kMono, "no LV2 plug-in 'no uri' is installed; --process lv2=list lists those that are"},
    {"lv2=urn:vrx:probe-needy", kMono,
     "urn:vrx:probe-needy: it needs urn:vrx:unheard-of, which is not offered here"},
    {"lv2=urn:vrx:probe-foreign", kMono,
     "urn:vrx:probe-foreign: its port odd is of a kind that is not known here"},
    {"lv2=urn:vrx:probe-narrow", kStereo,
     "urn:vrx:probe-narrow has 2 audio inputs and 1 output, the stream has 2 channels; see --channels"},
    {"lv2=urn:vrx:probe;", kMono, "'' is no control of urn:vrx:probe; --process lv2=list lists them"},
    {"lv2=urn:vrx:probe;in=1", kMono, "'in' is no control of urn:vrx:probe; --process lv2=list lists them"},
    {"lv2=urn:vrx:probe;latency=1", kMono,
     "'latency' is no control of urn:vrx:probe; --process lv2=list lists them"},
    {"lv2=urn:vrx:probe;gain", kMono, "'gain' is not SYMBOL=VALUE with a number"},
    {"lv2=urn:vrx:probe;gain=loud", kMono, "'gain=loud' is not SYMBOL=VALUE with a number"},
    {"lv2=urn:vrx:probe;gain=4.5", kMono, "gain of urn:vrx:probe is 0 to 4"},
    {"lv2=urn:vrx:probe;gain=nan", kMono, "'gain=nan' is not SYMBOL=VALUE with a number"},
    {"lv2=urn:vrx:probe;gain=1;frequency=5000", kMono, "frequency of urn:vrx:probe is 6000 to 24000"},
};

TEST(ParseLv2Step, SaysWhatIsWrong) {
    for (const WrongCase& c : kWrong) {
        SCOPED_TRACE(c.text);
        ProcessStep step;
        EXPECT_EQ(vrx::tool::ParseStep(c.text, c.shape, step), c.error);
        EXPECT_FALSE(step.make);
    }
}

TEST(ParseLv2Step, ThePluginMayStillRefuseToBeMade) {
    std::vector<ProcessStep> steps(1);
    ASSERT_EQ(vrx::tool::ParseStep("lv2=urn:vrx:probe-refusing", kMono, steps[0]), "");
    try {
        const Processor processor(steps);
        FAIL() << "it was made";
    } catch (const vrx::tool::Failure& failure) {
        EXPECT_EQ(failure.message, "the plug-in urn:vrx:probe-refusing could not be made");
    }
}

TEST(DescribeLv2Plugins, ListsControlsWithRangesAndWhyAPluginCannotBeUsed) {
    EXPECT_EQ(
        vrx::tool::DescribeLv2Plugins(48000),
        "urn:vrx:probe\n"
        "  Probe: 1 audio input, 1 output\n"
        "  gain  0 to 4, default 1  Gain\n"
        "  frequency  6000 to 24000, default 12000  Frequency\n"
        "urn:vrx:probe-foreign\n"
        "  Foreign: 1 audio input, 1 output; cannot be used: its port odd is of a kind that is not known "
        "here\n"
        "urn:vrx:probe-narrow\n"
        "  Narrow: 2 audio inputs, 1 output\n"
        "urn:vrx:probe-needy\n"
        "  Needy: 1 audio input, 1 output; cannot be used: it needs urn:vrx:unheard-of, which is not offered "
        "here\n"
        "urn:vrx:probe-refusing\n"
        "  Refusing: 1 audio input, 1 output\n");
}

} // namespace
