#include "tools/checks/RawConnection.h"

#include "tests/support/ScriptedServer.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx::tool;
using namespace std::chrono_literals;

asio::ip::tcp::endpoint Local(int port) {
    return {asio::ip::make_address("127.0.0.1"), static_cast<std::uint16_t>(port)};
}

/// What ReadReply makes of a server that sends these pieces, each when the one before has been taken.
RawReply ReplyOf(const std::vector<std::string>& pieces) {
    ScriptedServer server({[&](Peer& peer) {
        for (const std::string& piece : pieces) {
            peer.Send(piece);
            peer.ReadLine();
        }
    }});
    RawConnection connection(10s);
    EXPECT_FALSE(connection.Connect(Local(server.Port())));
    EXPECT_FALSE(connection.Send(std::string(pieces.size(), '\n')));
    return ReadReply(connection);
}

TEST(RawConnection, SendsAndReceives) {
    ScriptedServer server({[](Peer& peer) { peer.Send("got " + peer.ReadLine()); }});
    RawConnection connection(10s);
    ASSERT_FALSE(connection.Connect(Local(server.Port())));
    ASSERT_FALSE(connection.Send("hello\n"));
    std::string bytes;
    asio::error_code error;
    while (!error && bytes.find('\n') == std::string::npos) error = connection.Receive(bytes);
    EXPECT_EQ(bytes, "got hello\n");
    while (!error) error = connection.Receive(bytes);
    EXPECT_EQ(error, asio::error::eof);
}

TEST(RawConnection, IsRefusedWhereNothingListens) {
    RawConnection connection(10s);
    EXPECT_EQ(connection.Connect(Local(RefusedPort())), asio::error::connection_refused);
}

TEST(RawConnection, GivesUpWhatTakesTooLong) {
    ScriptedServer server({[](Peer& peer) { peer.WaitForClose(); }});
    RawConnection connection(20ms);
    ASSERT_FALSE(connection.Connect(Local(server.Port())));
    std::string bytes;
    EXPECT_EQ(connection.Receive(bytes), asio::error::timed_out);
    EXPECT_EQ(bytes, "");
}

TEST(ReadReply, TakesAPacketByItsLength) {
    const std::string packet = Words({0x07FF0003, 12, 0x12345678});
    const RawReply reply = ReplyOf({packet});
    EXPECT_FALSE(reply.error);
    EXPECT_TRUE(reply.isPacket);
    EXPECT_EQ(reply.bytes, packet);
    EXPECT_EQ(reply.pieces, 1U);
    EXPECT_EQ(reply.firstPiece, 12U);
}

TEST(ReadReply, TakesATextUpToItsLineFeedHoweverItIsCut) {
    for (const std::vector<std::string>& pieces : {std::vector<std::string>{"error: no such thing\n"},
                                                   {"error: no ", "such thing\n"},
                                                   {"e", "rror: no such thing", "\n"}}) {
        const RawReply reply = ReplyOf(pieces);
        EXPECT_FALSE(reply.error);
        EXPECT_FALSE(reply.isPacket);
        EXPECT_EQ(reply.bytes, "error: no such thing\n");
    }
}

TEST(ReadReply, EndsWithTheStream) {
    const RawReply reply = ReplyOf({Words({0x07FF0003, 400, 1})});
    EXPECT_EQ(reply.error, asio::error::eof);
    EXPECT_TRUE(reply.isPacket);
    EXPECT_EQ(reply.bytes.size(), 12U);
}

TEST(ReadReply, HoldsNoMoreThanTheTalkerCould) {
    const RawReply reply = ReplyOf({Words({0x07FF0003, 0xFFFFFFFF}) + std::string(3 << 20, 'x')});
    EXPECT_GE(reply.bytes.size(), std::size_t{1} << 20);
    EXPECT_LT(reply.bytes.size(), std::size_t{2} << 20);
}

/// What comes of asking a server that answers the connect text, and then each line with the next of these.
WholeReplies CountOf(const std::vector<std::string>& replies, int times) {
    ScriptedServer server({[&](Peer& peer) {
        EXPECT_EQ(peer.ReadLine(), "connect,here,0\n");
        peer.Send("conn");
        peer.Send("ected\n");
        for (const std::string& reply : replies) {
            EXPECT_EQ(peer.ReadLine(), "x\n");
            peer.Send(reply);
        }
    }});
    RawConnection connection(10s);
    EXPECT_FALSE(connection.Open(Local(server.Port()), "connect,here,0\n"));
    return CountWholeReplies(connection, "x\n", times);
}

TEST(CountWholeReplies, EndsWithTheFirstReplyThatIsNoPacketInOnePiece) {
    const std::string packet = Words({0x07FF0003, 12, 1});
    const WholeReplies all = CountOf({packet, packet, packet}, 3);
    EXPECT_EQ(all.whole, 3);
    EXPECT_EQ(all.last.bytes, packet);
    const WholeReplies text = CountOf({packet, "no\n"}, 3);
    EXPECT_EQ(text.whole, 1);
    EXPECT_EQ(text.last.bytes, "no\n");
    const WholeReplies ended = CountOf({packet}, 3);
    EXPECT_EQ(ended.whole, 1);
    EXPECT_TRUE(ended.last.error);
}

TEST(LookUp, FindsAnAddressOrSaysWhyNot) {
    asio::error_code error;
    EXPECT_EQ(LookUp("127.0.0.1", 7000, error), Local(7000));
    EXPECT_FALSE(error);
    (void)LookUp("no.such.host.invalid", 7000, error);
    EXPECT_TRUE(error);
}

} // namespace
