#include "tools/capture/ExchangeAssembler.h"

#include "tests/tools/capture/Requests.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace vrx::tool;
using namespace std::string_literals;

namespace {

const std::string kRequest = BlockRequest({1, 2});
const std::string kReply = BlockReply({3, 4});

class ExchangeAssemblerTest : public testing::Test {
protected:
    void Open(std::uint64_t connection = 1, const char* server = "127.0.0.1:7000") {
        m_assembler.Take({CaptureEvent::kOpened, Side::kClient, connection, ++m_time, server});
    }
    void Client(const std::string& bytes, std::uint64_t connection = 1) {
        m_assembler.Take({CaptureEvent::kBytes, Side::kClient, connection, ++m_time, bytes});
    }
    void Server(const std::string& bytes, std::uint64_t connection = 1) {
        m_assembler.Take({CaptureEvent::kBytes, Side::kServer, connection, ++m_time, bytes});
    }
    void Event(CaptureEvent::Kind kind, Side from, std::uint64_t connection = 1) {
        m_assembler.Take({kind, from, connection, ++m_time, {}});
    }
    std::vector<Exchange> Finished() {
        std::vector<Exchange> all;
        for (Exchange each; m_assembler.Next(each);) all.push_back(each);
        return all;
    }
    std::vector<Exchange> End() {
        m_assembler.Finish();
        return Finished();
    }

    ExchangeAssembler m_assembler{true};
    std::int64_t m_time = 0;
};

} // namespace

TEST_F(ExchangeAssemblerTest, PairsRequestsAndReplies) {
    Open();
    Client("connect,127.0.0.1,0\n");
    Server("connected\n");
    Client(kRequest);
    Server(kReply);
    Event(CaptureEvent::kClosed, Side::kClient);
    Event(CaptureEvent::kClosed, Side::kServer);
    const auto all = Finished();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].number, 1U);
    EXPECT_EQ(all[0].kind, Exchange::kLine);
    EXPECT_EQ(all[0].request, "connect,127.0.0.1,0\n");
    EXPECT_EQ(ReplyBytes(all[0]), "connected\n");
    EXPECT_TRUE(all[0].whole);
    EXPECT_FALSE(all[0].last);
    EXPECT_EQ(all[1].number, 2U);
    EXPECT_EQ(all[1].kind, Exchange::kPacket);
    EXPECT_EQ(all[1].request, kRequest);
    EXPECT_EQ(ReplyBytes(all[1]), kReply);
    EXPECT_TRUE(all[1].last);
    EXPECT_FALSE(all[1].cut);
    EXPECT_EQ(all[1].end, ServerEnd::kStays) << "the client hung up first";
    EXPECT_EQ(all[1].closed, 6);
}

TEST_F(ExchangeAssemblerTest, HandsAnExchangeOnWithTheNextRequest) {
    Open();
    Client("a\n");
    Server("b\n");
    EXPECT_TRUE(Finished().empty());
    Client("c\n");
    EXPECT_EQ(Finished().size(), 1U);
}

TEST_F(ExchangeAssemblerTest, KeepsThePiecesOfAReplyAndTheirTimes) {
    Open();
    Client(kRequest);
    Server(kReply.substr(0, 10));
    Server(kReply.substr(10));
    const auto all = End();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].asked, 2);
    ASSERT_EQ(all[0].reply.size(), 2U);
    EXPECT_EQ(all[0].reply[0].bytes, kReply.substr(0, 10));
    EXPECT_EQ(all[0].reply[0].time, 3);
    EXPECT_EQ(all[0].reply[1].time, 4);
}

TEST_F(ExchangeAssemblerTest, JoinsARequestThatComesInPieces) {
    Open();
    Client(kRequest.substr(0, 3));
    Client(kRequest.substr(3, 30));
    Client(kRequest.substr(33) + "help\nstat");
    Client("us\n");
    Server(kReply + "commands\n");
    Server("clients=1\n");
    const auto all = End();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].request, kRequest);
    EXPECT_EQ(ReplyBytes(all[0]), kReply);
    EXPECT_EQ(all[1].request, "help\n");
    EXPECT_EQ(ReplyBytes(all[1]), "commands\n");
    EXPECT_EQ(all[2].request, "status\n");
    EXPECT_EQ(ReplyBytes(all[2]), "clients=1\n");
}

TEST_F(ExchangeAssemblerTest, LeavesLatePiecesWithTheRequestTheyAnswer) {
    Open();
    Client(kRequest);
    Server(kReply.substr(0, 10));
    Client(kRequest);
    Server(kReply.substr(10));
    Server(kReply);
    const auto all = End();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(ReplyBytes(all[0]), kReply);
    EXPECT_EQ(ReplyBytes(all[1]), kReply);
}

TEST_F(ExchangeAssemblerTest, KeepsASecondCopyWithItsRequest) {
    Open();
    Client(kRequest);
    Server(kReply);
    Server(kReply);
    Client(kRequest);
    Server(kReply);
    const auto all = End();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(ReplyBytes(all[0]), kReply + kReply);
    EXPECT_EQ(ReplyBytes(all[1]), kReply);
}

TEST_F(ExchangeAssemblerTest, ASpoiltReplyIsOverWithTheNextRequest) {
    const std::string wrongTag = "\x04" + kReply.substr(1);
    std::string wrongLength = kReply;
    wrongLength[4] = '\x7F';
    for (const std::string& spoilt : {wrongTag, wrongLength}) {
        ExchangeAssembler assembler(true);
        assembler.Take({CaptureEvent::kOpened, Side::kClient, 1, 0, "s:1"});
        assembler.Take({CaptureEvent::kBytes, Side::kClient, 1, 1, kRequest});
        assembler.Take({CaptureEvent::kBytes, Side::kServer, 1, 2, spoilt});
        assembler.Take({CaptureEvent::kBytes, Side::kClient, 1, 3, kRequest});
        assembler.Take({CaptureEvent::kBytes, Side::kServer, 1, 4, kReply});
        assembler.Take({CaptureEvent::kReset, Side::kClient, 1, 5, {}});
        Exchange exchange;
        ASSERT_TRUE(assembler.Next(exchange));
        EXPECT_EQ(ReplyBytes(exchange), spoilt);
        EXPECT_FALSE(exchange.whole);
        ASSERT_TRUE(assembler.Next(exchange));
        EXPECT_EQ(ReplyBytes(exchange), kReply);
    }
}

TEST_F(ExchangeAssemblerTest, SaysHowTheServerEndedTheConnection) {
    struct Case {
        CaptureEvent::Kind kind;
        ServerEnd end;
    };
    for (const Case& c :
         {Case{CaptureEvent::kClosed, ServerEnd::kCloses}, Case{CaptureEvent::kReset, ServerEnd::kResets}}) {
        ExchangeAssembler assembler(true);
        assembler.Take({CaptureEvent::kOpened, Side::kClient, 1, 0, "s:1"});
        assembler.Take({CaptureEvent::kBytes, Side::kClient, 1, 1, kRequest});
        assembler.Take({CaptureEvent::kBytes, Side::kServer, 1, 2, kReply.substr(0, 6)});
        assembler.Take({c.kind, Side::kServer, 1, 3, {}});
        assembler.Finish();
        Exchange exchange;
        ASSERT_TRUE(assembler.Next(exchange));
        EXPECT_EQ(exchange.end, c.end);
        EXPECT_EQ(exchange.ended, 3);
        EXPECT_FALSE(exchange.whole);
        EXPECT_FALSE(exchange.cut) << "it was the server who ended it";
    }
}

TEST_F(ExchangeAssemblerTest, SaysThatTheClientHungUpBeforeTheReply) {
    Open();
    Client(kRequest);
    Event(CaptureEvent::kClosed, Side::kClient);
    Event(CaptureEvent::kClosed, Side::kServer);
    const auto all = Finished();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_TRUE(all[0].cut);
    EXPECT_TRUE(all[0].reply.empty());
    EXPECT_EQ(all[0].end, ServerEnd::kStays);
}

TEST_F(ExchangeAssemblerTest, AnswersAfterAHalfCloseCount) {
    Open();
    Client("status\n");
    Event(CaptureEvent::kClosed, Side::kClient);
    Server("clients=1\n");
    Event(CaptureEvent::kClosed, Side::kServer);
    const auto all = Finished();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(ReplyBytes(all[0]), "clients=1\n");
    EXPECT_FALSE(all[0].cut);
}

TEST_F(ExchangeAssemblerTest, ASpeakingServerEndsAGarbledRequest) {
    Open();
    Client("\x01\x02");
    Server("error: neither\n");
    Event(CaptureEvent::kClosed, Side::kServer);
    const auto all = End();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].kind, Exchange::kBytes);
    EXPECT_EQ(all[0].request, "\x01\x02");
    EXPECT_EQ(ReplyBytes(all[0]), "error: neither\n");
    EXPECT_EQ(all[0].end, ServerEnd::kCloses);
}

TEST_F(ExchangeAssemblerTest, KeepsWhatAServerSaysFirst) {
    Open();
    Server("error: too many clients\n");
    Event(CaptureEvent::kClosed, Side::kServer);
    const auto all = End();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].kind, Exchange::kNothing);
    EXPECT_EQ(ReplyBytes(all[0]), "error: too many clients\n");
}

TEST_F(ExchangeAssemblerTest, NumbersRequestsOverAllConnections) {
    Open(1);
    Open(2);
    Client("a\n", 1);
    Client("b\n", 2);
    Server("B\n", 2);
    Event(CaptureEvent::kReset, Side::kClient, 2);
    Server("A\n", 1);
    Event(CaptureEvent::kReset, Side::kClient, 1);
    const auto all = Finished();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].number, 2U);
    EXPECT_EQ(all[0].connection, 2U);
    EXPECT_EQ(all[1].number, 1U);
}

TEST_F(ExchangeAssemblerTest, LeavesOutWhatWasUnderWayAtTheEndOfTheFile) {
    Open();
    Client("a\n");
    Server("A\n");
    Client(kRequest);
    Server(kReply.substr(0, 20));
    EXPECT_EQ(End().size(), 1U);
    EXPECT_EQ(m_assembler.Unfinished(), 1U);
}

TEST(ExchangeAssembler, LeavesOutConnectionsThatAreNoTalkers) {
    struct Case {
        const char* name;
        std::string first;
        std::size_t count;
    };
    const Case cases[] = {
        {"a talker", "connect,h,1\n", 1},
        {"a block", kRequest, 1},
        {"another protocol's line", "GET / HTTP/1.1\r\n", 0},
        {"a short line", "x\n", 0},
        {"binary", std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xFC\x03", 10), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ExchangeAssembler assembler(false);
        assembler.Take({CaptureEvent::kOpened, Side::kClient, 1, 0, "s:1"});
        assembler.Take({CaptureEvent::kBytes, Side::kClient, 1, 1, c.first});
        assembler.Take({CaptureEvent::kBytes, Side::kServer, 1, 2, "y\n"});
        assembler.Take({CaptureEvent::kReset, Side::kClient, 1, 3, {}});
        assembler.Finish();
        std::size_t count = 0;
        for (Exchange each; assembler.Next(each);) ++count;
        EXPECT_EQ(count, c.count);
    }
}

TEST(ExchangeAssembler, CountsEveryConnectionToATalkersServer) {
    ExchangeAssembler assembler(false);
    assembler.Take({CaptureEvent::kOpened, Side::kClient, 1, 0, "s:1"});
    assembler.Take({CaptureEvent::kBytes, Side::kClient, 1, 1, "connect,h,1\n"});
    assembler.Take({CaptureEvent::kOpened, Side::kClient, 2, 0, "s:1"});
    assembler.Take({CaptureEvent::kBytes, Side::kClient, 2, 2, "status\n"});
    assembler.Take({CaptureEvent::kReset, Side::kClient, 2, 3, {}});
    Exchange exchange;
    ASSERT_TRUE(assembler.Next(exchange));
    EXPECT_EQ(exchange.request, "status\n");
}
