#include "tools/checks/StubServer.h"

#include "tests/support/RawClient.h"

#include <future>
#include <gtest/gtest.h>
#include <map>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace vrx::tool;
using namespace std::string_literals;
using std::chrono::milliseconds;
using Words = std::vector<std::uint32_t>;

/// Two words, 11 and 22, of which so many are wanted back.
std::string Request(char wanted) {
    return "\x03\x00\xFF\x07\x20\x00\x00\x00\x03\x00\x00\x00\x3A\x00\x00\x00"s +
           static_cast<char>(wanted + 3) + "\x00\x00\x00\x0B\x00\x00\x00\x16\x00\x00\x00,,\x00\x00"s;
}

RawClient Connect(const StubServer& server) {
    return RawClient(static_cast<std::uint16_t>(server.Port()));
}

std::string Taken(StubServer& server) {
    const auto request = server.Take();
    return request ? request->bytes : "<none>";
}

TEST(ReplyPacket, HasHeadStatusFiguresAndData) {
    EXPECT_EQ(ReplyPacket(0xFFFFFFFF, 0x100, 0x200, Words{7, 8}),
              "\x03\x00\xFF\x07"
              "\x24\x00\x00\x00" // 36 bytes
              "\x05\x00\x00\x00" // status, two figures, two words
              "\x3A\x00\x00\x00"
              "\xFF\xFF\xFF\xFF"
              "\x00\x01\x00\x00\x00\x02\x00\x00"
              "\x07\x00\x00\x00\x08\x00\x00\x00"s);
}

TEST(StubServer, AnswersByItselfAndWritesDownWhatCame) {
    StubServer server;
    const RawClient client = Connect(server);
    EXPECT_EQ(client.Ask("connect,127.0.0.1,1"), "ok");
    EXPECT_EQ(Taken(server), "connect,127.0.0.1,1\n");
    for (const char wanted : {'\0', '\1', '\2', '\3'}) {
        const Words all = {11, 22, 0};
        const std::string reply =
            ReplyPacket(0, 0, 0, std::span(all).first(static_cast<std::size_t>(wanted)));
        client.Send(Request(wanted));
        EXPECT_EQ(client.Receive(reply.size()), reply);
        EXPECT_EQ(Taken(server), Request(wanted));
    }
    EXPECT_FALSE(server.Take(milliseconds(0)));
}

TEST(StubServer, WaitsForWholeRequests) {
    StubServer server;
    const RawClient client = Connect(server);
    for (const std::string& request : {"status\n"s, Request(0)}) {
        for (const char byte : request) client.Send(std::string(1, byte));
        EXPECT_EQ(Taken(server), request);
    }
}

TEST(StubServer, FollowsItsOrdersInTurn) {
    StubServer server;
    server.Then(Answer::Bytes("first\n"));
    server.Then({.pieces = {"sec", "ond\n"}, .pause = milliseconds(5)});
    const RawClient client = Connect(server);
    EXPECT_EQ(client.Ask("a"), "first");
    EXPECT_EQ(client.Ask("b"), "second");
    EXPECT_EQ(client.Ask("c"), "ok");
    server.Always([](const StubServer::Request& request) { return Answer::Bytes("got " + request.bytes); });
    EXPECT_EQ(client.Ask("d"), "got d");
    server.Forget();
    EXPECT_FALSE(server.Take(milliseconds(0)));
}

struct EndCase {
    Answer::End end;
    const char* rest;
};

TEST(StubServer, EndsConnectionsAsItIsTold) {
    for (const EndCase& row :
         {EndCase{Answer::kClose, "bye\n<end>"}, EndCase{Answer::kHalfClose, "bye\n<end>"},
          EndCase{Answer::kStopAll, "bye\n<end>"}}) {
        StubServer server;
        const RawClient client = Connect(server);
        server.Then({.pieces = {"bye\n"}, .end = row.end});
        client.Send("x\n");
        EXPECT_EQ(client.ReceiveRest(), row.rest);
        EXPECT_TRUE(server.WaitForOpen(0));
        EXPECT_EQ(server.Connections(), 1);
        EXPECT_EQ(RawClient::CanConnect(static_cast<std::uint16_t>(server.Port())),
                  row.end != Answer::kStopAll);
    }
    StubServer server;
    const RawClient client = Connect(server);
    server.Then(Answer::Ending(Answer::kReset));
    client.Send("x\n");
    EXPECT_EQ(client.ReceiveRest(), "<reset>");
}

TEST(StubServer, DropsAllConnectionsAndListensAgain) {
    StubServer server;
    const RawClient one = Connect(server);
    const RawClient other = Connect(server);
    EXPECT_EQ(one.Ask("a"), "ok");
    EXPECT_EQ(other.Ask("a"), "ok");
    EXPECT_EQ(server.OpenConnections(), 2);
    server.Drop(Answer::kReset);
    EXPECT_EQ(one.ReceiveRest(), "<reset>");
    EXPECT_EQ(other.ReceiveRest(), "<reset>");
    server.Drop(Answer::kStopAll);
    EXPECT_FALSE(RawClient::CanConnect(static_cast<std::uint16_t>(server.Port())));
    server.ListenAgain();
    EXPECT_EQ(Connect(server).Ask("a"), "ok");
    EXPECT_EQ(server.Connections(), 3);
}

/// Whether somebody else could listen at this port of 127.0.0.1.
bool IsFree(int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    const int result = ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ::close(socket);
    return result == 0;
}

TEST(StubServer, KeepsItsPortWhileItDoesNotListen) {
    int port = 0;
    {
        StubServer server;
        port = server.Port();
        server.Drop(Answer::kStopAll);
        EXPECT_FALSE(IsFree(port));
    }
    EXPECT_TRUE(IsFree(port));
}

TEST(StubServer, TakesARequestEarlyLateOrNotAtAll) {
    StubServer server;
    const RawClient client = Connect(server);
    server.Then({.pieces = {"early\n"}, .takeUnfinished = true});
    client.Send("no line feed");
    EXPECT_EQ(client.ReceiveLine(), "early");
    EXPECT_EQ(Taken(server), "no line feed");
    server.Then({.pieces = {"both\n"}, .readAtLeast = 4});
    client.Send("a\n");
    client.Send("b\n");
    EXPECT_EQ(client.ReceiveLine(), "both");
    EXPECT_EQ(Taken(server), "a\nb\n");
    server.Then({.pieces = {"news\n"}, .unasked = true});
    EXPECT_EQ(client.ReceiveLine(), "news");
    EXPECT_EQ(Taken(server), "");
}

TEST(StubServer, SaysWhetherMoreCameBeforeTheAnswer) {
    StubServer server;
    const RawClient client = Connect(server);
    server.Then({.pieces = {"ok\n"}, .listen = milliseconds(2000)});
    client.Send("one\n");
    client.Send("two\n");
    EXPECT_EQ(client.ReceiveLine(), "ok");
    const auto request = server.Take();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->bytes, "one\ntwo\n");
}

/// Hears, until it is read, what all servers of this process tell a recorder.
class Listener {
public:
    Listener() {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_ends), 0);
        StubServer::RecordTo(WireTap(m_ends[0]));
    }
    ~Listener() {
        StubServer::RecordTo(WireTap(-1));
        ::close(m_ends[0]);
        ::close(m_ends[1]);
    }

    /// Events of each connection, in the order in which they were opened.
    std::vector<std::string> Heard() {
        ::shutdown(m_ends[1], SHUT_RD);
        std::map<std::uint64_t, std::string> heard;
        WireEvent event;
        for (std::string bytes; WireTap::Hear(m_ends[1], event, bytes);) {
            static constexpr const char* kKinds[] = {"opens ", "", "ends ", "resets "};
            const std::string who = event.fromServer ? "server " : "client ";
            heard[event.connection] += who + kKinds[event.kind] + (bytes.empty() ? "" : "'" + bytes + "' ");
        }
        std::vector<std::string> all;
        for (const auto& [connection, events] : heard) all.push_back(events);
        return all;
    }

private:
    int m_ends[2] = {-1, -1};
};

struct RecordedCase {
    const char* name;
    Answer answer;
    const char* heard;
};

TEST(StubServer, TellsARecorderWhatWasReceivedAndSentAndHowItEnded) {
    const RecordedCase kCases[] = {
        {"stays", Answer::Bytes("yes\n"),
         "client opens client 'x\n' server 'yes\n' client ends server ends "},
        {"pieces",
         {.pieces = {"y", "es\n"}},
         "client opens client 'x\n' server 'y' server 'es\n' client ends server ends "},
        {"closes",
         {.pieces = {"yes\n"}, .end = Answer::kClose},
         "client opens client 'x\n' server 'yes\n' server ends "},
        {"resets", Answer::Ending(Answer::kReset), "client opens client 'x\n' server resets "},
        {"half-closes",
         {.pieces = {"yes\n"}, .end = Answer::kHalfClose},
         "client opens client 'x\n' server 'yes\n' server ends "},
    };
    for (const RecordedCase& row : kCases) {
        SCOPED_TRACE(row.name);
        Listener listener;
        {
            StubServer server;
            server.Then(row.answer);
            {
                const RawClient client = Connect(server);
                client.Send("x\n");
                EXPECT_EQ(client.ReceiveLine(), row.answer.pieces.empty() ? "" : "yes");
                EXPECT_TRUE(row.answer.end == Answer::kStay || server.WaitForOpen(0));
            }
            EXPECT_TRUE(server.WaitForOpen(0));
        }
        const auto heard = listener.Heard();
        ASSERT_EQ(heard.size(), 1U);
        EXPECT_TRUE(heard[0].starts_with(row.heard)) << heard[0];
    }
}

TEST(StubServer, TellsARecorderThatUnreadBytesMakeACloseAReset) {
    Listener listener;
    std::promise<void> asked;
    std::promise<void> allSent;
    {
        StubServer server;
        server.Always([&](const StubServer::Request&) {
            asked.set_value();
            allSent.get_future().wait();
            return Answer::Ending(Answer::kClose);
        });
        const RawClient client = Connect(server);
        client.Send("x\n");
        asked.get_future().wait();
        client.Send("unread\n");
        allSent.set_value();
        EXPECT_EQ(client.ReceiveRest(), "<reset>");
        EXPECT_TRUE(server.WaitForOpen(0));
    }
    const auto heard = listener.Heard();
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_TRUE(heard[0].ends_with("server resets ")) << heard[0];
}

} // namespace
