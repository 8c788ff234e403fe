#include "tools/capture/FrameTracker.h"

#include <gtest/gtest.h>
#include <string>

using vrx::tool::FrameTracker;
using namespace std::string_literals;

namespace {

const std::string kPacket = "\x03\x00\xFF\x07\x0C\x00\x00\x00\x0A\x00\n\x01"s; // 12 bytes, line feeds inside

struct Case {
    const char* name;
    std::string bytes;
    std::size_t taken;
    bool whole;
    bool packet;
};
const Case kCases[] = {
    {"nothing", "", 0, false, false},
    {"a line", "abc\n", 4, true, false},
    {"a line feed alone", "\n", 1, true, false},
    {"a line and more", "abc\ndef\n", 4, true, false},
    {"a long line and more", "connect,host,1\nhelp\n", 15, true, false},
    {"no line feed yet", "connect,host", 12, false, false},
    {"a packet", kPacket, 12, true, true},
    {"a packet and more", kPacket + "x", 12, true, true},
    {"part of a packet", kPacket.substr(0, 11), 11, false, true},
    {"part of the length word", kPacket.substr(0, 7), 7, false, true},
    {"part of the tag", kPacket.substr(0, 3), 3, false, false},
    {"part of the tag, then a line feed", "\x03\x00\n"s, 3, true, false},
    {"another tag", "\x04\x00\xFF\x07\x0C\x00\x00\x00"s, 8, false, false},
    {"a length below its own header", "\x03\x00\xFF\x07\x01\x00\x00\x00xyz"s, 8, true, true},
    {"an absurd length", "\x03\x00\xFF\x07\xFF\xFF\xFF\xFFxyz"s, 11, false, true},
};

} // namespace

TEST(FrameTracker, FindsTheEndOfOneMessage) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        FrameTracker frame;
        EXPECT_EQ(frame.Take(c.bytes), c.taken);
        EXPECT_EQ(frame.Taken(), c.taken);
        EXPECT_EQ(frame.Whole(), c.whole);
        EXPECT_EQ(frame.IsPacket(), c.packet);
    }
}

TEST(FrameTracker, FindsTheSameEndByteByByte) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        FrameTracker frame;
        std::size_t taken = 0;
        for (const char byte : c.bytes) taken += frame.Take({&byte, 1});
        EXPECT_EQ(taken, c.taken);
        EXPECT_EQ(frame.Whole(), c.whole);
        EXPECT_EQ(frame.IsPacket(), c.packet);
    }
}

TEST(FrameTracker, KnowsAPacketsLengthOnceItsWordHasCome) {
    FrameTracker frame;
    frame.Take(kPacket.substr(0, 7));
    EXPECT_EQ(frame.PacketLength(), 0U);
    frame.Take(kPacket.substr(7, 1));
    EXPECT_EQ(frame.PacketLength(), 12U);
}
