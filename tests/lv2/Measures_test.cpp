#include "lv2/Measures.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx;
using namespace vrx::lv2;

TEST(ShapeFor, FillsInWhatTheSettingsLeaveOpen) {
    struct Case {
        const char* name;
        std::size_t channels, block, latency;
        double rate;
        std::optional<std::size_t> host;
        std::size_t wantBlock, wantPeriod, wantLatency;
    };
    // Left open, the latency is the least one and 20 ms in whole blocks: 960 frames at 48 kHz.
    const Case cases[] = {
        {"nothing known", 2, 0, 0, 48000, {}, 512, 1024, 1024 + 2 * 512},
        {"the host's block", 2, 0, 0, 48000, 256, 256, 256, 256 + 4 * 256},
        {"a short one", 2, 0, 0, 48000, 64, 64, 64, 64 + 15 * 64},
        {"another rate", 2, 0, 0, 96000, 256, 256, 256, 256 + 8 * 256},
        {"one channel", 1, 0, 0, 48000, 1024, 1024, 1024, 1024 + 1024},
        {"more channels than a reply holds blocks", 64, 0, 0, 48000, 256, 16, 256, 256 + 60 * 16},
        {"one frame", 2, 0, 0, 48000, 1, 1, 1, 1 + 960},
        {"a very long period", 2, 0, 0, 48000, 100000, 512, 8192, 8192 + 2 * 512},
        {"a block of its own", 2, 100, 0, 48000, 256, 100, 256, 100 + 256 - 4 + 10 * 100},
        {"a latency of its own", 2, 0, 2048, 48000, 256, 256, 256, 2048},
        {"one below the host's block", 2, 0, 100, 48000, 256, 100, 256, 100},
        {"both", 2, 64, 200, 48000, 1024, 64, 1024, 200},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        BundleSettings settings;
        settings.channels = c.channels;
        settings.blockFrames = c.block;
        settings.latencyFrames = c.latency;
        const live::Shape shape = ShapeFor(settings, c.rate, c.host);
        EXPECT_EQ(shape.channels, c.channels);
        EXPECT_EQ(shape.sampleRate, c.rate);
        EXPECT_EQ(shape.blockFrames, c.wantBlock);
        EXPECT_EQ(shape.periodFrames, c.wantPeriod);
        EXPECT_EQ(shape.latencyFrames, c.wantLatency);
        EXPECT_EQ(shape.late, live::Late::kDry);
    }
}

TEST(ShapeFor, KeepsWhatTakesALateBlocksPlace) {
    BundleSettings settings;
    settings.silenceWhenLate = true;
    EXPECT_EQ(ShapeFor(settings, 48000, {}).late, live::Late::kSilence);
}

} // namespace
