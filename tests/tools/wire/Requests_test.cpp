#include "tools/wire/Requests.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx::tool;

TEST(SamplesRequest, IsThePacketThatTheTalkerSends) {
    const std::uint32_t words[] = {0x3F000000, 0xFF};
    const std::string want("\x03\x00\xFF\x07"
                           "\x40\x00\x00\x00" // 64 bytes in all
                           "\x03\x00\x00\x00" // the reply-size word and two words
                           "\x3A\x00\x00\x00"
                           "\x04\x00\x00\x00" // status, two figures and one word
                           "\x00\x00\x00\x3F\xFF\x00\x00\x00"
                           "Main,In.samples[0],Out.samples[0]\0\0\0", // 33 characters, 36 bytes
                           64);
    EXPECT_EQ(SamplesRequest({"Main", "In", "Out"}, words, 1), want);
}

TEST(SamplesRequest, PadsEachLengthOfTextWithOneToFourZeroBytes) {
    for (std::size_t length = 0; length < 8; ++length) {
        const std::string packet = SamplesRequest({std::string(length, 'L'), "I", "O"}, {}, 0);
        const std::size_t text = 25 + length; // ",I.samples[0],O.samples[0]" has 26 with its comma
        const std::size_t zeros = packet.size() - packet.find_last_not_of('\0') - 1;
        EXPECT_GE(zeros, 1U) << text;
        EXPECT_LE(zeros, 4U) << text;
        EXPECT_EQ(packet.size() % 4, 0U);
    }
}

TEST(SilentRequest, AsksForAsManyWordsAsItSends) {
    EXPECT_EQ(SilentRequest({"Main", "In", "Out"}, 3),
              SamplesRequest({"Main", "In", "Out"}, std::vector<std::uint32_t>(3), 3));
}

} // namespace
