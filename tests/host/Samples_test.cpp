#include "host/Samples.h"

#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace vrx::host;

std::uint32_t Word(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

std::int16_t ToPcm16(std::uint32_t word, SampleFormat format) {
    std::int16_t sample = 0x5555;
    WordsToPcm16(&word, 1, format, &sample);
    return sample;
}

std::int32_t ToPcm32(std::uint32_t word, SampleFormat format) {
    std::int32_t sample = 0x55555555;
    WordsToPcm32(&word, 1, format, &sample);
    return sample;
}

TEST(Samples, FloatWordsBecome16Bits) {
    struct Case {
        const char* name;
        float word;
        int want;
    };
    constexpr float kStep = 1.0F / 32768;
    const Case cases[] = {
        {"silence", 0, 0},
        {"one step", kStep, 1},
        {"minus one step", -kStep, -1},
        {"below a half goes down", 0.49F * kStep, 0},
        {"above a half goes up", 0.51F * kStep, 1},
        {"a half goes to the even 0", 0.5F * kStep, 0},
        {"one and a half goes to the even 2", 1.5F * kStep, 2},
        {"two and a half goes to the even 2", 2.5F * kStep, 2},
        {"a negative half goes to the even 0", -0.5F * kStep, 0},
        {"full scale down", -1, -32768},
        {"full scale up is one step too high", 1, 32767},
        {"beyond the top", 1.5F, 32767},
        {"beyond the bottom", -3, -32768},
        {"infinity", std::numeric_limits<float>::infinity(), 32767},
        {"minus infinity", -std::numeric_limits<float>::infinity(), -32768},
        {"no number", std::numeric_limits<float>::quiet_NaN(), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(ToPcm16(Word(c.word), SampleFormat::kF32), c.want);
    }
}

TEST(Samples, IntegerWordsBecome16Bits) {
    struct Case {
        std::uint32_t word;
        int want;
    };
    const Case cases[] = {
        {0x00000000, 0},     {0x00010000, 1},      {0xFFFF0000, -1}, {0x00007FFF, 0},
        {0x00008000, 0},     {0x00008001, 1},      {0x00018000, 2},  {0x7FFF0000, 32767},
        {0x7FFFFFFF, 32767}, {0x80000000, -32768}, {0xFFFF8000, 0},  {0xFFFF7FFF, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.word);
        EXPECT_EQ(ToPcm16(c.word, SampleFormat::kS32), c.want);
    }
}

TEST(Samples, Every16BitSampleSurvivesEitherKindOfWord) {
    for (int sample = -32768; sample <= 32767; ++sample)
        for (const SampleFormat format : {SampleFormat::kF32, SampleFormat::kS32})
            ASSERT_EQ(ToPcm16(WordFromSample(sample / 32768.0, format), format), sample);
}

TEST(Samples, IntegerWordsKeepAll32Bits) {
    for (const std::int32_t sample : {0, 1, -1, 0x12345678, std::numeric_limits<std::int32_t>::max(),
                                      std::numeric_limits<std::int32_t>::min()}) {
        const std::uint32_t word = WordFromSample(sample / 2147483648.0, SampleFormat::kS32);
        EXPECT_EQ(word, static_cast<std::uint32_t>(sample));
        EXPECT_EQ(ToPcm32(word, SampleFormat::kS32), sample);
    }
}

TEST(Samples, FloatWordsBecome32Bits) {
    EXPECT_EQ(ToPcm32(Word(0.5F), SampleFormat::kF32), 0x40000000);
    EXPECT_EQ(ToPcm32(Word(-1.0F), SampleFormat::kF32), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(ToPcm32(Word(1.0F), SampleFormat::kF32), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(ToPcm32(Word(std::nanf("")), SampleFormat::kF32), 0);
}

TEST(Samples, SamplesOutsideTheRangeAreClippedInIntegerWordsAndKeptInFloatWords) {
    EXPECT_EQ(WordFromSample(1.0, SampleFormat::kS32), 0x7FFFFFFFU);
    EXPECT_EQ(WordFromSample(-7.0, SampleFormat::kS32), 0x80000000U);
    EXPECT_EQ(WordFromSample(std::nan(""), SampleFormat::kS32), 0U);
    EXPECT_EQ(WordFromSample(1.5, SampleFormat::kF32), Word(1.5F));
}

TEST(Samples, FloatFilesGetFullScaleFromEitherKind) {
    const std::uint32_t words[] = {0xC0000000, Word(-0.5F)};
    float samples[2] = {};
    WordsToFloat(&words[0], 1, SampleFormat::kS32, &samples[0]);
    WordsToFloat(&words[1], 1, SampleFormat::kF32, &samples[1]);
    EXPECT_EQ(samples[0], -0.5F);
    EXPECT_EQ(samples[1], -0.5F);
}

} // namespace
