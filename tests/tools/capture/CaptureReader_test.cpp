#include "tools/capture/CaptureReader.h"

#include "tests/support/FolderTest.h"
#include "tools/capture/CaptureWriter.h"
#include "tools/program/Errors.h"

#include <functional>
#include <pcap/pcap.h>
#include <string>
#include <tins/tins.h>
#include <vector>

using namespace vrx::tool;
using Tins::TCP;

namespace {

/// "C:bytes", "S:bytes", "C)" for a close, "C!" for a reset, "?" for a loss; each behind its connection's number.
std::string Told(const std::string& path) {
    CaptureReader reader(path);
    std::string text;
    for (CaptureEvent event; reader.Next(event);) {
        const char side = event.from == Side::kClient ? 'C' : 'S';
        text += text.empty() ? "" : " ";
        text += std::to_string(event.connection);
        switch (event.kind) {
        case CaptureEvent::kOpened:
            text += "(" + event.bytes;
            break;
        case CaptureEvent::kBytes:
            text += std::string(1, side) + ":" + event.bytes;
            break;
        case CaptureEvent::kClosed:
            text += std::string(1, side) + ")";
            break;
        case CaptureEvent::kReset:
            text += std::string(1, side) + "!";
            break;
        case CaptureEvent::kLost:
            text += "?";
            break;
        }
    }
    return text;
}

ExitCode FailureOf(const std::string& path, std::string& message) {
    try {
        (void)Told(path);
    } catch (const Failure& failure) {
        message = failure.message;
        return failure.code;
    }
    return kDone;
}

/// One packet of a made-up capture.
struct Sent {
    Side from;
    unsigned flags;
    std::uint32_t seq;
    std::string bytes = {};
    std::uint32_t ack = 1;
};

std::string IpBytes(const Sent& sent) {
    const bool client = sent.from == Side::kClient;
    auto ip = Tins::IP(client ? "10.0.0.1" : "10.0.0.2", client ? "10.0.0.2" : "10.0.0.1") /
              TCP(client ? 7000 : 40000, client ? 40000 : 7000);
    auto& tcp = ip.rfind_pdu<TCP>();
    tcp.flags(static_cast<std::uint16_t>(sent.flags));
    tcp.seq(sent.seq);
    tcp.ack_seq(sent.ack);
    if (!sent.bytes.empty()) ip /= Tins::RawPDU(sent.bytes);
    const auto bytes = ip.serialize();
    return {bytes.begin(), bytes.end()};
}

/// Puts a link layer in front of an IP packet.
using Wrap = std::function<std::string(const std::string&)>;

void WriteCapture(const std::string& path, int linkType, const std::vector<Sent>& packets, const Wrap& wrap,
                  std::size_t cutTo = 262144) {
    pcap_t* const format = pcap_open_dead(linkType, 262144);
    pcap_dumper_t* const file = pcap_dump_open(format, path.c_str());
    ASSERT_NE(file, nullptr) << pcap_geterr(format);
    std::uint32_t second = 1;
    for (const Sent& sent : packets) {
        const std::string bytes = wrap(IpBytes(sent));
        pcap_pkthdr header = {};
        header.ts.tv_sec = ++second;
        header.len = static_cast<bpf_u_int32>(bytes.size());
        header.caplen = static_cast<bpf_u_int32>(std::min(bytes.size(), cutTo));
        pcap_dump(reinterpret_cast<u_char*>(file), &header, reinterpret_cast<const u_char*>(bytes.data()));
    }
    pcap_dump_close(file);
    pcap_close(format);
}

std::string Bare(const std::string& ip) {
    return ip;
}

constexpr unsigned kData = TCP::ACK | TCP::PSH;
constexpr unsigned kFin = TCP::ACK | TCP::FIN;

const std::vector<Sent> kHandshake = {{Side::kClient, TCP::SYN, 100},
                                      {Side::kServer, TCP::SYN | TCP::ACK, 500},
                                      {Side::kClient, TCP::ACK, 101}};

std::vector<Sent> After(std::vector<Sent> packets, const std::vector<Sent>& more) {
    packets.insert(packets.end(), more.begin(), more.end());
    return packets;
}

class CaptureReaderTest : public FolderTest {
protected:
    std::string Raw(const std::vector<Sent>& packets) {
        WriteCapture(Path("a.pcap"), DLT_RAW, packets, Bare);
        return Told(Path("a.pcap"));
    }
};

} // namespace

TEST_F(CaptureReaderTest, ReadsWhatWasWritten) {
    {
        CaptureWriter writer(Path("a.pcap"), false);
        writer.Open(7, {"127.0.0.1", 40000}, {"10.0.0.1", 7000}, 1'500'000'001);
        writer.Bytes(7, Side::kClient, 1'500'000'002, "help\n");
        writer.Open(9, {"127.0.0.1", 40001}, {"10.0.0.1", 7000}, 1'500'000'003);
        writer.Bytes(7, Side::kServer, 1'500'000'004, "comm");
        writer.Bytes(7, Side::kServer, 1'500'000'005, "ands\n");
        writer.Close(7, Side::kClient, 1'500'000'006);
        writer.Close(7, Side::kServer, 1'500'000'007);
        writer.Bytes(9, Side::kClient, 1'500'000'008, "x");
        writer.Reset(9, Side::kServer, 1'500'000'009);
        writer.Refuse({"127.0.0.1", 40002}, {"10.0.0.1", 7000}, 1'500'000'010);
        EXPECT_TRUE(writer.Flush());
    }
    EXPECT_EQ(Told(Path("a.pcap")),
              "1(10.0.0.1:7000 1C:help\n 2(10.0.0.1:7000 1S:comm 1S:ands\n 1C) 1S) 2C:x 2S! "
              "3(10.0.0.1:7000 3S!");
    CaptureReader reader(Path("a.pcap"));
    CaptureEvent event;
    ASSERT_TRUE(reader.Next(event));
    EXPECT_EQ(event.time, 1'500'000'001) << "nanoseconds";
    EXPECT_TRUE(reader.IsRaw());
    EXPECT_TRUE(reader.Notes().empty());
}

TEST_F(CaptureReaderTest, ReadsTheLargestPieceAndMoreThanAWindow) {
    const std::string piece(CaptureWriter::kMostBytes, 'x');
    {
        CaptureWriter writer(Path("a.pcap"), false);
        writer.Open(1, {"127.0.0.1", 40000}, {"127.0.0.1", 7000}, 1);
        for (int i = 0; i < 200; ++i) writer.Bytes(1, Side::kServer, 2, piece);
    }
    CaptureReader reader(Path("a.pcap"));
    int pieces = 0;
    for (CaptureEvent event; reader.Next(event);)
        if (event.kind == CaptureEvent::kBytes && event.bytes == piece) ++pieces;
    EXPECT_EQ(pieces, 200);
}

TEST_F(CaptureReaderTest, PutsSegmentsInOrderAndDropsWhatWasSentAgain) {
    EXPECT_EQ(Raw(After(kHandshake, {{Side::kClient, kData, 101, "ab\n"},
                                     {Side::kClient, kData, 101, "ab\n"},
                                     {Side::kServer, kData, 504, "D\n"},
                                     {Side::kServer, kData, 501, "ABC"},
                                     {Side::kClient, kData, 104, "e"}})),
              "1(10.0.0.1:7000 1C:ab\n 1S:ABCD\n 1C:e");
}

TEST_F(CaptureReaderTest, AnEndThatCameTooEarlyWaits) {
    EXPECT_EQ(Raw(After(kHandshake, {{Side::kServer, kFin, 504, "D"},
                                     {Side::kServer, kData, 501, "ABC"},
                                     {Side::kServer, kFin, 504, "D"},
                                     {Side::kClient, kFin, 101},
                                     {Side::kServer, TCP::ACK, 506}})),
              "1(10.0.0.1:7000 1S:ABCD 1S) 1C)");
}

TEST_F(CaptureReaderTest, NothingComesBehindAReset) {
    EXPECT_EQ(Raw(After(kHandshake, {{Side::kClient, TCP::RST, 101}, {Side::kServer, kData, 501, "late"}})),
              "1(10.0.0.1:7000 1C!");
}

TEST_F(CaptureReaderTest, ANewConnectionOfTheSameEndsIsAnother) {
    const std::vector<Sent> again = {{Side::kClient, TCP::SYN | TCP::ECE | TCP::CWR, 9000},
                                     {Side::kServer, TCP::SYN | TCP::ACK, 8000},
                                     {Side::kClient, kData, 9001, "new"}};
    EXPECT_EQ(Raw(After(After(kHandshake, {{Side::kClient, kData, 101, "old"}}), again)),
              "1(10.0.0.1:7000 1C:old 1? 2(10.0.0.1:7000 2C:new");
    EXPECT_EQ(Raw(After(After(kHandshake, {{Side::kClient, TCP::RST, 101}}), again)),
              "1(10.0.0.1:7000 1C! 2(10.0.0.1:7000 2C:new");
}

TEST_F(CaptureReaderTest, EndsInAnyOrderAreTaken) {
    constexpr unsigned kReset = TCP::RST | TCP::ACK;
    const std::string request = "connect,h,1\n";
    struct Case {
        const char* name;
        std::vector<Sent> packets;
        const char* told;
    };
    const Case cases[] = {
        {"a reset in the first packet",
         {{Side::kClient, kData | kReset, 101, request}, {Side::kClient, kData, 113, "x"}},
         "1(10.0.0.1:7000 1C:connect,h,1\n 1C!"},
        {"an end in the first packet",
         {{Side::kClient, kData | kFin, 101, request, 501},
          {Side::kServer, kData | kFin, 501, "a\n", 114},
          {Side::kClient, kData, 114, "x"},
          {Side::kServer, kData, 504, "y"}},
         "1(10.0.0.1:7000 1C:connect,h,1\n 1C) 1S:a\n 1S)"},
        {"a reset and an end in one packet, then another connection",
         After(kHandshake, {{Side::kClient, kReset | kFin, 101},
                            {Side::kClient, TCP::SYN, 300},
                            {Side::kClient, kData, 301, request}}),
         "1(10.0.0.1:7000 1C! 2(10.0.0.1:7000 2C:connect,h,1\n"},
        {"another connection whose first packet could belong to the one before",
         After(kHandshake, {{Side::kClient, TCP::SYN, 101, "y"}, {Side::kClient, kData, 102, "x"}}),
         "1(10.0.0.1:7000 1? 2(10.0.0.1:7000 2C:x"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Raw(c.packets), c.told);
    }
}

TEST_F(CaptureReaderTest, ReadsEveryKindOfLink) {
    using namespace std::string_literals;
    struct Case {
        const char* name;
        int type;
        std::string header;
    };
    const Case cases[] = {
        {"Ethernet", DLT_EN10MB, std::string(12, '\0') + "\x08\x00"s},
        {"Ethernet with a tag", DLT_EN10MB, std::string(12, '\0') + "\x81\x00\x00\x05\x08\x00"s},
        {"loopback", DLT_NULL, "\x02\x00\x00\x00"s},
        {"cooked", DLT_LINUX_SLL, std::string(14, '\0') + "\x08\x00"s},
        {"cooked, second version", DLT_LINUX_SLL2, "\x08\x00"s + std::string(18, '\0')},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto packets = After(kHandshake, {{Side::kClient, kData, 101, "help\n"}});
        WriteCapture(Path("a.pcap"), c.type, packets, [&](const std::string& ip) { return c.header + ip; });
        EXPECT_EQ(Told(Path("a.pcap")), "1(10.0.0.1:7000 1C:help\n");
        EXPECT_FALSE(CaptureReader(Path("a.pcap")).IsRaw());
    }
}

TEST_F(CaptureReaderTest, WrongChecksumsAreAnOffloadingInterfaces) {
    const auto spoil = [](std::string ip) {
        ip[20 + 16] = '\x12';
        ip[20 + 17] = '\x34';
        return ip;
    };
    WriteCapture(Path("a.pcap"), DLT_RAW, After(kHandshake, {{Side::kClient, kData, 101, "help\n"}}), spoil);
    EXPECT_EQ(Told(Path("a.pcap")), "1(10.0.0.1:7000 1C:help\n");
}

TEST_F(CaptureReaderTest, JoinsAConnectionThatBeganEarlierAtARequest) {
    EXPECT_EQ(Raw({{Side::kServer, kData, 501, "half a reply", 101},
                   {Side::kClient, kData, 101, "half a request"},
                   {Side::kServer, kData, 513, "answer\n"},
                   {Side::kClient, kData, 115, "connect,h,1\n"},
                   {Side::kServer, kData, 520, "connected\n"}}),
              "1(10.0.0.1:7000 1C:connect,h,1\n 1S:connected\n");
    CaptureReader reader(Path("a.pcap"));
    for (CaptureEvent event; reader.Next(event);) {
    }
    ASSERT_EQ(reader.Notes().size(), 1U);
    EXPECT_EQ(reader.Notes()[0], Path("a.pcap") +
                                     ": connection 1 began before the capture: what came before its first "
                                     "whole request is left out");
}

TEST_F(CaptureReaderTest, SaysThatBytesAreMissing) {
    std::vector<Sent> packets = After(kHandshake, {{Side::kClient, kData, 101, "connect,h,1\n"}});
    for (unsigned i = 0; i < 600; ++i) // all behind a hole
        packets.push_back({Side::kServer, kData, 1000 + 10 * i, "0123456789"});
    const std::string told = Raw(packets);
    EXPECT_TRUE(told.starts_with("1(10.0.0.1:7000 1C:connect,h,1\n 1?")) << told;
    CaptureReader reader(Path("a.pcap"));
    for (CaptureEvent event; reader.Next(event);) {
    }
    ASSERT_FALSE(reader.Notes().empty());
    EXPECT_EQ(reader.Notes()[0], Path("a.pcap") +
                                     ": bytes of connection 1 are missing: what followed them is read as "
                                     "a connection of its own");
}

TEST_F(CaptureReaderTest, RefusesPacketsThatWereCaughtInPart) {
    WriteCapture(Path("a.pcap"), DLT_RAW,
                 After(kHandshake, {{Side::kClient, kData, 101, std::string(100, 'x')}}), Bare, 96);
    std::string message;
    EXPECT_EQ(FailureOf(Path("a.pcap"), message), kFileFailed);
    EXPECT_EQ(message, Path("a.pcap") +
                           ": packet 4 was captured only in part (96 of 140 bytes): capture whole packets, "
                           "as tcpdump does with -s 0");
}

TEST_F(CaptureReaderTest, RefusesWhatIsNoCapture) {
    std::string message;
    EXPECT_EQ(FailureOf(Path("none.pcap"), message), kFileFailed);
    EXPECT_EQ(message, Path("none.pcap") + ": cannot be opened: No such file or directory");
    for (const std::string& bytes : {std::string(), std::string("RIFF....WAVEfmt and so on and on and on"),
                                     std::string("\xD4\xC3\xB2\xA1\x02\x00", 6)}) {
        EXPECT_EQ(FailureOf(Write("wrong.pcap", bytes), message), kFileFailed);
        EXPECT_TRUE(message.starts_with(Path("wrong.pcap") + ": is no capture file (pcap or pcapng): "))
            << message;
    }
    WriteCapture(Path("usb.pcap"), DLT_USB_LINUX, {}, Bare);
    EXPECT_EQ(FailureOf(Path("usb.pcap"), message), kFileFailed);
    EXPECT_EQ(message, Path("usb.pcap") +
                           ": was captured on a kind of link that is not read here (USB_LINUX): capture "
                           "on Ethernet, on loopback or on \"any\"");
}

TEST_F(CaptureReaderTest, RefusesAbsurdLengths) {
    (void)Raw(kHandshake);
    std::string bytes = Bytes("a.pcap");
    for (std::size_t i = 0; i < 4; ++i) bytes[24 + 8 + i] = '\xFF'; // the first packet's captured length
    std::string message;
    EXPECT_EQ(FailureOf(Write("b.pcap", bytes), message), kFileFailed);
    EXPECT_TRUE(message.starts_with(Path("b.pcap") + ": is broken behind packet 0: ")) << message;
}

TEST_F(CaptureReaderTest, TruncatedAtAnyByteGivesWhatStandsBefore) {
    {
        CaptureWriter writer(Path("a.pcap"), false);
        writer.Open(1, {"127.0.0.1", 40000}, {"127.0.0.1", 7000}, 1);
        writer.Bytes(1, Side::kClient, 2, "help\n");
        writer.Bytes(1, Side::kServer, 3, "commands\n");
        writer.Close(1, Side::kServer, 4);
    }
    const std::string whole = Bytes("a.pcap");
    const std::string told = Told(Path("a.pcap"));
    constexpr std::size_t kFileHeader = 24;
    for (std::size_t size = kFileHeader; size < whole.size(); ++size) {
        const std::string path = Write("b.pcap", whole.substr(0, size));
        const std::string part = Told(path);
        ASSERT_TRUE(told.starts_with(part)) << size << ": " << part;
    }
}
