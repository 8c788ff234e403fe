#include "tools/wire/ServerProtocol.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;
using vrx::tool::Frame;
using vrx::tool::FrameBuffer;

constexpr size_t kLargestPacket = 256;

// Layout "Main", input "In", output "Out", two words in, two words back.
const std::string kPump = "\x03\x00\xFF\x07"                                // tag
                          "\x40\x00\x00\x00"                                // 64 bytes
                          "\x03\x00\x00\x00"                                // argument words
                          "\x3A\x00\x00\x00"                                // command
                          "\x05\x00\x00\x00"                                // reply words
                          "\x01\x02\x03\x04\x0A\x06\x07\x08"                // data, a line feed among it
                          "Main,In.samples[0],Out.samples[0]\x00\x00\x00"s; // 33 characters

const std::string kPins = "\x03\x00\xFF\x07"                    // tag
                          "\x3C\x00\x00\x00"                    // 60 bytes
                          "\x05\x00\x00\x00"                    // argument words
                          "\x3A\x00\x00\x00"                    // command
                          "\x05\x00\x00\x00"                    // reply words
                          "\x00\x00\x00\x00\x00\x00\x00\x00"    // data
                          "\x00\x00\x00\x00\x00\x00\x00\x00"    //
                          "-1,In.info1,Out.info1\x00\x00\x00"s; // 21 characters

void Put(FrameBuffer& frames, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto space = frames.Space();
        const size_t count = std::min(space.size(), bytes.size());
        std::memcpy(space.data(), bytes.data(), count);
        frames.Received(count);
        bytes.remove_prefix(count);
    }
}

Frame Only(std::string_view bytes) {
    static FrameBuffer frames(kLargestPacket);
    frames = FrameBuffer(kLargestPacket);
    Put(frames, bytes);
    return frames.Next();
}

struct FrameCase {
    const char* name;
    std::string bytes;
    Frame::Kind kind;
    std::string text; // the frame's bytes, or the error of a broken one
};

const FrameCase kFrames[] = {
    {"nothing yet", "", Frame::kIncomplete, ""},
    {"half a line", "stat", Frame::kIncomplete, ""},
    {"a line", "status\n", Frame::kLine, "status"},
    {"an empty line", "\n", Frame::kLine, ""},
    {"a carriage return is kept", "help\r\n", Frame::kLine, "help\r"},
    {"a tab and high bytes are text", "a\t\xFF\xC3\n", Frame::kLine, "a\t\xFF\xC3"},
    {"the first of two lines", "one\ntwo\n", Frame::kLine, "one"},
    {"one byte of a tag", "\x03", Frame::kIncomplete, ""},
    {"a tag without its length", "\x03\x00\xFF\x07\x40\x00\x00"s, Frame::kIncomplete, ""},
    {"a packet less one byte", kPump.substr(0, 63), Frame::kIncomplete, ""},
    {"a whole packet", kPump, Frame::kPacket, kPump},
    {"a packet, then a line", kPump + "help\n", Frame::kPacket, kPump},
    {"the largest packet, incomplete", "\x03\x00\xFF\x07\x00\x01\x00\x00"s, Frame::kIncomplete, ""},
    {"a larger packet", "\x03\x00\xFF\x07\x01\x01\x00\x00"s, Frame::kBroken,
     "packet length 257 exceeds the limit of 256 bytes"},
    {"an absurd length", "\x03\x00\xFF\x07\xFF\xFF\xFF\xFF"s, Frame::kBroken,
     "packet length 4294967295 exceeds the limit of 256 bytes"},
    {"a length of 0", "\x03\x00\xFF\x07\x00\x00\x00\x00"s, Frame::kBroken,
     "packet length 0 is less than 24 bytes"},
    {"a length of 23", "\x03\x00\xFF\x07\x17\x00\x00\x00"s, Frame::kBroken,
     "packet length 23 is less than 24 bytes"},
    {"another tag", "\x04\x00\xFF\x07\x40\x00\x00\x00"s, Frame::kBroken, "neither a text line nor a packet"},
    {"a tag wrong in its last byte", "\x03\x00\xFF\x08"s, Frame::kBroken, "neither a text line nor a packet"},
    {"a zero byte in a line", "sta\0tus\n"s, Frame::kBroken, "neither a text line nor a packet"},
    {"a packet behind half a line", "stat" + kPump, Frame::kBroken, "neither a text line nor a packet"},
};

TEST(FrameBuffer, TellsLinesPacketsAndRubbishApart) {
    for (const FrameCase& c : kFrames) {
        SCOPED_TRACE(c.name);
        const Frame frame = Only(c.bytes);
        EXPECT_EQ(frame.kind, c.kind);
        EXPECT_EQ(frame.kind == Frame::kBroken ? frame.error : std::string(frame.bytes), c.text);
    }
}

TEST(FrameBuffer, HandsOutFramesThatArriveByteByByte) {
    FrameBuffer frames(kLargestPacket);
    std::string seen;
    for (const char byte : "help\n" + kPump + kPins + "\n") {
        Put(frames, {&byte, 1});
        const Frame frame = frames.Next();
        if (frame.kind == Frame::kIncomplete) continue;
        seen += "<" + std::string(frame.bytes) + ">";
    }
    EXPECT_EQ(seen, "<help><" + kPump + "><" + kPins + "><>");
}

TEST(FrameBuffer, HandsOutFramesThatArriveTogether) {
    FrameBuffer frames(kLargestPacket);
    Put(frames, kPump + "help\n" + kPins + "sta");
    EXPECT_EQ(frames.Next().bytes, kPump);
    EXPECT_EQ(frames.Next().bytes, "help");
    EXPECT_EQ(frames.Next().bytes, kPins);
    EXPECT_EQ(frames.Next().kind, Frame::kIncomplete);
    Put(frames, "tus\n");
    EXPECT_EQ(frames.Next().bytes, "status");
}

TEST(FrameBuffer, LimitsALineTo64KiB) {
    const std::string longest(65536, 'x');
    EXPECT_EQ(Only(longest).kind, Frame::kIncomplete);
    EXPECT_EQ(Only(longest + "\n").bytes, longest);
    EXPECT_EQ(Only(longest + "x").error, "text line longer than 65536 bytes");
}

TEST(FrameBuffer, TakesPacketsUpToItsLimit) {
    constexpr size_t kLarge = 1000000;
    std::string packet(kLarge, '\xAB');
    packet.replace(0, 8, "\x03\x00\xFF\x07\x40\x42\x0F\x00"s); // 1000000 bytes
    FrameBuffer frames(kLarge);
    Put(frames, packet);
    EXPECT_EQ(frames.Next().bytes, packet);
    EXPECT_LE(frames.Space().size(), kLarge);
}

std::string ReadRequest(std::string_view packet, const vrx::tool::ObjectRules& rules,
                        vrx::tool::Request& request) {
    return vrx::tool::RequestReader(rules).Read(packet, request);
}

const vrx::tool::ObjectRules kAnything{.layout = "", .input = "", .output = "", .largestBlock = 8};

TEST(RequestReader, ReadsABlock) {
    vrx::tool::Request request;
    ASSERT_EQ(ReadRequest(kPump, kAnything, request), "");
    EXPECT_FALSE(request.info);
    EXPECT_EQ(request.dataBytes, "\x01\x02\x03\x04\x0A\x06\x07\x08");
    EXPECT_EQ(request.replyDataWords, 2U);
}

TEST(RequestReader, ReadsAQuestionForPins) {
    vrx::tool::Request request;
    ASSERT_EQ(ReadRequest(kPins, kAnything, request), "");
    EXPECT_TRUE(request.info);
    EXPECT_EQ(request.replyDataWords, 2U);
}

TEST(RequestReader, TakesEmptyNamesAndEmptyBlocks) {
    const std::string packet =
        "\x03\x00\xFF\x07\x30\x00\x00\x00\x01\x00\x00\x00\x3A\x00\x00\x00\x03\x00\x00\x00"
        ",.samples[0],.samples[0]\0\0\0\0"s;
    vrx::tool::Request request;
    ASSERT_EQ(ReadRequest(packet, kAnything, request), "");
    EXPECT_EQ(request.dataBytes, "");
    EXPECT_EQ(request.replyDataWords, 0U);
}

/// The packet with its bytes from `at` on replaced.
std::string With(std::string packet, size_t at, const std::string& bytes) {
    return packet.replace(at, bytes.size(), bytes);
}

std::string Path(const std::string& text) {
    return kPump.substr(0, 28) + text;
}

struct RequestCase {
    const char* name;
    std::string packet;
    std::string error;
};

const RequestCase kBadRequests[] = {
    {"not in whole words", kPump + "\0"s, "packet length 65 is not in whole words"},
    {"another command", With(kPump, 12, "\x3B\x00\x00\x00"s), "unknown packet command 59"},
    {"no argument words", With(kPump, 8, "\x00\x00\x00\x00"s),
     "argument word count 0 does not fit a packet of 64 bytes"},
    {"argument words up to the end", With(kPump, 8, "\x0C\x00\x00\x00"s),
     "argument word count 12 does not fit a packet of 64 bytes"},
    {"argument words whose bytes wrap", With(kPump, 8, "\x03\x00\x00\x40"s),
     "argument word count 1073741827 does not fit a packet of 64 bytes"},
    {"no room for status and cycles", With(kPump, 16, "\x02\x00\x00\x00"s),
     "reply word count 2 is less than 3"},
    {"a reply over the limit", With(kPump, 16, "\x0C\x00\x00\x00"s),
     "block of 9 words exceeds the limit of 8"},
    {"a reply count of all ones", With(kPump, 16, "\xFF\xFF\xFF\xFF"s),
     "block of 4294967292 words exceeds the limit of 8"},
    {"no zero byte behind the path", Path("a,b.samples[0],c.samples[0]x"),
     "object path is not ended by one to four zero bytes"},
    {"five zero bytes", Path("a,b.samples[0],c.samples[0]\0\0\0\0\0"s),
     "object path is not ended by one to four zero bytes"},
    {"something behind the zero byte", Path("a,b.samples[0],cc.samples[0]\0\0x\0"s),
     "object path is not ended by one to four zero bytes"},
    {"one field", Path("a.samples[0]\0\0\0\0"s), "object path 'a.samples[0]' has not three fields"},
    {"two fields", Path("a,b.samples[0]\0\0"s), "object path 'a,b.samples[0]' has not three fields"},
    {"four fields", Path("a,b,c,d\0"s), "object path 'a,b,c,d' has not three fields"},
    {"an empty path", Path("\0\0\0\0"s), "object path '' has not three fields"},
    {"samples for one object only", Path("a,b.samples[0],c\0\0\0\0"s),
     "object path 'a,b.samples[0],c' ends neither in .samples[0] nor in .info1 twice"},
    {"one of each", Path("-1,b.info1,c.samples[0]\0"s),
     "object path '-1,b.info1,c.samples[0]' ends neither in .samples[0] nor in .info1 twice"},
    {"control bytes in the path", Path("a\n\x7F\xFF\0\0\0\0"s), "object path 'a...' has not three fields"},
    {"pins of a layout", Path("Main,b.info1,c.info1\0\0\0\0"s), "unknown layout 'Main'"},
    {"pins with a block's counts", Path("-1,b.info1,c.info1\0\0"s),
     "a request for .info1 has 5 argument words and 5 reply words"},
};

TEST(RequestReader, SaysWhatIsWrong) {
    for (const RequestCase& c : kBadRequests) {
        SCOPED_TRACE(c.name);
        vrx::tool::Request request;
        request.replyDataWords = 77;
        EXPECT_EQ(ReadRequest(c.packet, kAnything, request), c.error);
        EXPECT_EQ(request.replyDataWords, 77U);
    }
}

TEST(RequestReader, ChecksTheNamesItWasGiven) {
    vrx::tool::Request request;
    EXPECT_EQ(ReadRequest(kPump, {"Main", "In", "Out", 8}, request), "");
    EXPECT_EQ(ReadRequest(kPump, {"Other", "In", "Out", 8}, request), "unknown layout 'Main'");
    EXPECT_EQ(ReadRequest(kPump, {"Main", "in", "Out", 8}, request), "unknown input 'In'");
    EXPECT_EQ(ReadRequest(kPump, {"Main", "In", "Ou", 8}, request), "unknown output 'Out'");
    EXPECT_EQ(ReadRequest(kPins, {"Main", "In", "Out", 8}, request),
              ""); // -1 stands for any layout
}

TEST(RequestReader, ChecksEveryPacketOfAClientAnew) {
    const vrx::tool::ObjectRules rules{"Main", "In", "Out", 8};
    vrx::tool::RequestReader reader(rules);
    const std::string otherName = With(kPump, 28, "Nain");
    const std::string shiftedPath = With(kPump, 8, "\x02\x00\x00\x00"s);
    const std::string badEnd = With(kPump, kPump.size() - 1, "x");
    for (int round = 0; round < 3; ++round) {
        vrx::tool::Request request;
        EXPECT_EQ(reader.Read(kPump, request), "");
        EXPECT_FALSE(request.info);
        EXPECT_EQ(request.dataBytes, "\x01\x02\x03\x04\x0A\x06\x07\x08");
        EXPECT_EQ(reader.Read(otherName, request), "unknown layout 'Nain'");
        EXPECT_EQ(reader.Read(shiftedPath, request), "unknown layout '....Main'");
        EXPECT_EQ(reader.Read(badEnd, request), "object path is not ended by one to four zero bytes");
        EXPECT_EQ(reader.Read(kPins, request), "");
        EXPECT_TRUE(request.info);
        EXPECT_EQ(request.dataBytes.size(), 16U);
    }
}

TEST(PackPinInfo, PutsEachValueIntoItsBits) {
    EXPECT_EQ(vrx::tool::PackPinInfo({3, 2, true}), 0x08000C02U);
    EXPECT_EQ(vrx::tool::PackPinInfo({131071, 1023, false}), 0x07FFFFFFU);
    EXPECT_EQ(vrx::tool::PackPinInfo({0, 0, true}), 0x08000000U);
    EXPECT_EQ(vrx::tool::PackPinInfo({480, 2, false}), 0x00078002U);
}

TEST(CycleWord, HasEightFractionBitsAndStaysPositive) {
    EXPECT_EQ(vrx::tool::CycleWord(0), 0U);
    EXPECT_EQ(vrx::tool::CycleWord(-1), 0U);
    EXPECT_EQ(vrx::tool::CycleWord(16), 0x00001000U);
    EXPECT_EQ(vrx::tool::CycleWord(16.9), 0x00001000U);
    EXPECT_EQ(vrx::tool::CycleWord(8388607), 0x7FFFFF00U);
    EXPECT_EQ(vrx::tool::CycleWord(1e12), 0x7FFFFF00U);
}

TEST(StartReply, WritesTheHeader) {
    std::vector<uint32_t> reply(3, 0xFFFFFFFF);
    vrx::tool::StartReply(reply, 2);
    // tag, bytes, reply words, command, status, two cycle words, two data words
    EXPECT_EQ(reply, (std::vector<uint32_t>{0x07FF0003, 36, 5, 0x3A, 0, 0, 0, 0, 0}));
    vrx::tool::StartReply(reply, 0);
    EXPECT_EQ(reply, (std::vector<uint32_t>{0x07FF0003, 28, 3, 0x3A, 0, 0, 0}));
}

} // namespace
