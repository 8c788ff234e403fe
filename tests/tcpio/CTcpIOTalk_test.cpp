#include "tcpio/CTcpIOTalk.h"

#include "tests/support/Entries.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/SystemCalls.h"

#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <new>
#include <pthread.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using enum CTcpIOTalk::Result;
using Script = ScriptedServer::Script;

constexpr char kHost[] = "127.0.0.1";
constexpr int kOneTick = 10;
constexpr int kTenSeconds = 1000;

const std::string kMarker("\x03\x00\xFF\x07", 4);

std::string Packet(unsigned length, const std::string& rest) {
    return kMarker + Words({length}) + rest;
}

struct Result {
    int code = 0;
    std::string reply = "stale";
    std::string data; // the bytes that data and length deliver
    int length = 77;
};

class CTcpIOTalkTest : public testing::Test {
protected:
    void SetUp() override {
        calls::Reset();
        calls::SetTickMicroseconds(2000); // the waits below count ticks, not time
    }

    Result Text(const char* host, int port, const char* text, int timeout = kTenSeconds) {
        Result result;
        void* data = nullptr;
        result.code = m_talk->SendTcpMessage(host, port, text, result.reply, data, result.length, timeout);
        return Finish(result, data);
    }

    Result Text(const ScriptedServer& server, const char* text, int timeout = kTenSeconds) {
        return Text(kHost, server.Port(), text, timeout);
    }

    Result Binary(int port, const std::string& bytes, bool raw, int timeout = kTenSeconds) {
        return Binary(kHost, port, bytes, static_cast<int>(bytes.size()), raw, timeout);
    }

    Result Binary(const char* host, int port, const std::string& bytes, int count, bool raw, int timeout) {
        Result result;
        void* data = nullptr;
        result.code =
            m_talk->SendBinaryMessage(host, port, reinterpret_cast<const unsigned char*>(bytes.data()), count,
                                      result.reply, data, result.length, timeout, raw);
        return Finish(result, data);
    }

    static Result Finish(Result result, const void* data) {
        if (result.code == kReplied)
            result.data.assign(static_cast<const char*>(data), static_cast<size_t>(result.length));
        return result;
    }

    std::unique_ptr<CTcpIOTalk> m_talk = std::make_unique<CTcpIOTalk>();
};

/// Reads one line and answers.
Script Answer(std::string reply) {
    return [reply = std::move(reply)](Peer& peer) {
        peer.ReadLine();
        peer.Send(reply);
        peer.WaitForClose();
    };
}

/// Reads one line, then sends each piece once the client has received the one before.
Script AnswerInPieces(std::vector<std::string> pieces) {
    return [pieces = std::move(pieces)](Peer& peer) {
        peer.ReadLine();
        const size_t before = calls::Count("recv");
        for (size_t i = 0; i < pieces.size(); ++i) {
            peer.Send(pieces[i]);
            calls::WaitFor("recv", before + i + 1);
        }
        peer.WaitForClose();
    };
}

// ---- construction

bool IsFresh(const CTcpIOTalk* talk) {
    const auto* buffer = reinterpret_cast<const unsigned char*>(talk) + 16;
    return std::all_of(buffer, buffer + 0x100000 + 8, [](unsigned char byte) { return byte == 0; });
}

TEST(CTcpIOTalk, IsMadeByEveryFormOfNew) {
    const auto expectFresh = [](CTcpIOTalk* talk) {
        ASSERT_NE(talk, nullptr);
        EXPECT_TRUE(IsFresh(talk));
        EXPECT_EQ(talk->SendString(-1, ""), 0);
    };
    constexpr std::align_val_t kPage{4096};
    for (CTcpIOTalk* single : {new CTcpIOTalk, new (std::nothrow) CTcpIOTalk, new (kPage) CTcpIOTalk,
                               new (kPage, std::nothrow) CTcpIOTalk}) {
        expectFresh(single);
        delete single;
    }
    for (CTcpIOTalk* two : {new CTcpIOTalk[2], new (std::nothrow) CTcpIOTalk[2]}) {
        expectFresh(two);
        expectFresh(two + 1);
        delete[] two;
    }
    for (CTcpIOTalk* global : {::new CTcpIOTalk, ::new (std::nothrow) CTcpIOTalk}) {
        expectFresh(global);
        ::delete global;
    }
    struct Storage {
        alignas(CTcpIOTalk) unsigned char bytes[sizeof(CTcpIOTalk)];
    };
    const auto storage = std::make_unique<Storage>();
    std::fill(std::begin(storage->bytes), std::end(storage->bytes), static_cast<unsigned char>(0xAA));
    auto* placed = new (storage->bytes) CTcpIOTalk;
    expectFresh(placed);
    placed->~CTcpIOTalk();
    expectFresh(std::make_shared<CTcpIOTalk>().get());
    expectFresh(&std::vector<CTcpIOTalk>(2).back());
}

TEST(CTcpIOTalk, StorageThatThereIsNotIsToldAsNewTellsIt) {
    constexpr size_t kTooMuch = size_t{1} << 60;
    EXPECT_EQ(CTcpIOTalk::operator new(kTooMuch, std::nothrow), nullptr);
    EXPECT_THROW((void)CTcpIOTalk::operator new(kTooMuch), std::bad_alloc);
}

TEST_F(CTcpIOTalkTest, NothingIsOpenedOrStartedBeforeTheFirstExchange) {
    m_talk.reset();
    EXPECT_TRUE(calls::Log().empty());
    EXPECT_EQ(calls::Ticks(), 0u);
}

// ---- sending text

TEST_F(CTcpIOTalkTest, TextGoesOutAsOneLine) {
    struct Case {
        const char* text;
        const char* wire;
    };
    for (const Case& c : {Case{"x", "x\n"}, Case{"x\n", "x\n"}, Case{"\n", "\n"}, Case{"a b\r", "a b\r\n"}}) {
        SCOPED_TRACE(c.wire);
        std::string got;
        ScriptedServer server({[&](Peer& peer) {
            got = peer.Read(std::string(c.wire).size());
            peer.Send("ok\n");
            got += peer.Read(1);
        }});
        EXPECT_EQ(Text(server, c.text).reply, "ok");
        m_talk->KillSocket();
        server.Join();
        EXPECT_EQ(got, c.wire);
    }
}

TEST_F(CTcpIOTalkTest, EmptyTextSendsNothingAndStillWaits) {
    for (const char* text : {"", static_cast<const char*>(nullptr)}) {
        calls::Reset();
        ScriptedServer server({[](Peer& peer) {
            peer.Send("unasked\n");
            peer.WaitForClose();
        }});
        const Result result = Text(server, text);
        EXPECT_EQ(result.code, kReplied);
        EXPECT_EQ(result.reply, "unasked");
        EXPECT_EQ(calls::Count("send"), 0u);
        m_talk->KillSocket();
    }
}

TEST_F(CTcpIOTalkTest, LongTextGoesOutInPiecesOf1024) {
    ScriptedServer server({Answer("ok\n")});
    const std::string text(2500, 'a');
    ASSERT_EQ(Text(server, text.c_str()).code, kReplied);
    std::vector<size_t> sizes;
    std::string wire;
    for (const calls::Event& send : calls::Log("send")) {
        sizes.push_back(send.size);
        wire += send.bytes;
        EXPECT_EQ(send.flags, MSG_NOSIGNAL);
    }
    EXPECT_EQ(sizes, (std::vector<size_t>{1024, 1024, 453}));
    EXPECT_EQ(wire, text + "\n");
}

TEST_F(CTcpIOTalkTest, PieceStartsWhereAShortSendEnded) {
    calls::LimitSends(1000);
    ScriptedServer server({Answer("ok\n")});
    const std::string text(2500, 'b');
    ASSERT_EQ(Text(server, text.c_str()).code, kReplied);
    std::vector<size_t> sizes;
    std::string wire;
    for (const calls::Event& send : calls::Log("send")) {
        sizes.push_back(send.size);
        wire += send.bytes;
    }
    EXPECT_EQ(sizes, (std::vector<size_t>{1024, 1024, 501}));
    EXPECT_EQ(wire, text + "\n");
}

TEST_F(CTcpIOTalkTest, SendStringReturnsTheFailingSendsResult) {
    calls::FailSends(1, -1);
    EXPECT_EQ(m_talk->SendString(0, "x"), -1);
    calls::FailSends(1, 0);
    EXPECT_EQ(m_talk->SendString(0, "x"), 0);
    EXPECT_EQ(m_talk->SendString(-1, ""), 0);
}

TEST_F(CTcpIOTalkTest, TextMayLieInTheReplyOrInTheReceiveBuffer) {
    std::vector<std::string> lines;
    ScriptedServer server({[&](Peer& peer) {
        for (const char* reply : {"first\n", "second\n", "third\n"}) {
            lines.push_back(peer.ReadLine());
            peer.Send(reply);
        }
        lines.push_back(peer.Read(5));
        peer.Send("fourth");
        peer.WaitForClose();
    }});
    std::string reply = "in the reply";
    void* data = nullptr;
    int length = 0;
    const auto send = [&](const char* text) {
        return m_talk->SendTcpMessage(kHost, server.Port(), text, reply, data, length, kTenSeconds);
    };
    EXPECT_EQ(send(reply.c_str()), kReplied);
    EXPECT_EQ(reply, "first");
    EXPECT_EQ(send(reply.c_str()), kReplied);
    EXPECT_EQ(reply, "second");
    EXPECT_EQ(send(static_cast<const char*>(data)), kReplied); // with its line feed
    EXPECT_EQ(reply, "third");
    EXPECT_EQ(m_talk->SendBinaryMessage(kHost, server.Port(), static_cast<const unsigned char*>(data), 5,
                                        reply, data, length, kTenSeconds, true),
              kReplied);
    EXPECT_EQ(std::string(static_cast<const char*>(data), static_cast<size_t>(length)), "fourth");
    m_talk.reset();
    server.Join();
    EXPECT_EQ(lines, (std::vector<std::string>{"in the reply\n", "first\n", "second\n", "third"}));
}

// ---- receiving text

TEST_F(CTcpIOTalkTest, TextReplyIsTheFirstLine) {
    struct Case {
        const char* name;
        std::vector<std::string> pieces;
        const char* want;
    };
    const std::vector<Case> cases = {
        {"carriage return stays, the rest is dropped", {"OK\r\nmore"}, "OK\r"},
        {"empty line", {"\n"}, ""},
        {"in pieces", {"hel", "lo\n"}, "hello"},
        {"line feed alone in the last piece", {"hello", "\n"}, "hello"},
        {"byte by byte", {"a", "b", "\n"}, "ab"},
        {"shorter than a packet's first word", {"a\n"}, "a"},
        {"starts like a packet", {std::string("\x03\x01\n")}, "\x03\x01"},
        {"byte 0xFF", {"\xFF\xFE\n"}, "\xFF\xFE"},
        {"zero byte behind the line feed", {std::string("ab\n\0c", 5)}, "ab"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedServer server({AnswerInPieces(c.pieces)});
        const Result result = Text(server, "?");
        EXPECT_EQ(result.code, kReplied);
        EXPECT_EQ(result.reply, c.want);
        EXPECT_EQ(result.length, 0);
        m_talk->KillSocket();
    }
}

TEST_F(CTcpIOTalkTest, BytesBehindTheLineFeedAreDropped) {
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send("one\ntwo\n");
        peer.ReadLine();
        peer.Send("three\n");
        peer.WaitForClose();
    }});
    EXPECT_EQ(Text(server, "1").reply, "one");
    EXPECT_EQ(Text(server, "2").reply, "three");
}

TEST_F(CTcpIOTalkTest, LineWithAZeroByteIsNeverComplete) {
    ScriptedServer server({
        AnswerInPieces({std::string("a\0b\n", 4), "more\n", std::string(CTcpIOTalk::kBufferSize, 'x')}),
        Answer("fine\n"),
    });
    EXPECT_EQ(Text(server, "?").code, kPeerClosed);
    EXPECT_EQ(Text(server, "?").reply, "fine");
}

TEST_F(CTcpIOTalkTest, EndlessTextFillsTheBufferAndNoEmptyReceiveIsTried) {
    ScriptedServer server({Answer(std::string(CTcpIOTalk::kBufferSize + 100, 'x'))});
    EXPECT_EQ(Text(server, "?").code, kPeerClosed);
    size_t received = 0;
    for (const calls::Event& recv : calls::Log("recv")) {
        EXPECT_GT(recv.size, 0u);
        EXPECT_EQ(recv.size, CTcpIOTalk::kBufferSize - received);
        received += static_cast<size_t>(recv.result);
    }
    EXPECT_EQ(received, static_cast<size_t>(CTcpIOTalk::kBufferSize));
}

TEST_F(CTcpIOTalkTest, LineThatJustFitsTheBufferIsDelivered) {
    const std::string line(CTcpIOTalk::kBufferSize - 1, 'x');
    ScriptedServer server({Answer(line + "\n")});
    EXPECT_EQ(Text(server, "?").reply, line);
}

// ---- receiving packets in text mode

TEST_F(CTcpIOTalkTest, PacketCompletesWithItsLength) {
    const std::string packet = Packet(24, "0123456789abcdef");
    struct Case {
        const char* name;
        std::vector<std::string> pieces;
        std::string want;
    };
    const std::vector<Case> cases = {
        {"at once", {packet}, packet},
        {"10 and 14 bytes", {packet.substr(0, 10), packet.substr(10)}, packet},
        {"split in the marker", {packet.substr(0, 2), packet.substr(2)}, packet},
        {"split in the length", {packet.substr(0, 5), packet.substr(5)}, packet},
        {"with line feeds in it", {Packet(12, "\n\n\n\n")}, Packet(12, "\n\n\n\n")},
        {"more bytes than its length", {packet + "surplus\n"}, packet},
        {"length 8, nothing behind", {Packet(8, "")}, Packet(8, "")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        m_talk = std::make_unique<CTcpIOTalk>(); // earlier replies in the buffer would take part
        ScriptedServer server({AnswerInPieces(c.pieces)});
        const Result result = Text(server, "?");
        EXPECT_EQ(result.code, kReplied);
        EXPECT_EQ(result.reply, c.want);
        EXPECT_EQ(result.data, c.want);
        EXPECT_EQ(result.length, static_cast<int>(c.want.size()));
        m_talk->KillSocket();
    }
}

TEST_F(CTcpIOTalkTest, PacketAsLargeAsTheBufferIsDelivered) {
    const std::string packet = Packet(CTcpIOTalk::kBufferSize, std::string(CTcpIOTalk::kBufferSize - 8, 'p'));
    ScriptedServer server({Answer(packet)});
    EXPECT_EQ(Text(server, "?").reply, packet);
}

TEST_F(CTcpIOTalkTest, HostileLengthWordsEndWhenTheBufferIsFullOrThePeerCloses) {
    for (const unsigned length : {0x100001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(length);
        ScriptedServer server({
            Answer(Packet(length, std::string(CTcpIOTalk::kBufferSize, 'x'))),
            [&](Peer& peer) {
                peer.ReadLine();
                peer.Send(Packet(length, "short"));
            },
            Answer("fine\n"),
        });
        EXPECT_EQ(Text(server, "?").code, kPeerClosed);
        EXPECT_EQ(Text(server, "?").code, kPeerClosed);
        EXPECT_EQ(Text(server, "?").reply, "fine");
        m_talk->KillSocket();
    }
}

TEST_F(CTcpIOTalkTest, TinyLengthWordsTakeThatManyBytes) {
    ScriptedServer server({[](Peer& peer) {
        for (const unsigned length : {0u, 1u, 7u}) {
            peer.ReadLine();
            peer.Send(Packet(length, ""));
        }
        peer.WaitForClose();
    }});
    EXPECT_EQ(Text(server, "?").reply, "");
    EXPECT_EQ(Text(server, "?").reply, kMarker.substr(0, 1));
    EXPECT_EQ(Text(server, "?").reply, Packet(7, "").substr(0, 7));
}

TEST_F(CTcpIOTalkTest, BytesOfEarlierRepliesTakePartInThePacketTest) {
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send(Packet(24, "0123456789abcdef"));
        peer.ReadLine();
        peer.Send("\x03"); // with the zero byte behind it and what lay there: the marker, length 24
        calls::WaitFor("recv", 2);
        peer.Send("\n");
        peer.ReadLine();
        peer.Send(Packet(1, ""));
        peer.ReadLine();
        peer.Send("\x03"); // the same with length 1: complete
        peer.WaitForClose();
    }});
    ASSERT_EQ(Text(server, "packet").length, 24);
    const Result line = Text(server, "line");
    EXPECT_EQ(line.reply, "\x03");
    EXPECT_EQ(line.length, 0);
    ASSERT_EQ(Text(server, "packet").length, 1);
    const Result stale = Text(server, "byte");
    EXPECT_EQ(stale.reply, "\x03");
    EXPECT_EQ(stale.length, 1);
}

// ---- raw mode

TEST_F(CTcpIOTalkTest, RawReplyIsWhatOneReceiveDelivers) {
    const std::string packet = Packet(24, "0123456789abcdef");
    ScriptedServer server({[&](Peer& peer) {
        peer.Read(3);
        peer.Send(packet.substr(0, 10));
        calls::WaitFor("recv", 1);
        peer.WaitForClose();
    }});
    const Result result = Binary(server.Port(), "abc", true);
    EXPECT_EQ(result.code, kReplied);
    EXPECT_EQ(result.length, 10);
    EXPECT_EQ(result.data, packet.substr(0, 10));
    EXPECT_EQ(result.reply, "");
    const auto recv = calls::Log("recv").front();
    EXPECT_EQ(recv.size, 1048576u);
    EXPECT_EQ(recv.flags, 0);
}

TEST_F(CTcpIOTalkTest, RawReplyEndsInAZeroByte) {
    ScriptedServer server({[&](Peer& peer) {
        peer.Read(1);
        peer.Send("longer than the next");
        peer.Read(1);
        peer.Send("short");
        peer.WaitForClose();
    }});
    ASSERT_EQ(Binary(server.Port(), "a", true).length, 20);
    std::string reply;
    void* data;
    int length;
    const unsigned char byte = 'b';
    ASSERT_EQ(
        m_talk->SendBinaryMessage(kHost, server.Port(), &byte, 1, reply, data, length, kTenSeconds, true), 1);
    EXPECT_STREQ(static_cast<const char*>(data), "short");
    EXPECT_EQ(length, 5);
}

TEST_F(CTcpIOTalkTest, BinaryBytesGoOutInOneSend) {
    const std::string bytes(100000, 'z');
    ScriptedServer server({[&](Peer& peer) {
        EXPECT_EQ(peer.Read(bytes.size()), bytes);
        peer.Send("r");
        peer.WaitForClose();
    }});
    ASSERT_EQ(Binary(server.Port(), bytes, true).code, kReplied);
    const auto send = calls::Log("send").front();
    EXPECT_EQ(send.size, bytes.size());
    EXPECT_EQ(send.flags, MSG_NOSIGNAL);
}

TEST_F(CTcpIOTalkTest, BinaryExchangeInTextModeTakesLinesAndPackets) {
    ScriptedServer server({[&](Peer& peer) {
        peer.Read(1);
        peer.Send("line\n");
        peer.Read(1);
        peer.Send(Packet(12, "wxyz"));
        peer.WaitForClose();
    }});
    EXPECT_EQ(Binary(server.Port(), "a", false).reply, "line");
    EXPECT_EQ(Binary(server.Port(), "b", false).reply, Packet(12, "wxyz"));
}

TEST_F(CTcpIOTalkTest, OneExchangeOnAnOpenConnectionIsOneSendAndOneReceive) {
    ScriptedServer server({[&](Peer& peer) {
        for (int i = 0; i < 3; ++i) {
            peer.Read(4);
            peer.Send("r");
        }
        peer.WaitForClose();
    }});
    for (int i = 0; i < 3; ++i) ASSERT_EQ(Binary(server.Port(), "abcd", true).code, kReplied);
    std::vector<std::string> sequence;
    for (const calls::Event& event : calls::Log()) sequence.push_back(event.call);
    EXPECT_EQ(sequence, (std::vector<std::string>{"socket", "connect", "send", "recv", "send", "recv", "send",
                                                  "recv"}));
}

TEST_F(CTcpIOTalkTest, CountZeroSendsNothingAndWaits) {
    ScriptedServer server({[](Peer& peer) {
        peer.Send("x");
        peer.WaitForClose();
    }});
    EXPECT_EQ(Binary(kHost, server.Port(), "ignored", 0, true, kTenSeconds).data, "x");
    EXPECT_EQ(calls::Count("send"), 0u);
}

// ---- failures of the exchange

TEST_F(CTcpIOTalkTest, PeerThatClosesGivesMinus9995AndTheNextExchangeReconnects) {
    ScriptedServer server({
        [](Peer& peer) { peer.ReadLine(); },
        [](Peer& peer) { peer.Read(3); },
        Answer("again\n"),
    });
    EXPECT_EQ(Text(server, "?").code, kPeerClosed);
    EXPECT_EQ(Binary(server.Port(), "abc", true).code, kPeerClosed);
    EXPECT_EQ(Text(server, "?").reply, "again");
    EXPECT_EQ(calls::Count("connect"), 3u);
    EXPECT_EQ(calls::Count("close"), 2u);
}

TEST_F(CTcpIOTalkTest, ResetGivesMinus9996) {
    ScriptedServer server({
        [](Peer& peer) {
            peer.ReadLine();
            peer.Reset();
        },
        [](Peer& peer) {
            peer.Read(3);
            peer.Reset();
        },
        Answer("again\n"),
    });
    EXPECT_EQ(Text(server, "?").code, kReceiveFailed);
    EXPECT_EQ(Binary(server.Port(), "abc", true).code, kReceiveFailed);
    EXPECT_EQ(Text(server, "?").reply, "again");
}

TEST_F(CTcpIOTalkTest, FailureClearsTheReply) {
    ScriptedServer server({[](Peer& peer) { peer.ReadLine(); }});
    const Result result = Text(server, "?");
    EXPECT_EQ(result.reply, "");
    EXPECT_EQ(result.length, 0);
}

TEST_F(CTcpIOTalkTest, UnreachableServerUsesThreePassesForTextAndOneForBinary) {
    const int port = RefusedPort();
    EXPECT_EQ(Text(kHost, port, "?").code, kNoConnection);
    EXPECT_EQ(calls::Count("connect"), 3u);
    EXPECT_EQ(calls::Count("close"), 3u);
    calls::Reset();
    EXPECT_EQ(Binary(port, "abc", true).code, kSendFailed);
    EXPECT_EQ(calls::Count("connect"), 1u);
}

TEST_F(CTcpIOTalkTest, FailedTextSendReconnectsOnceAndSendsAgain) {
    ScriptedServer server({
        [](Peer& peer) {
            peer.ReadLine();
            peer.Send("first\n");
            peer.WaitForClose();
        },
        Answer("second\n"),
    });
    ASSERT_EQ(Text(server, "1").reply, "first");
    calls::FailSends(1, -1);
    EXPECT_EQ(Text(server, "2").reply, "second");
    EXPECT_EQ(calls::Count("connect"), 2u);
}

TEST_F(CTcpIOTalkTest, SecondFailedTextSendGivesUp) {
    ScriptedServer server({
        [](Peer& peer) {
            peer.ReadLine();
            peer.Send("first\n");
            peer.WaitForClose();
        },
        [](Peer& peer) { peer.WaitForClose(); },
    });
    ASSERT_EQ(Text(server, "1").reply, "first");
    calls::FailSends(2, -1);
    EXPECT_EQ(Text(server, "2").code, kNoConnection);
    EXPECT_EQ(calls::Count("connect"), 2u);
    EXPECT_EQ(calls::Count("close"), 2u);
}

TEST_F(CTcpIOTalkTest, ConnectThenFailedSendEndsConnectedButUnsent) {
    ScriptedServer server({
        [](Peer& peer) { peer.WaitForClose(); },
        Answer("at last\n"),
    });
    calls::FailSends(1, -1);
    EXPECT_EQ(Text(server, "1").code, kNoConnection);
    EXPECT_EQ(calls::Count("connect"), 2u); // the third pass reconnected, and no pass was left to send
    EXPECT_EQ(calls::Count("send"), 1u);
    EXPECT_EQ(Text(server, "2").reply, "at last");
    EXPECT_EQ(calls::Count("connect"), 2u);
}

TEST_F(CTcpIOTalkTest, FailedBinarySendLeavesTheSocketUntilATextExchange) {
    ScriptedServer server({
        [](Peer& peer) {
            peer.ReadLine();
            peer.Send("hello\n");
            peer.WaitForClose();
        },
        Answer("new\n"),
    });
    ASSERT_EQ(Text(server, "1").reply, "hello");
    for (const ssize_t result : {-1, 0}) {
        calls::FailSends(1, result);
        EXPECT_EQ(Binary(server.Port(), "abc", true).code, kSendFailed);
    }
    EXPECT_EQ(Binary(kHost, server.Port(), "abc", -1, true, kTenSeconds).code, kSendFailed);
    EXPECT_EQ(calls::Count("close"), 0u);
    EXPECT_EQ(calls::Count("socket"), 1u);
    calls::FailSends(1, -1); // the socket is dead for the text exchange too: it replaces it
    EXPECT_EQ(Text(server, "2").reply, "new");
    EXPECT_EQ(calls::Count("socket"), 2u);
}

TEST_F(CTcpIOTalkTest, SendingToAPeerThatResetRaisesNoSignal) {
    ASSERT_NE(signal(SIGPIPE, SIG_DFL), SIG_ERR);
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send("bye\n");
        calls::WaitFor("recv", 1);
        peer.Reset();
    }});
    ASSERT_EQ(Text(server, "?").reply, "bye");
    server.Join();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Binary(server.Port(), "abc", true).code, kSendFailed);
}

TEST_F(CTcpIOTalkTest, NoSocketIsAFailedConnect) {
    calls::FailSockets(3);
    EXPECT_EQ(Text(kHost, RefusedPort(), "?").code, kNoConnection);
    calls::FailSockets(1);
    EXPECT_EQ(Binary(RefusedPort(), "abc", true).code, kSendFailed);
    EXPECT_EQ(calls::Count("close"), 0u);
}

TEST_F(CTcpIOTalkTest, FailedReceiveClosesTheConnection) {
    ScriptedServer server({[](Peer& peer) { peer.WaitForClose(); }, [](Peer& peer) { peer.WaitForClose(); }});
    calls::FailReceives(1);
    EXPECT_EQ(Text(server, "?").code, kReceiveFailed);
    calls::FailReceives(1);
    EXPECT_EQ(Binary(server.Port(), "abc", true).code, kReceiveFailed);
    EXPECT_EQ(calls::Count("close"), 2u);
}

TEST_F(CTcpIOTalkTest, GetBinaryMessageLeavesAFailedConnectionToItsCaller) {
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send("hello\n");
        calls::WaitFor("recv", 1);
    }});
    ASSERT_EQ(Text(server, "?").code, kReplied);
    std::string reply;
    void* data;
    int length;
    EXPECT_EQ(m_talk->GetBinaryMessage(reply, data, length, kTenSeconds, true), kPeerClosed);
    EXPECT_EQ(calls::Count("close"), 0u);
    m_talk->KillSocket();
    EXPECT_EQ(m_talk->GetBinaryMessage(reply, data, length, kTenSeconds, true), kReceiveFailed);
}

TEST_F(CTcpIOTalkTest, SignalDuringAReceiveGivesMinus9996AndTheNextExchangeReconnects) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {}; // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    for (const bool text : {true, false}) {
        std::atomic<bool> interrupted = false;
        const pthread_t client = pthread_self();
        ScriptedServer server({
            [&](Peer& peer) {
                text ? peer.ReadLine() : peer.Read(3);
                while (!interrupted) { // the receive may not have begun yet
                    pthread_kill(client, SIGUSR1);
                    std::this_thread::yield();
                }
                EXPECT_TRUE(peer.WaitForClose());
            },
            Answer("again\n"),
        });
        const Result result = text ? Text(server, "?") : Binary(server.Port(), "abc", true);
        interrupted = true;
        EXPECT_EQ(result.code, kReceiveFailed);
        EXPECT_EQ(Text(server, "?").reply, "again");
        m_talk->KillSocket();
    }
    EXPECT_EQ(sigaction(SIGUSR1, &before, nullptr), 0);
}

// ---- time-outs

TEST_F(CTcpIOTalkTest, TimeOutGivesMinus9999WithTheConnectionClosed) {
    for (const bool text : {true, false}) {
        calls::Reset();
        ScriptedServer server({
            [](Peer& peer) { EXPECT_TRUE(peer.WaitForClose()); },
            Answer("again\n"),
        });
        EXPECT_EQ((text ? Text(server, "?", kOneTick) : Binary(server.Port(), "abc", true, kOneTick)).code,
                  kTimedOut);
        EXPECT_EQ(calls::Count("close"), 1u);
        EXPECT_EQ(Text(server, "?").reply, "again");
        m_talk->KillSocket();
    }
}

TEST_F(CTcpIOTalkTest, EachTenUnitsAreOneTick) {
    for (const int timeout : {10, 19, 50, 1000}) {
        SCOPED_TRACE(timeout);
        calls::Reset();
        // Long enough for the receive to begin within one, also on a busy machine.
        calls::SetTickMicroseconds(timeout < 1000 ? 20'000 : 5'000);
        m_talk = std::make_unique<CTcpIOTalk>();
        ScriptedServer server({[](Peer& peer) { peer.WaitForClose(); }});
        EXPECT_EQ(Text(server, "?", timeout).code, kTimedOut);
        const auto ticks = static_cast<size_t>(timeout / 10);
        const size_t passed = calls::Log("shutdown").front().size;
        EXPECT_GE(passed, ticks - 1); // the last one shuts down before it sleeps
        EXPECT_LE(passed, ticks + 1); // and some may pass before the receive begins
    }
}

TEST_F(CTcpIOTalkTest, NegativeTimeOutNeverExpires) {
    for (const int timeout : {-1, -7, -1000, std::numeric_limits<int>::min()}) {
        SCOPED_TRACE(timeout);
        ScriptedServer server({[](Peer& peer) {
            peer.ReadLine();
            calls::WaitForTicks(calls::Ticks() + 120); // more than the longest limit of the talker would last
            peer.Send("late\n");
            peer.WaitForClose();
        }});
        EXPECT_EQ(Text(server, "?", timeout).reply, "late");
        m_talk->KillSocket();
    }
}

TEST_F(CTcpIOTalkTest, PacketThatStallsLeavesItsLength) {
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send(Packet(24, "ab"));
        EXPECT_TRUE(peer.WaitForClose());
    }});
    calls::OnTick([] { calls::WaitFor("recv", 1); });
    const Result result = Text(server, "?", 2 * kOneTick);
    EXPECT_EQ(result.code, kTimedOut);
    EXPECT_EQ(result.length, 24);
    EXPECT_EQ(result.reply, "");
}

TEST_F(CTcpIOTalkTest, TimeOutBelowOneTickWaitsAndThenReportsTimeOut) {
    for (const int timeout : {0, 1, 9}) {
        SCOPED_TRACE(timeout);
        calls::Reset();
        calls::SetTickMicroseconds(1000);
        ScriptedServer server({[](Peer& peer) {
            peer.ReadLine();
            peer.Send("reply\n");
            peer.WaitForClose();
        }});
        EXPECT_EQ(Text(server, "?", timeout).code, kTimedOut);
        EXPECT_EQ(calls::Count("recv"), 1u);
        EXPECT_EQ(calls::Log("recv").front().result, 6); // it did wait for the reply
        EXPECT_EQ(calls::Count("close"), 1u);
    }
}

TEST_F(CTcpIOTalkTest, TimeOutBelowOneTickWithoutAnExchangeLeavesTheConnection) {
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send("one\n");
        calls::WaitFor("recv", 1);
        peer.Send("two\n");
        peer.WaitForClose();
    }});
    ASSERT_EQ(Text(server, "?").code, kReplied);
    std::string reply;
    void* data;
    int length;
    EXPECT_EQ(m_talk->GetBinaryMessage(reply, data, length, 5, true), kTimedOut);
    EXPECT_EQ(calls::Count("close"), 0u);
}

TEST_F(CTcpIOTalkTest, LimitCountsForEachReceiveNotForTheWholeReply) {
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        for (size_t piece = 0; piece < 5; ++piece) {
            calls::WaitForTicks(calls::Ticks() + 12);
            peer.Send("x");
            calls::WaitFor("recv", piece + 1);
        }
        peer.Send("\n");
        peer.WaitForClose();
    }});
    EXPECT_EQ(Text(server, "?", 300).reply, "xxxxx"); // 30 ticks a receive, more than 60 in all
}

TEST_F(CTcpIOTalkTest, EveryDescriptorIsClosedOnceOverManyTimeOuts) {
    std::vector<Script> scripts(10, [](Peer& peer) { peer.WaitForClose(); });
    ScriptedServer server(scripts);
    for (size_t i = 0; i < scripts.size(); ++i) EXPECT_EQ(Text(server, "?", kOneTick).code, kTimedOut);
    m_talk.reset();
    EXPECT_EQ(calls::Count("socket"), scripts.size());
    EXPECT_EQ(calls::Count("close"), scripts.size());
}

// ---- the watchdog

TEST_F(CTcpIOTalkTest, WatchdogStartsOnceAndEndsWithTheObject) {
    std::thread([] {}).join(); // brings a sanitizer's own thread to life
    const size_t before = Entries("/proc/self/task");
    ScriptedServer server({[](Peer& peer) {
        for (int i = 0; i < 3; ++i) {
            peer.ReadLine();
            peer.Send("ok\n");
        }
        peer.WaitForClose();
    }});
    const size_t withServer = before + 1;
    for (int i = 0; i < 3; ++i) ASSERT_EQ(Text(server, "?").code, kReplied);
    EXPECT_EQ(Entries("/proc/self/task"), withServer + 1);
    m_talk.reset();
    server.Join();
    EXPECT_EQ(Entries("/proc/self/task"), before);
}

TEST_F(CTcpIOTalkTest, WatchdogRunsWithAllSignalsBlocked) {
    sigset_t blocked;
    std::atomic<bool> seen = false;
    calls::OnTick([&] {
        if (seen) return;
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        seen = true;
    });
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, nullptr, &before);
    ScriptedServer server({Answer("ok\n")});
    ASSERT_EQ(Text(server, "?").code, kReplied);
    EXPECT_TRUE(calls::WaitForTicks(1));
    m_talk.reset();
    ASSERT_TRUE(seen);
    for (const int number : {SIGINT, SIGTERM, SIGALRM, SIGPROF, SIGUSR1, SIGPIPE})
        EXPECT_TRUE(sigismember(&blocked, number)) << number;
    sigset_t after;
    pthread_sigmask(SIG_BLOCK, nullptr, &after);
    EXPECT_EQ(sigismember(&before, SIGUSR1), sigismember(&after, SIGUSR1));
}

TEST_F(CTcpIOTalkTest, WatchdogThatCannotBeStartedIsTriedAgain) {
    ScriptedServer server({[](Peer& peer) {
                               peer.ReadLine();
                               peer.Send("unwatched\n");
                               peer.WaitForClose();
                           },
                           [](Peer& peer) { peer.WaitForClose(); }});
    calls::FailThreads(1);
    EXPECT_EQ(Text(server, "?").reply, "unwatched");
    m_talk->KillSocket();
    EXPECT_EQ(Text(server, "?", kOneTick).code, kTimedOut);
}

TEST_F(CTcpIOTalkTest, ObjectWhoseWatchdogNeverStartedIsDestroyedAtOnce) {
    ScriptedServer server({Answer("ok\n")});
    calls::FailThreads(1);
    ASSERT_EQ(Text(server, "?").code, kReplied);
    m_talk.reset();
    EXPECT_EQ(calls::Ticks(), 0u);
}

// ---- host and port

TEST(CTcpIOTalkHosts, NamesThatAreNotLookedUp) {
    calls::Reset();
    for (const char* name : {static_cast<const char*>(nullptr), "", "127.0.0.1", "1host", "9"})
        EXPECT_EQ(CTcpIOTalk::TranslateAddress(name), nullptr);
    EXPECT_EQ(calls::Count("gethostbyname"), 0u);
}

TEST(CTcpIOTalkHosts, NameIsLookedUp) {
    calls::Reset();
    const hostent* host = CTcpIOTalk::TranslateAddress("localhost");
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(host->h_addrtype, AF_INET);
    ASSERT_NE(host->h_addr_list[0], nullptr);
    EXPECT_EQ(std::string(host->h_addr_list[0], 4), std::string("\x7F\0\0\1", 4));
    EXPECT_EQ(calls::Count("gethostbyname"), 1u);
}

TEST(CTcpIOTalkHosts, ExceptionOfTheLookUpIsSwallowed) {
    calls::Reset();
    calls::AnswerLookUps([](const char*) -> hostent* { throw std::string("resolver broke"); });
    EXPECT_EQ(CTcpIOTalk::TranslateAddress("name"), nullptr);
    calls::Reset();
}

TEST_F(CTcpIOTalkTest, ConnectsByName) {
    ScriptedServer server({Answer("by name\n")});
    EXPECT_EQ(Text("localhost", server.Port(), "?").reply, "by name");
}

TEST_F(CTcpIOTalkTest, HostsThatCannotBeConnectedTo) {
    const int port = RefusedPort();
    calls::AnswerLookUps([](const char*) -> hostent* { return nullptr; });
    struct Case {
        const char* host;
        int text;
        int binary;
        size_t connects;
    };
    const Case cases[] = {
        {nullptr, -1, -1, 0},
        {"", -1, -1, 0},
        {"::1", -1, -1, 0}, // looked up as a name, and there is none
        {"fe80::1", -1, -1, 0},
        {"no.such.host", -1, -1, 0},
        {" 127.0.0.1", -1, -1, 0},       // the first character decides
        {"0.0.0.0", -1, kSendFailed, 0}, // no address to connect to
        {"0", -1, kSendFailed, 0},
        {"2001:db8::1", -1, kSendFailed, 4}, // as the next one
        {"1.2.3.4.5", -1, kSendFailed,
         4}, // not a dotted quad after all: the broadcast address, refused by the system
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.host ? c.host : "null");
        m_talk = std::make_unique<CTcpIOTalk>();
        EXPECT_EQ(Text(c.host, port, "?").code, c.text);
        EXPECT_EQ(Binary(c.host, port, "abc", 3, true, kTenSeconds).code, c.binary);
        EXPECT_EQ(calls::Count("connect"), c.connects);
        EXPECT_EQ(calls::Count("socket"), calls::Count("close"));
        calls::Reset();
        calls::AnswerLookUps([](const char*) -> hostent* { return nullptr; });
    }
}

TEST_F(CTcpIOTalkTest, NamesThatTheSystemDoesNotKnowAreNoConnection) {
    const int port = RefusedPort();
    for (const std::string& host : {std::string("::1"), std::string("fe80::1"), std::string(60000, 'a')}) {
        SCOPED_TRACE(host.substr(0, 10));
        m_talk = std::make_unique<CTcpIOTalk>();
        EXPECT_EQ(Text(host.c_str(), port, "?").code, kNoConnection);
        EXPECT_EQ(Binary(host.c_str(), port, "abc", 3, true, kTenSeconds).code, kNoConnection);
    }
    EXPECT_EQ(calls::Count("gethostbyname"), 3u);
    EXPECT_EQ(calls::Count("connect"), 0u);
    EXPECT_EQ(Text(std::string(60000, '1').c_str(), port + 1, "?").code,
              kNoConnection); // taken for a dotted quad
    EXPECT_EQ(calls::Count("gethostbyname"), 3u);
}

TEST_F(CTcpIOTalkTest, DottedQuadsInEveryWritingConnect) {
    for (const char* host : {"127.0.0.1", "127.1", "127.0.1", "2130706433", "0x7f.0.0.1", "0x7F000001",
                             "0177.0.0.1", "127.0.0.01", "127.0.0.1 x"}) {
        SCOPED_TRACE(host);
        ScriptedServer server({Answer("found\n")});
        EXPECT_EQ(Text(host, server.Port(), "?").reply, "found");
        m_talk->KillSocket();
    }
    EXPECT_EQ(calls::Count("gethostbyname"), 0u);
}

TEST_F(CTcpIOTalkTest, PortsAreTheirLow16Bits) {
    for (const int surplus : {65536, -65536, 0x7FFF0000, std::numeric_limits<int>::min()}) {
        SCOPED_TRACE(surplus);
        for (const char* host : {kHost, "localhost"}) {
            ScriptedServer server({Answer("found\n")});
            EXPECT_EQ(Text(host, server.Port() + surplus, "?").reply, "found");
            m_talk->KillSocket();
        }
    }
}

// No port is the port that a new object has recorded already: a name is not even looked up.
TEST_F(CTcpIOTalkTest, PortZeroReachesNobody) {
    for (const int port : {0, 65536, -65536, std::numeric_limits<int>::min()}) {
        SCOPED_TRACE(port);
        EXPECT_EQ(Text("localhost", port, "?").code, kNoConnection);
        EXPECT_EQ(Binary("localhost", port, "abc", 3, true, kTenSeconds).code, kNoConnection);
        EXPECT_EQ(Text(kHost, port, "?").code, kNoConnection);
        EXPECT_EQ(Binary(port, "abc", true).code, kSendFailed);
    }
    EXPECT_EQ(calls::Count("gethostbyname"), 0u);
    EXPECT_EQ(calls::Count("socket"), calls::Count("close"));
}

TEST_F(CTcpIOTalkTest, LookedUpHostGoesBeforeADottedQuadWithTheSamePort) {
    ScriptedServer server({Answer("the host that was looked up\n")});
    m_talk->SetHostEnt("localhost", server.Port());
    EXPECT_EQ(Text("127.0.0.2", server.Port(), "?").reply, "the host that was looked up");
    EXPECT_EQ(calls::Count("connect"), 1u);
}

TEST_F(CTcpIOTalkTest, LookUpWithoutIPv4AddressIsAFailedConnect) {
    static char name[] = "six";
    static char* none[] = {nullptr};
    static char six[16] = {};
    static char* sixes[] = {six, nullptr};
    static hostent empty{name, none, AF_INET, 4, none};
    static hostent ipv6{name, none, AF_INET6, 16, sixes};
    static hostent noList{name, none, AF_INET, 4, nullptr};
    for (hostent* answer : {&empty, &ipv6, &noList}) {
        calls::AnswerLookUps([answer](const char*) { return answer; });
        EXPECT_EQ(Text("six", 5000, "?").code, kNoConnection);
        EXPECT_EQ(Binary("six", 5000, "abc", 3, true, kTenSeconds).code, kSendFailed);
    }
    EXPECT_EQ(calls::Count("connect"), 0u);
}

TEST_F(CTcpIOTalkTest, FailedLookUpIsRepeatedOnlyWhenThePortChanges) {
    calls::AnswerLookUps([](const char*) -> hostent* { return nullptr; });
    EXPECT_EQ(Text("unknown", 5000, "?").code, kNoConnection);
    EXPECT_EQ(Text("unknown", 5000, "?").code, kNoConnection);
    EXPECT_EQ(Text("other", 5000, "?").code, kNoConnection);
    EXPECT_EQ(calls::Count("gethostbyname"), 1u);
    EXPECT_EQ(Text("unknown", 5001, "?").code, kNoConnection);
    EXPECT_EQ(calls::Count("gethostbyname"), 2u);
    EXPECT_EQ(Text("unknown", 5001 + 65536, "?").code, kNoConnection); // the low 16 bits are the port
    EXPECT_EQ(calls::Count("gethostbyname"), 2u);
}

TEST_F(CTcpIOTalkTest, ClosedConnectionLooksTheHostUpAgain) {
    ScriptedServer server({Answer("1\n"), Answer("2\n")});
    EXPECT_EQ(Text("localhost", server.Port(), "?").reply, "1");
    m_talk->KillSocket();
    EXPECT_EQ(Text("localhost", server.Port(), "?").reply, "2");
    EXPECT_EQ(calls::Count("gethostbyname"), 2u);
}

TEST_F(CTcpIOTalkTest, OpenConnectionIgnoresHostAndPort) {
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send("1\n");
        peer.ReadLine();
        peer.Send("2\n");
        peer.WaitForClose();
    }});
    EXPECT_EQ(Text(server, "?").reply, "1");
    EXPECT_EQ(Text("elsewhere", 1, "?").reply, "2");
    EXPECT_EQ(calls::Count("gethostbyname"), 0u);
}

TEST_F(CTcpIOTalkTest, SetHostEntWithAnotherPortClosesTheConnection) {
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send("1\n");
        EXPECT_TRUE(peer.WaitForClose());
    }});
    ASSERT_EQ(Text(server, "?").code, kReplied);
    m_talk->SetHostEnt(kHost, server.Port());
    EXPECT_EQ(calls::Count("close"), 0u);
    m_talk->SetHostEnt(kHost, server.Port() + 1);
    EXPECT_EQ(calls::Count("close"), 1u);
}

TEST_F(CTcpIOTalkTest, StepsCanBeCalledOneByOne) {
    ScriptedServer server({[](Peer& peer) { EXPECT_TRUE(peer.WaitForClose()); }});
    m_talk->SetHostEnt("localhost", server.Port());
    m_talk->MakeSocket();
    m_talk->MakeSocket();
    m_talk->ConnectSocket(0);
    m_talk->ConnectSocket(0);
    m_talk->KillSocket();
    m_talk->KillSocket();
    std::vector<std::string> sequence;
    for (const calls::Event& event : calls::Log()) sequence.push_back(event.call);
    EXPECT_EQ(sequence,
              (std::vector<std::string>{"gethostbyname", "socket", "connect", "shutdown", "close"}));
    EXPECT_EQ(calls::Log("shutdown").front().flags, SHUT_RDWR);
}

TEST_F(CTcpIOTalkTest, ConnectingWithoutASocketLeavesEverythingAsItWas) {
    ScriptedServer server({Answer("ok\n")});
    m_talk->SetHostEnt("localhost", server.Port());
    m_talk->ConnectSocket(0);
    m_talk->ConnectSocket(inet_addr(kHost));
    EXPECT_EQ(calls::Count("close"), 0u);
    EXPECT_EQ(Text("localhost", server.Port(), "?").reply, "ok");
    EXPECT_EQ(calls::Count("gethostbyname"), 1u);
}

TEST_F(CTcpIOTalkTest, DescriptorZeroIsASocketLikeOthers) {
    ScriptedServer server({Answer("text\n"), [](Peer& peer) {
                               peer.Read(3);
                               peer.Send("raw");
                               peer.WaitForClose();
                           }});
    const int standardInput = fcntl(STDIN_FILENO, F_DUPFD, 100); // from where it is not in the way
    for (const bool text : {true, false}) {
        close(STDIN_FILENO);
        if (text) {
            EXPECT_EQ(Text(server, "?").reply, "text");
        } else {
            EXPECT_EQ(Binary(server.Port(), "abc", true).data, "raw");
        }
        EXPECT_EQ(calls::Log("socket").back().socket, STDIN_FILENO);
        m_talk->KillSocket();
        EXPECT_EQ(calls::Log("close").back().socket, STDIN_FILENO);
    }
    if (standardInput >= 0) {
        dup2(standardInput, STDIN_FILENO);
        close(standardInput);
    }
}

TEST_F(CTcpIOTalkTest, SocketThatIsNotConnectedIsReplacedByTheNextTextExchange) {
    ScriptedServer server({Answer("ok\n")});
    m_talk->MakeSocket();
    EXPECT_EQ(Text(server, "?").code, kNoConnection);
    EXPECT_EQ(calls::Count("close"), 1u);
    EXPECT_EQ(Text(server, "?").reply, "ok");
}

TEST(CTcpIOTalkHosts, ObjectsOnTwoThreadsKeepTheirOwnHosts) {
    calls::Reset();
    ScriptedServer one({Answer("one\n")});
    ScriptedServer two({Answer("two\n")});
    static char names[] = "host";
    static char* none[] = {nullptr};
    static char address[4];
    static char* list[] = {address, nullptr};
    static hostent shared{names, none, AF_INET, 4, list};
    calls::AnswerLookUps([](const char* name) { // one static answer for everybody, as the resolver gives it
        const in_addr_t wanted = inet_addr(*name == 'a' ? "127.0.0.1" : "127.0.0.2");
        std::memcpy(address, &wanted, sizeof address);
        return &shared;
    });
    CTcpIOTalk* first = new CTcpIOTalk;
    first->SetHostEnt("a", one.Port());
    const hostent* other = CTcpIOTalk::TranslateAddress("b");
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(std::string(other->h_addr_list[0], 4), std::string("\x7F\0\0\2", 4));
    first->MakeSocket();
    first->ConnectSocket(0); // still 127.0.0.1: the later look-up has not touched it
    std::string reply;
    void* data;
    int length;
    EXPECT_EQ(first->SendTcpMessage("a", one.Port(), "?", reply, data, length, kTenSeconds), 1);
    EXPECT_EQ(reply, "one");
    delete first;
    calls::Reset();
}

// ---- replies collected from several receives (negative port)

TEST_F(CTcpIOTalkTest, NegativePortCollectsPieces) {
    const std::string packet = Packet(8188, std::string(8180, 'q'));
    ScriptedServer server({[&](Peer& peer) {
        peer.Read(1);
        const std::vector<std::string> pieces = {packet.substr(0, 10), packet.substr(10, 4000),
                                                 packet.substr(4010)};
        for (size_t i = 0; i < pieces.size(); ++i) {
            peer.Send(pieces[i]);
            calls::WaitFor("recv", i + 1);
        }
        peer.WaitForClose();
    }});
    const Result result = Binary(server.Port() - 65536, "a", true);
    EXPECT_EQ(result.code, kReplied);
    EXPECT_EQ(result.length, 8188);
    EXPECT_EQ(result.data, packet);
    EXPECT_EQ(result.reply, "");
}

TEST_F(CTcpIOTalkTest, NegativePortTakesACompleteReplyAsItIs) {
    struct Case {
        const char* name;
        std::string reply;
    };
    const Case cases[] = {
        {"nothing expected", Words({0x0000FFFF})},
        {"exactly as expected", Words({0x00020000, 5})},
        {"more than expected", Words({0x00020000, 5, 6})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedServer server({[&](Peer& peer) {
            peer.Read(1);
            peer.Send(c.reply);
            peer.WaitForClose();
        }});
        const size_t before = calls::Count("recv");
        EXPECT_EQ(Binary(server.Port() - 65536, "a", true).data, c.reply);
        EXPECT_EQ(calls::Count("recv"), before + 1);
        m_talk->KillSocket();
    }
}

TEST_F(CTcpIOTalkTest, CollectedReplyThatBreaksOffStillSucceeds) {
    ScriptedServer server({
        [&](Peer& peer) {
            peer.Read(1);
            peer.Send(Packet(8188, "begin"));
        },
        Answer("next\n"),
    });
    const Result result = Binary(server.Port() - 65536, "a", true);
    EXPECT_EQ(result.code, kReplied);
    EXPECT_EQ(result.length, 13);
    EXPECT_EQ(calls::Count("close"), 1u);
    EXPECT_EQ(Text(server, "?").reply, "next");
}

TEST_F(CTcpIOTalkTest, CollectedReplyThatBreaksOffTellsHowMuchCame) {
    ScriptedServer server({[&](Peer& peer) {
        peer.Read(1);
        peer.Send(Packet(8188, "begin"));
        calls::WaitFor("recv", 1);
        peer.Send("xyz");
        calls::WaitFor("recv", 2);
    }});
    const Result result = Binary(server.Port() - 65536, "a", true);
    EXPECT_EQ(result.code, kReplied);
    EXPECT_EQ(result.length, 16); // of both pieces, though they are not put together any more:
    EXPECT_EQ(result.data,
              std::string("\0yz\0\xFC\x1F\0\0begin\0\0\0", 16)); // the last one lies over the first
    EXPECT_EQ(result.reply, "");
}

TEST_F(CTcpIOTalkTest, CollectedReplyThatTimesOutStillSucceeds) {
    ScriptedServer server({[&](Peer& peer) {
        peer.Read(1);
        peer.Send(Packet(8188, "begin"));
        EXPECT_TRUE(peer.WaitForClose());
    }});
    EXPECT_EQ(Binary(server.Port() - 65536, "a", true, 500).code, kReplied);
    EXPECT_EQ(calls::Count("close"), 1u);
}

TEST_F(CTcpIOTalkTest, CollectedReplyStaysInsideTheBuffer) {
    const std::string first = Words({0xFFFF0000}); // asks for 262,140 bytes
    const std::string second(262135, 'a');         // one byte short of it
    const std::string third(CTcpIOTalk::kBufferSize, 'b');
    ScriptedServer server({[&](Peer& peer) {
        peer.Read(1);
        peer.Send(first);
        calls::WaitFor("recv", 1);
        peer.Send(second);
        peer.Send(third);
        peer.WaitForClose();
    }});
    const Result result = Binary(server.Port() - 65536, "a", true);
    EXPECT_EQ(result.code, kReplied);
    EXPECT_GE(result.length, 262140);
    EXPECT_LE(result.length, CTcpIOTalk::kBufferSize);
    EXPECT_EQ(result.data, (first + second + third).substr(0, static_cast<size_t>(result.length)));
}

TEST_F(CTcpIOTalkTest, NegativePortCollectsPacketsInTextMode) {
    const std::string one = Packet(4000, std::string(3992, '1'));
    const std::string two = Packet(5000, std::string(4992, '2'));
    ScriptedServer server({[&](Peer& peer) {
        peer.Read(1);
        peer.Send(one);
        calls::WaitFor("recv", 1);
        peer.Send(two);
        peer.WaitForClose();
    }});
    const Result result = Binary(server.Port() - 65536, "a", false);
    EXPECT_EQ(result.code, kReplied);
    EXPECT_EQ(result.data, one + two);
}

// ---- own addresses

ifaddrs* Interfaces(const std::vector<std::pair<int, const char*>>& entries) {
    static std::vector<sockaddr_storage> addresses;
    static std::vector<ifaddrs> list;
    addresses.assign(entries.size(), {});
    list.assign(entries.size(), {});
    for (size_t i = 0; i < entries.size(); ++i) {
        const auto [family, text] = entries[i];
        auto* address = reinterpret_cast<sockaddr*>(&addresses[i]);
        address->sa_family = static_cast<sa_family_t>(family);
        if (family == AF_INET && text)
            inet_pton(AF_INET, text, &reinterpret_cast<sockaddr_in*>(address)->sin_addr);
        if (family == AF_INET6)
            inet_pton(AF_INET6, text, &reinterpret_cast<sockaddr_in6*>(address)->sin6_addr);
        list[i].ifa_addr = text ? address : nullptr;
        list[i].ifa_next = i + 1 < entries.size() ? &list[i + 1] : nullptr;
    }
    return entries.empty() ? nullptr : list.data();
}

TEST_F(CTcpIOTalkTest, AddressesOfThisMachine) {
    struct Case {
        const char* name;
        std::vector<std::pair<int, const char*>> entries;
        int index;
        const char* want;
    };
    const std::vector<std::pair<int, const char*>> three = {
        {AF_INET, "127.0.0.1"}, {AF_INET, "192.168.1.10"}, {AF_INET, "10.0.0.7"}};
    const std::vector<Case> cases = {
        {"no list", {}, 0, ""},
        {"loopback only", {{AF_INET, "127.0.0.1"}}, 0, ""},
        {"loopback only, any index", {{AF_INET, "127.0.0.1"}}, 5, ""},
        {"first", three, 0, "192.168.1.10"},
        {"second", three, 1, "10.0.0.7"},
        {"just past the end", three, 2, "192.168.1.10"},
        {"far past the end", three, 57, "192.168.1.10"},
        {"negative", three, -1, "192.168.1.10"},
        {"the lowest", three, std::numeric_limits<int>::min(), "192.168.1.10"},
        {"the highest", three, std::numeric_limits<int>::max(), "192.168.1.10"},
        {"other loopback addresses stay", {{AF_INET, "127.0.1.1"}}, 0, "127.0.1.1"},
        {"IPv6 contributes nothing", {{AF_INET6, "fe80::1"}, {AF_INET6, "::1"}}, 0, ""},
        {"other families are skipped", {{AF_PACKET, "x"}, {AF_INET, "10.1.1.1"}}, 0, "10.1.1.1"},
        {"entries without an address are skipped",
         {{AF_INET, nullptr}, {AF_INET, "10.1.1.2"}},
         0,
         "10.1.1.2"},
        {"duplicates stay",
         {{AF_INET, "10.1.1.3"}, {AF_INET, "10.1.1.3"}, {AF_INET, "10.1.1.4"}},
         2,
         "10.1.1.4"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        calls::AnswerInterfaces([&] { return Interfaces(c.entries); });
        EXPECT_EQ(m_talk->GetIPAddress(c.index), c.want);
    }
    EXPECT_TRUE(calls::Log().empty());
}

TEST_F(CTcpIOTalkTest, RealAddressesOfThisMachineNeverIncludeTheLoopback) {
    for (int index = 0; index < 4; ++index) {
        const std::string address = m_talk->GetIPAddress(index);
        EXPECT_NE(address, "127.0.0.1");
        in_addr parsed;
        EXPECT_TRUE(address.empty() || inet_pton(AF_INET, address.c_str(), &parsed) == 1) << address;
    }
}

} // namespace
