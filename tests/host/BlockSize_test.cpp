#include "host/BlockSize.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx::host;

TEST(FramesPerSegment, LetsRequestAndReplyFit1460Bytes) {
    ServerSettings server;
    server.layout = "Main";
    server.input = "In";
    server.output = "Out";
    // The path has 33 characters, so 36 bytes: 20 + 36 + 4 * 351 is 1460 exactly.
    EXPECT_EQ(FramesPerSegment(server, 1), 351U);
    EXPECT_EQ(FramesPerSegment(server, 2), 175U);
    EXPECT_EQ(FramesPerSegment(server, 351), 1U);
    EXPECT_EQ(FramesPerSegment(server, 1000), 1U) << "never less than one frame";

    server.layout = "Mains"; // 34 characters take 36 bytes, too
    EXPECT_EQ(FramesPerSegment(server, 1), 351U);
    server.layout = "Main4567"; // 37 characters take 40
    EXPECT_EQ(FramesPerSegment(server, 1), 350U);
    server.layout = std::string(5000, 'x');
    EXPECT_EQ(FramesPerSegment(server, 1), 1U);
}

TEST(MostFramesPerBlock, FillsTheReceiveBuffer) {
    EXPECT_EQ(MostFramesPerBlock(1), 262137U); // 28 bytes of head, and 4 for each of 262,137 words
    EXPECT_EQ(MostFramesPerBlock(2), 131068U);
    EXPECT_EQ(MostFramesPerBlock(262138), 0U);
}

TEST(PreferredBlock, IsWhatTheInputPinSaysWhereThatIsUsable) {
    ServerSettings server;
    server.layout = "Main";
    server.input = "In";
    server.output = "Out";
    PinValues pins;
    EXPECT_EQ(PreferredBlock(pins, server, 1), 351U) << "the pin says nothing";
    pins.in[0] = 480;
    EXPECT_EQ(PreferredBlock(pins, server, 2), 480U);
    pins.in[0] = 131068;
    EXPECT_EQ(PreferredBlock(pins, server, 2), 131068U);
    pins.in[0] = 131069;
    EXPECT_EQ(PreferredBlock(pins, server, 2), 175U) << "no reply can hold that";
}

TEST(SuitingReplies, AreWholeFromOneSegmentToTheLargestWholeReply) {
    const struct {
        std::size_t words;
        Replies want;
    } kRows[] = {
        {0, Replies::kSingle},  {358, Replies::kSingle}, // 28 + 4 * 358 is 1460
        {359, Replies::kWhole}, {2040, Replies::kWhole}, {2041, Replies::kSingle}, {262137, Replies::kSingle},
    };
    for (const auto& row : kRows) EXPECT_EQ(SuitingReplies(row.words), row.want) << row.words;
}

} // namespace
