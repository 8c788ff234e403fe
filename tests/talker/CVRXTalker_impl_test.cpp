#include "talker/CVRXTalker_impl.h"

#include "tests/support/Entries.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/SystemCalls.h"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace {

using enum CVRXTalker::Result;
using Script = ScriptedServer::Script;

std::string Args(int port, const std::string& objects = "input=In,output=Out,layout=Main") {
    return "server=127.0.0.1,servport=" + std::to_string(port) + ",clport=7001," + objects;
}

/// A reply packet: its head, then status, two cycle words and the data words.
std::string Reply(unsigned status, unsigned average, unsigned pump, const std::string& data = "") {
    return Words({0x07FF0003, static_cast<unsigned>(28 + data.size()), 0, 0, status, average, pump}) + data;
}

/// Takes the connect command, then answers each packet with the next reply.
Script Server(std::vector<std::string> replies, std::vector<std::string>* packets = nullptr) {
    return [replies = std::move(replies), packets](Peer& peer) {
        peer.ReadLine();
        peer.Send("hello\n");
        for (const std::string& reply : replies) {
            const std::string packet = peer.ReadPacket();
            if (packets) packets->push_back(packet);
            peer.Send(reply);
        }
        peer.WaitForClose();
    };
}

struct Pins {
    std::array<unsigned, 6> values = {91, 92, 93, 94, 95, 96};
    int Ask(CVRXTalker& talker) {
        return talker.PinProps(values[0], values[1], values[2], values[3], values[4], values[5]);
    }
    static constexpr std::array<unsigned, 6> kUntouched = {91, 92, 93, 94, 95, 96};
};

class TalkerTest : public testing::Test {
protected:
    void SetUp() override {
        calls::Reset();
        calls::SetTickMicroseconds(2000);
    }

    /// Runs `call` and returns what it printed to standard output.
    template <class Call>
    static std::string Printed(Call call) {
        testing::internal::CaptureStdout();
        call();
        return testing::internal::GetCapturedStdout();
    }

    int Pump(unsigned inCount, unsigned outCount) {
        return m_talker->PumpAudio(m_in, m_out, inCount, outCount);
    }

    const unsigned m_in[4] = {0x11111111, 0x22222222, 0x33333333, 0x44444444};
    unsigned m_out[4] = {0xA1, 0xA2, 0xA3, 0xA4};
    std::unique_ptr<CVRXTalker> m_talker{TalkerFactory()};
};

// ---- a new talker

TEST_F(TalkerTest, NewTalkerIsIdle) {
    EXPECT_EQ(m_talker->GetAverageCycles(), 0.0f);
    EXPECT_EQ(m_talker->GetPumpCycles(), 0.0f);
    m_talker.reset();
    EXPECT_TRUE(calls::Log().empty());
}

TEST_F(TalkerTest, WithoutAChannelEachOperationSaysSo) {
    std::string reply = "kept";
    Pins pins;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(Pump(2, 2), kNoConnection); }),
              "CVRXTalker::PumpAudio: m_tcpio is NULL\n");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(pins.Ask(*m_talker), kNoConnection); }),
              "CVRXTalker::PinProps: m_tcpio is NULL\n");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(m_talker->SendMessage("x", reply), kNoConnection); }),
              "CVRXTalker::SendMessage: m_tcpio is NULL\n");
    EXPECT_EQ(pins.values, Pins::kUntouched);
    EXPECT_EQ(m_out[0], 0xA1u);
    EXPECT_EQ(reply, "kept");
    EXPECT_TRUE(calls::Log().empty());
}

TEST_F(TalkerTest, OversizedBlockWithoutAChannelIsStillNoChannel) {
    EXPECT_EQ(
        Printed([&] { EXPECT_EQ(m_talker->PumpAudio(nullptr, nullptr, 0xFFFFFFFF, 0), kNoConnection); }),
        "CVRXTalker::PumpAudio: m_tcpio is NULL\n");
}

// ---- configuring

TEST_F(TalkerTest, NullOrEmptyArgsDoNothing) {
    EXPECT_EQ(Printed([&] {
                  EXPECT_FALSE(m_talker->Configure(nullptr));
                  EXPECT_FALSE(m_talker->Configure(""));
              }),
              "");
}

TEST_F(TalkerTest, FirstMissingKeyIsReported) {
    struct Case {
        const char* args;
        const char* key;
    };
    const Case cases[] = {
        {"servport=1,clport=2,input=i,output=o,layout=l", "server"},
        {"server=h,clport=2,input=i,output=o,layout=l", "servport"},
        {"server=h,servport=1,input=i,output=o,layout=l", "clport"},
        {"server=h,servport=1,clport=2,output=o,layout=l", "input"},
        {"server=h,servport=1,clport=2,input=i,layout=l", "output"},
        {"server=h,servport=1,clport=2,input=i,output=o", "layout"},
        {"servport=1,clport=2,input=i,output=o", "server"}, // layout is missing as well
        {"Server=h,servport=1,clport=2,input=i,output=o,layout=l", "server"},
        {"server=,servport=1,clport=2,input=i,output=o,layout=l", "server"},
        {",", "server"},
        {"nonsense", "server"},
        {"layout=l,output=o,input=i,clport=2,server=h", "servport"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        EXPECT_EQ(Printed([&] { EXPECT_FALSE(m_talker->Configure(c.args)); }),
                  std::string("CVRXTalker::Configure: '") + c.key + "' argument missing\n");
    }
    EXPECT_TRUE(calls::Log().empty());
}

TEST_F(TalkerTest, ConnectCommandNamesTheConfiguredServer) {
    struct Case {
        const char* name;
        const char* clport;
        const char* objects;
        const char* command;
    };
    const Case cases[] = {
        {"plain", "clport=7001", "input=In,output=Out,layout=Main", "connect,127.0.0.1,7001\n"},
        {"negative", "clport=-5", "input=In,output=Out,layout=Main", "connect,127.0.0.1,-5\n"},
        {"trailing text", "clport=7000x", "input=In,output=Out,layout=Main", "connect,127.0.0.1,7000\n"},
        {"no digits", "clport=abc", "input=In,output=Out,layout=Main", "connect,127.0.0.1,0\n"},
        {"base 10 only", "clport=0x10", "input=In,output=Out,layout=Main", "connect,127.0.0.1,0\n"},
        {"low 32 bits", "clport=4294967297", "input=In,output=Out,layout=Main", "connect,127.0.0.1,1\n"},
        {"sign from the low 32 bits", "clport=4294967295", "input=In,output=Out,layout=Main",
         "connect,127.0.0.1,-1\n"},
        {"raw value after the first equals sign", "clport = 3 4", "input=In,output=Out,layout=Main",
         "connect,127.0.0.1,3\n"},
        {"extra keys and another order", "gain=3, clport=9", "layout=Main,output=Out,input=In",
         "connect,127.0.0.1,9\n"},
        {"first of a key counts", "clport=1,clport=2", "input=In,output=Out,layout=Main",
         "connect,127.0.0.1,1\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string command;
        ScriptedServer server({[&](Peer& peer) {
            command = peer.ReadLine();
            peer.Send("anything\n");
        }});
        std::unique_ptr<CVRXTalker> talker(TalkerFactory());
        const std::string args =
            "server=127.0.0.1,servport=" + std::to_string(server.Port()) + "," + c.clport + "," + c.objects;
        EXPECT_EQ(Printed([&] { EXPECT_TRUE(talker->Configure(args.c_str())); }), "");
        server.Join();
        EXPECT_EQ(command, c.command);
    }
}

TEST_F(TalkerTest, AnyReplyCountsAsConnected) {
    for (const std::string& reply : {std::string("error: go away\n"), std::string("\n"), Reply(0, 0, 0)}) {
        ScriptedServer server({[&](Peer& peer) {
            peer.ReadLine();
            peer.Send(reply);
        }});
        std::unique_ptr<CVRXTalker> talker(TalkerFactory());
        EXPECT_TRUE(talker->Configure(Args(server.Port()).c_str()));
    }
}

TEST_F(TalkerTest, FailedConnectIsReportedAndLeavesNoChannel) {
    const std::string args = Args(RefusedPort());
    EXPECT_EQ(
        Printed([&] { EXPECT_FALSE(m_talker->Configure(args.c_str())); }),
        "CVRXTalker::Connect: SendTcpMessage() of 'connect,127.0.0.1,7001' failed with hr=0xffffffff\n");
    EXPECT_EQ(calls::Count("connect"), 3u);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(Pump(2, 2), kNoConnection); }),
              "CVRXTalker::PumpAudio: m_tcpio is NULL\n");
}

TEST_F(TalkerTest, ConnectReportsTheChannelsCode) {
    ScriptedServer server({
        [](Peer& peer) { peer.ReadLine(); },
        [](Peer& peer) {
            peer.ReadLine();
            peer.Reset();
        },
        [](Peer& peer) { peer.WaitForClose(); },
    });
    for (const char* code : {"0xffffd8f5", "0xffffd8f4", "0xffffd8f1"}) { // -9995, -9996, -9999
        EXPECT_EQ(
            Printed([&] { EXPECT_FALSE(m_talker->Configure(Args(server.Port()).c_str())); }),
            std::string("CVRXTalker::Connect: SendTcpMessage() of 'connect,127.0.0.1,7001' failed with hr=") +
                code + "\n");
    }
}

TEST_F(TalkerTest, ConnectTimesOutAfterAHundredTicks) {
    calls::SetTickMicroseconds(300);
    ScriptedServer server({[](Peer& peer) { peer.WaitForClose(); }});
    Printed([&] { EXPECT_FALSE(m_talker->Configure(Args(server.Port()).c_str())); });
    const size_t passed = calls::Log("shutdown").front().size;
    EXPECT_GE(passed, 99u);
    EXPECT_LE(passed, 101u);
}

TEST_F(TalkerTest, MissingKeyLeavesAConnectedTalkerAsItWas) {
    std::vector<std::string> packets;
    ScriptedServer server({Server({Reply(7, 0, 0)}, &packets)});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    Printed([&] { EXPECT_FALSE(m_talker->Configure("server=x,servport=1,clport=2,input=other,output=o")); });
    EXPECT_FALSE(m_talker->Configure(""));
    EXPECT_EQ(Pump(0, 0), 7);
    m_talker.reset();
    server.Join();
    EXPECT_EQ(packets.front().substr(20), std::string("Main,In.samples[0],Out.samples[0]\0\0\0", 36));
}

TEST_F(TalkerTest, ConfiguringAgainUsesTheOpenConnection) {
    std::string commands;
    ScriptedServer server({[&](Peer& peer) {
        for (int i = 0; i < 2; ++i) {
            commands += peer.ReadLine();
            peer.Send("ok\n");
        }
        peer.ReadPacket();
        peer.Send(Reply(0, 0, 0));
        peer.WaitForClose();
    }});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    ASSERT_TRUE(m_talker->Configure("server=elsewhere,servport=1,clport=8,input=A,output=B,layout=C"));
    EXPECT_EQ(Pump(0, 0), 0);
    EXPECT_EQ(calls::Count("connect"), 1u);
    m_talker.reset();
    server.Join();
    EXPECT_EQ(commands, "connect,127.0.0.1,7001\nconnect,elsewhere,8\n");
}

TEST_F(TalkerTest, FailedConnectKeepsTheNewSettings) {
    std::vector<std::string> packets;
    ScriptedServer server({[](Peer& peer) { peer.ReadLine(); }, Server({Reply(0, 0, 0)}, &packets)});
    Printed(
        [&] { EXPECT_FALSE(m_talker->Configure(Args(server.Port(), "input=A,output=B,layout=C").c_str())); });
    auto& impl = dynamic_cast<CVRXTalker_impl&>(*m_talker);
    ASSERT_TRUE(impl.Connect());
    EXPECT_EQ(Pump(0, 0), 0);
    m_talker.reset();
    server.Join();
    EXPECT_EQ(packets.front().substr(20), std::string("C,A.samples[0],B.samples[0]\0", 28));
}

// ---- command packets

TEST_F(TalkerTest, PumpPacketByteForByte) {
    std::vector<std::string> packets;
    ScriptedServer server({Server({Reply(0, 0, 0, Words({1, 2}))}, &packets)});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    ASSERT_EQ(Pump(2, 2), 0);
    const std::string want("\x03\x00\xFF\x07" // marker
                           "\x40\x00\x00\x00" // 64 bytes in all
                           "\x03\x00\x00\x00" // 3 argument words
                           "\x3A\x00\x00\x00" // command
                           "\x05\x00\x00\x00" // 5 reply words: status, two cycle figures, two samples
                           "\x11\x11\x11\x11"
                           "\x22\x22\x22\x22"
                           "Main,In.samples[0],Out.samples[0]\0\0\0",
                           64);
    m_talker.reset();
    server.Join();
    EXPECT_EQ(packets.front(), want);
}

TEST_F(TalkerTest, PinPacketByteForByte) {
    std::vector<std::string> packets;
    ScriptedServer server({Server({Reply(0, 0, 0, Words({0, 0}))}, &packets)});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    Pins pins;
    ASSERT_EQ(pins.Ask(*m_talker), 0);
    const std::string want("\x03\x00\xFF\x07"
                           "\x3C\x00\x00\x00" // 60 bytes in all
                           "\x05\x00\x00\x00"
                           "\x3A\x00\x00\x00"
                           "\x05\x00\x00\x00"
                           "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
                           "-1,In.info1,Out.info1\0\0\0",
                           60);
    m_talker.reset();
    server.Join();
    EXPECT_EQ(packets.front(), want);
}

TEST_F(TalkerTest, PathTextIsPaddedWithOneToFourZeroes) {
    struct Case {
        const char* input;
        size_t length; // of the whole text
        size_t zeroes;
    };
    // "L," + input + ".samples[0],O.samples[0]" is 26 characters and the input's.
    const Case cases[] = {{"a", 27, 1}, {"ab", 28, 4}, {"abc", 29, 3}, {"abcd", 30, 2}, {"abcde", 31, 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        std::vector<std::string> packets;
        ScriptedServer server({Server({Reply(0, 0, 0)}, &packets)});
        std::unique_ptr<CVRXTalker> talker(TalkerFactory());
        const std::string objects = std::string("input=") + c.input + ",output=O,layout=L";
        ASSERT_TRUE(talker->Configure(Args(server.Port(), objects).c_str()));
        ASSERT_EQ(talker->PumpAudio(nullptr, nullptr, 0, 0), 0);
        const std::string text = std::string("L,") + c.input + ".samples[0],O.samples[0]";
        ASSERT_EQ(text.size(), c.length);
        const auto total = static_cast<unsigned>(20 + c.length + c.zeroes);
        talker.reset();
        server.Join();
        EXPECT_EQ(packets.front(),
                  Words({0x07FF0003, total, 1, 0x3A, 3}) + text + std::string(c.zeroes, '\0'));
    }
}

TEST_F(TalkerTest, EmptyLayoutKeepsItsComma) {
    std::vector<std::string> packets;
    ScriptedServer server({Server({Reply(0, 0, 0)}, &packets)});
    // An item of more than two tokens that ends with its first equals sign stores an empty value.
    ASSERT_TRUE(m_talker->Configure(Args(server.Port(), "input=In,output=Out,layout a b=").c_str()));
    ASSERT_EQ(Pump(0, 0), 0);
    m_talker.reset();
    server.Join();
    EXPECT_EQ(packets.front().substr(20), std::string(",In.samples[0],Out.samples[0]\0\0\0", 32));
}

TEST_F(TalkerTest, BlockThatWouldNotFitALengthWordIsAFailedSend) {
    ScriptedServer server({Server({Reply(5, 0, 0)})});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    const size_t sends = calls::Count("send");
    // 16 + 4 * (n + 1) + 36 bytes: 536,870,897 words make 2,147,483,644 bytes, one more is past 2,147,483,647
    for (const unsigned words : {536870898u, 0x40000000u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
        EXPECT_EQ(Printed([&] { EXPECT_EQ(m_talker->PumpAudio(m_in, m_out, words, 1), kSendFailed); }),
                  "CVRXTalker::PumpAudio: SendBinaryMessage failed with -9997\n");
    }
    EXPECT_EQ(calls::Count("send"), sends);
    EXPECT_EQ(m_out[0], 0xA1u);
    EXPECT_EQ(Pump(1, 0), 5); // and the connection is untouched
}

// ---- accepted replies

TEST_F(TalkerTest, AcceptedReplyDeliversWordsStatusAndCycles) {
    ScriptedServer server({Server({
        Reply(0, 0x00012380, 0xFFFFFF00, Words({0xDEADBEEF, 0x00000000})),
        Reply(static_cast<unsigned>(-5), 0x00001000, 0x000000FF, Words({9, 8})),
        Reply(3, 0x80000000, 0x7FFFFFFF),
    })});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    EXPECT_EQ(Printed([&] { EXPECT_EQ(Pump(2, 2), 0); }), "");
    EXPECT_EQ(m_out[0], 0xDEADBEEFu);
    EXPECT_EQ(m_out[1], 0u);
    EXPECT_EQ(m_out[2], 0xA3u);
    EXPECT_EQ(m_talker->GetAverageCycles(), static_cast<float>(0x123));
    EXPECT_EQ(m_talker->GetPumpCycles(), 4294967296.0f); // 0xFFFFFFFF as a float

    EXPECT_EQ(Printed([&] { EXPECT_EQ(Pump(1, 1), -5); }), ""); // the server's own status is not a failure
    EXPECT_EQ(m_out[0], 9u);
    EXPECT_EQ(m_talker->GetAverageCycles(), 16.0f);
    EXPECT_EQ(m_talker->GetPumpCycles(), 0.0f);

    EXPECT_EQ(Pump(1, 0), 3); // no words asked for
    EXPECT_EQ(m_out[0], 9u);
    EXPECT_EQ(m_talker->GetAverageCycles(), 4286578688.0f); // 0xFF800000
    EXPECT_EQ(m_talker->GetPumpCycles(), 8388607.0f);       // 0x007FFFFF
}

TEST_F(TalkerTest, InputAndOutputMayBeTheSameMemory) {
    ScriptedServer server({Server({Reply(0, 0, 0, Words({5, 6}))})});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    unsigned block[2] = {1, 2};
    EXPECT_EQ(m_talker->PumpAudio(block, block, 2, 2), 0);
    EXPECT_EQ(block[0], 5u);
    EXPECT_EQ(block[1], 6u);
}

TEST_F(TalkerTest, ShortReplyIsTakenAsItStands) {
    ScriptedServer server({Server({
        Reply(0, 0, 0, Words({21, 22, 23})),
        Reply(0, 0, 0, Words({31})), // the words after it are what lies in the channel's buffer
        Words({0x07FF0003}),         // not even a status: the one of the reply before
    })});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    ASSERT_EQ(Pump(0, 3), 0);
    ASSERT_EQ(Pump(0, 3), 0);
    EXPECT_EQ(m_out[0], 31u);
    EXPECT_EQ(m_out[1], 22u & 0xFFFFFF00u); // a zero byte follows what was received
    EXPECT_EQ(m_out[2], 23u);
    EXPECT_EQ(Pump(0, 0), 0);
}

TEST_F(TalkerTest, WordsBeyondTheReceiveBufferAreLeftAlone) {
    ScriptedServer server({Server({Reply(0, 0, 0, Words({41, 42}))})});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    constexpr unsigned kInside = (1048576 - 28) / 4;
    std::vector<unsigned> out(kInside + 3, 0x77777777);
    ASSERT_EQ(m_talker->PumpAudio(nullptr, out.data(), 0, kInside + 3), 0);
    EXPECT_EQ(out[0], 41u);
    EXPECT_EQ(out[1], 42u);
    EXPECT_EQ(out[2], 0u);
    EXPECT_EQ(out[kInside - 1], 0u);
    EXPECT_EQ(out[kInside], 0x77777777u);
    EXPECT_EQ(out[kInside + 2], 0x77777777u);
}

TEST_F(TalkerTest, PinValuesAreUnpacked) {
    struct Case {
        unsigned in;
        unsigned out;
        std::array<unsigned, 6> want;
    };
    const Case cases[] = {
        {0x08000C02, 0, {3, 2, 1, 0, 0, 0}},
        {0xF8000C02, 0xF0000000, {3, 2, 1, 0, 0, 0}}, // bits 28 to 31 are ignored
        {0x07FFFC00, 0x000003FF, {131071, 0, 0, 0, 1023, 0}},
        {0x00000400, 0xFFFFFFFF, {1, 0, 0, 131071, 1023, 1}},
    };
    for (const Case& c : cases) {
        ScriptedServer server({Server({Reply(12, 0xFFFF0000, 0xFFFF0000, Words({c.in, c.out}))})});
        std::unique_ptr<CVRXTalker> talker(TalkerFactory());
        ASSERT_TRUE(talker->Configure(Args(server.Port()).c_str()));
        Pins pins;
        EXPECT_EQ(pins.Ask(*talker), 12);
        EXPECT_EQ(pins.values, c.want);
        EXPECT_EQ(talker->GetAverageCycles(), 0.0f); // a pin query leaves the cycle figures alone
        EXPECT_EQ(talker->GetPumpCycles(), 0.0f);
    }
}

// ---- refused replies and failures

TEST_F(TalkerTest, ReplyWithoutTheMarkerIsRefused) {
    const std::string data = Words({1, 2});
    for (const std::string& reply :
         {std::string("error: no such layout\n"), Words({0x07FF0004, 36, 0, 0, 0, 0x100, 0x100}) + data,
          std::string("\x03")}) {
        ScriptedServer server({Server({reply, reply, Reply(0, 0x500, 0x600)})});
        std::unique_ptr<CVRXTalker> talker(TalkerFactory());
        ASSERT_TRUE(talker->Configure(Args(server.Port()).c_str()));
        EXPECT_EQ(Printed([&] { EXPECT_EQ(talker->PumpAudio(m_in, m_out, 2, 2), kNotAPacket); }),
                  "CVRXTalker::PumpAudio: SendBinaryMessage did not reply with packet\n");
        EXPECT_EQ(m_out[0], 0xA1u);
        EXPECT_EQ(talker->GetAverageCycles(), 0.0f);
        Pins pins;
        EXPECT_EQ(Printed([&] { EXPECT_EQ(pins.Ask(*talker), kNotAPacket); }),
                  "CVRXTalker::PinProps: SendBinaryMessage did not reply with packet\n");
        EXPECT_EQ(pins.values, Pins::kUntouched);
        EXPECT_EQ(talker->PumpAudio(m_in, m_out, 2, 0), 0); // the connection still serves
        EXPECT_EQ(talker->GetAverageCycles(), 5.0f);
        EXPECT_EQ(talker->GetPumpCycles(), 6.0f);
    }
}

TEST_F(TalkerTest, TransportFailuresAreReportedAndRecovered) {
    struct Case {
        int code;
        std::function<void(Peer&)> answer;
    };
    const Case cases[] = {
        {kPeerClosed, [](Peer& peer) { peer.Close(); }},
        {kReceiveFailed, [](Peer& peer) { peer.Reset(); }},
        {kTimedOut, [](Peer& peer) { EXPECT_TRUE(peer.WaitForClose()); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        const Script failing = [&](Peer& peer) {
            peer.ReadPacket();
            c.answer(peer);
        };
        const auto connecting = [&](Peer& peer) {
            peer.ReadLine();
            peer.Send("hello\n");
            failing(peer);
        };
        ScriptedServer server({connecting, failing, [](Peer& peer) {
                                   peer.ReadPacket();
                                   peer.Send(Reply(4, 0, 0));
                                   peer.WaitForClose();
                               }});
        std::unique_ptr<CVRXTalker> talker(TalkerFactory());
        ASSERT_TRUE(talker->Configure(Args(server.Port()).c_str()));
        const std::string failed = "SendBinaryMessage failed with " + std::to_string(c.code) + "\n";
        EXPECT_EQ(Printed([&] { EXPECT_EQ(talker->PumpAudio(m_in, m_out, 2, 2), c.code); }),
                  "CVRXTalker::PumpAudio: " + failed);
        EXPECT_EQ(m_out[0], 0xA1u);
        Pins pins;
        EXPECT_EQ(Printed([&] { EXPECT_EQ(pins.Ask(*talker), c.code); }), "CVRXTalker::PinProps: " + failed);
        EXPECT_EQ(pins.values, Pins::kUntouched);
        EXPECT_EQ(talker->PumpAudio(m_in, m_out, 2, 0), 4); // the channel stayed and reconnected by itself
    }
}

TEST_F(TalkerTest, AfterAFailedSendOnlyConfigureReconnects) {
    ScriptedServer server({Server({}), Server({Reply(6, 0, 0)})});
    const std::string args = Args(server.Port());
    ASSERT_TRUE(m_talker->Configure(args.c_str()));
    for (int i = 0; i < 2; ++i) {
        calls::FailSends(1, -1);
        EXPECT_EQ(Printed([&] { EXPECT_EQ(Pump(1, 0), kSendFailed); }),
                  "CVRXTalker::PumpAudio: SendBinaryMessage failed with -9997\n");
    }
    calls::FailSends(1, -1);
    ASSERT_TRUE(m_talker->Configure(args.c_str()));
    EXPECT_EQ(Pump(1, 0), 6);
}

// ---- text commands

TEST_F(TalkerTest, SendMessagePassesTextAndReplyThrough) {
    std::string wire;
    ScriptedServer server({[&](Peer& peer) {
        peer.ReadLine();
        peer.Send("hello\n");
        wire += peer.ReadLine();
        peer.Send("first\r\nrest");
        wire += peer.ReadLine();
        peer.Send("\n");
        calls::WaitFor("recv", 3); // the empty text sends nothing
        peer.Send("unasked\n");
        calls::WaitFor("recv", 4);
        peer.Send("again\n");
        peer.ReadLine();
    }});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    std::string reply = "stale";
    EXPECT_EQ(Printed([&] {
                  EXPECT_EQ(m_talker->SendMessage("status", reply), kReplied);
                  EXPECT_EQ(reply, "first\r");
                  EXPECT_EQ(m_talker->SendMessage("with its own end\n", reply), kReplied);
                  EXPECT_EQ(reply, "");
                  EXPECT_EQ(m_talker->SendMessage("", reply), kReplied);
                  EXPECT_EQ(reply, "unasked");
                  EXPECT_EQ(m_talker->SendMessage(nullptr, reply), kReplied);
                  EXPECT_EQ(reply, "again");
                  EXPECT_EQ(m_talker->SendMessage("x", reply), kPeerClosed); // failures of text print nothing
                  EXPECT_EQ(reply, "");
              }),
              "");
    m_talker.reset();
    server.Join();
    EXPECT_EQ(wire, "status\nwith its own end\n");
}

TEST_F(TalkerTest, SendMessageWaitsWithoutLimit) {
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send("hello\n");
        peer.ReadLine();
        calls::WaitForTicks(calls::Ticks() + 150);
        peer.Send("late\n");
        peer.WaitForClose();
    }});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    std::string reply;
    EXPECT_EQ(m_talker->SendMessage("x", reply), kReplied);
    EXPECT_EQ(reply, "late");
}

// ---- threads and resources

TEST_F(TalkerTest, RequestsOfTwoThreadsNeverInterleave) {
    constexpr int kRounds = 200;
    int pumps = 0;
    int texts = 0;
    ScriptedServer server({[&](Peer& peer) {
        peer.ReadLine();
        peer.Send("hello\n");
        for (int i = 0; i < 2 * kRounds; ++i) {
            const std::string start = peer.Read(4);
            if (start == std::string("\x03\x00\xFF\x07", 4)) {
                const std::string size = peer.Read(4);
                peer.Read(static_cast<unsigned char>(size[0]) + 256u * static_cast<unsigned char>(size[1]) -
                          8);
                peer.Send(Reply(1, 0, 0));
                ++pumps;
            } else {
                EXPECT_EQ(start + peer.ReadLine(), "text command\n");
                peer.Send("text reply\n");
                ++texts;
            }
        }
    }});
    ASSERT_TRUE(m_talker->Configure(Args(server.Port()).c_str()));
    std::thread writer([&] {
        std::string reply;
        for (int i = 0; i < kRounds; ++i) {
            ASSERT_EQ(m_talker->SendMessage("text command", reply), kReplied);
            ASSERT_EQ(reply, "text reply");
        }
    });
    // The reply is read after the lock is released, so only the exchange itself is certain here.
    std::vector<unsigned> block(300);
    (void)Printed([&] { // a text reply in place of a packet is reported
        for (int i = 0; i < kRounds; ++i) {
            const int result = m_talker->PumpAudio(block.data(), nullptr, 300, 0);
            ASSERT_TRUE(result == kReplied || result == kNotAPacket) << result;
        }
        writer.join();
    });
    server.Join();
    EXPECT_EQ(pumps, kRounds);
    EXPECT_EQ(texts, kRounds);
}

TEST_F(TalkerTest, TwoHundredTalkersLeaveNothingBehind) {
    constexpr size_t kTalkers = 200;
    const size_t descriptors = Entries("/proc/self/fd");
    std::thread([] {}).join(); // brings a sanitizer's own thread to life
    const size_t threads = Entries("/proc/self/task");
    {
        ScriptedServer server(std::vector<Script>(kTalkers, Server({Reply(2, 0, 0)})));
        for (size_t i = 0; i < kTalkers; ++i) {
            const std::unique_ptr<CVRXTalker> talker(TalkerFactory());
            ASSERT_TRUE(talker->Configure(Args(server.Port()).c_str()));
            ASSERT_EQ(talker->PumpAudio(m_in, m_out, 2, 0), 2);
        }
    }
    EXPECT_EQ(Entries("/proc/self/fd"), descriptors);
    EXPECT_EQ(Entries("/proc/self/task"), threads);
    EXPECT_EQ(calls::Count("socket"), kTalkers);
    EXPECT_EQ(calls::Count("close"), kTalkers);
}

} // namespace
