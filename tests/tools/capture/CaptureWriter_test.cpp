#include "tools/capture/CaptureWriter.h"

#include "tests/support/FolderTest.h"
#include "tests/support/Subprocess.h"
#include "tests/tools/capture/Tshark.h"
#include "tools/program/Errors.h"

#include <string>

using namespace vrx::tool;
using namespace std::string_literals;

namespace {

class CaptureWriterTest : public FolderTest {};

constexpr std::size_t kFileHeader = 24;
constexpr std::size_t kPacketHeader = 16;

} // namespace

TEST_F(CaptureWriterTest, WritesARefusedConnectionByteForByte) {
    {
        CaptureWriter writer(Path("a.pcap"), false);
        writer.Refuse({"127.0.0.1", 40000}, {"10.0.0.1", 7000}, 1'000'000'002);
    }
    const std::string bytes = Bytes("a.pcap");
    EXPECT_EQ(bytes.substr(0, kFileHeader), "\x4D\x3C\xB2\xA1"s // nanoseconds, little-endian
                                            "\x02\x00\x04\x00"s // version 2.4
                                            "\x00\x00\x00\x00\x00\x00\x00\x00"s
                                            "\x00\x00\x04\x00"s   // longest packet
                                            "\x65\x00\x00\x00"s); // raw IP
    const std::string first = bytes.substr(kFileHeader, kPacketHeader + 48);
    EXPECT_EQ(first.substr(0, kPacketHeader), "\x01\x00\x00\x00\x02\x00\x00\x00"s // time
                                              "\x30\x00\x00\x00\x30\x00\x00\x00"s);
    EXPECT_EQ(first.substr(kPacketHeader, 10), "\x45\x00\x00\x30\x00\x01\x40\x00\x40\x06"s);
    EXPECT_EQ(first.substr(kPacketHeader + 12, 8), "\x7F\x00\x00\x01\x0A\x00\x00\x01"s);
    EXPECT_EQ(first.substr(kPacketHeader + 20, 4), "\x9C\x40\x1B\x58"s); // ports
    EXPECT_EQ(first.substr(kPacketHeader + 33, 1), "\x02"s);             // SYN
    const std::string second = bytes.substr(kFileHeader + kPacketHeader + 48);
    EXPECT_EQ(second.size(), kPacketHeader + 40);
    EXPECT_EQ(second.substr(kPacketHeader + 33, 1), "\x14"s); // RST, ACK
}

TEST_F(CaptureWriterTest, KeepsAnExistingFileUnlessTold) {
    Write("a.pcap", "precious");
    try {
        CaptureWriter writer(Path("a.pcap"), false);
        ADD_FAILURE() << "was overwritten";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, kFileFailed);
        EXPECT_EQ(failure.message,
                  Path("a.pcap") + ": exists already: choose another name, or overwrite it with --force");
    }
    EXPECT_EQ(Bytes("a.pcap"), "precious");
    CaptureWriter(Path("a.pcap"), true);
    EXPECT_EQ(Bytes("a.pcap").size(), kFileHeader);
}

TEST_F(CaptureWriterTest, SaysThatAFileCannotBeWritten) {
    for (const std::string path : {"/dev/full", "/nowhere/a.pcap"}) {
        try {
            CaptureWriter writer(path, true);
            ADD_FAILURE() << path;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code, kFileFailed);
            EXPECT_TRUE(failure.message.starts_with(path + ": cannot be ")) << failure.message;
        }
    }
}

TEST_F(CaptureWriterTest, EverythingFlushedStaysWhenTheProcessEnds) {
    CaptureWriter writer(Path("a.pcap"), false);
    writer.Open(1, {"127.0.0.1", 40000}, {"127.0.0.1", 7000}, 1);
    writer.Bytes(1, Side::kClient, 2, "help\n");
    EXPECT_EQ(Bytes("a.pcap").size(), kFileHeader);
    ASSERT_TRUE(writer.Flush());
    EXPECT_EQ(Bytes("a.pcap").size(), writer.Bytes());
    EXPECT_GT(writer.Bytes(), kFileHeader);
}

TEST_F(CaptureWriterTest, AnalysersFindNothingWrong) {
    if (!HaveTshark()) GTEST_SKIP() << "tshark is not installed: script/setup ci";
    {
        CaptureWriter writer(Path("a.pcap"), false);
        const std::string piece(CaptureWriter::kMostBytes, 'x');
        std::int64_t time = 0;
        for (std::uint16_t i = 1; i <= 3; ++i)
            writer.Open(i, {"127.0.0.1", static_cast<std::uint16_t>(40000 + i)}, {"127.0.0.1", 7000}, ++time);
        writer.Bytes(1, Side::kClient, ++time, "help\n");
        for (int i = 0; i < 300; ++i) writer.Bytes(1, Side::kServer, ++time, piece); // more than a window
        writer.Bytes(2, Side::kClient, ++time, "status\n");
        writer.Bytes(2, Side::kServer, ++time, "cli");
        writer.Bytes(2, Side::kServer, ++time, "ents=1\n");
        writer.Close(1, Side::kServer, ++time);
        writer.Close(1, Side::kClient, ++time);
        writer.Reset(2, Side::kClient, ++time);
        writer.Close(3, Side::kClient, ++time);
        writer.Refuse({"127.0.0.1", 40004}, {"127.0.0.1", 7000}, ++time);
    }
    EXPECT_EQ(Tshark(Path("a.pcap"),
                     {"-o", "ip.check_checksum:TRUE", "-o", "tcp.check_checksum:TRUE", "-Y", kTrouble}),
              "");
    EXPECT_EQ(
        Tshark(Path("a.pcap"), {"-Y", "tcp.len > 0 && tcp.port == 40002", "-T", "fields", "-e", "tcp.len"}),
        "7\n3\n7\n");
}
