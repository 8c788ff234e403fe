#include "host/Session.h"

#include "host/Packet.h"
#include "tests/support/FakeTalker.h"

#include <gtest/gtest.h>
#include <utility>

namespace {

using namespace vrx::host;

constexpr char kArgs[] = "server=studio,servport=7000,clport=3,input=In,output=Out,layout=Main";
constexpr char kWholeArgs[] = "server=studio,servport=-58536,"
                              "server=studio,servport=7000,clport=3,input=In,output=Out,layout=Main";

ServerSettings Studio() {
    ServerSettings server;
    server.args = kArgs;
    server.host = "studio";
    server.port = 7000;
    server.clientPort = 3;
    server.input = "In";
    server.output = "Out";
    server.layout = "Main";
    return server;
}

class SessionTest : public testing::Test {
protected:
    std::shared_ptr<FakeServer> m_server = std::make_shared<FakeServer>();

    SessionParts Parts(bool captured) {
        SessionParts parts;
        parts.makeTalker = [server = m_server] { return std::make_unique<FakeTalker>(server); };
        if (captured) parts.takeLines = [server = m_server] { return std::exchange(server->lines, ""); };
        return parts;
    }
    int Pump(Session& session, std::size_t words = 2) {
        m_in.assign(words, 7);
        m_out.assign(words, 0);
        return session.PumpAudio(m_in.data(), m_out.data(), static_cast<unsigned>(words));
    }
    std::vector<std::uint32_t> m_in;
    std::vector<std::uint32_t> m_out;
};

TEST_F(SessionTest, TouchesNothingBeforeConnect) {
    const Session session(Studio(), Parts(false));
    EXPECT_EQ(m_server->talkers, 1);
    EXPECT_TRUE(m_server->configured.empty());
}

TEST_F(SessionTest, ConnectsWithTheServersLineAndPumps) {
    Session session(Studio(), Parts(false));
    ASSERT_TRUE(session.Connect());
    EXPECT_EQ(m_server->configured, std::vector<std::string>{kArgs});
    EXPECT_EQ(Pump(session), 0);
    EXPECT_EQ(m_out, (std::vector<std::uint32_t>{8, 8}));
    EXPECT_EQ(m_server->outCounts, std::vector<unsigned>{2});
    EXPECT_EQ(session.AverageCycles(), 16.0F);
    EXPECT_EQ(session.PumpCycles(), 32.0F);
}

TEST_F(SessionTest, SaysWhyItIsNotConnected) {
    m_server->connects = {false, false};
    m_server->printed = "CVRXTalker::Connect: failed";
    Session captured(Studio(), Parts(true));
    EXPECT_FALSE(captured.Connect());
    EXPECT_EQ(captured.WhyNotConnected(),
              "check the address and that the server runs there (CVRXTalker::Connect: failed)");
    Session silent(Studio(), Parts(false));
    EXPECT_FALSE(silent.Connect());
    EXPECT_EQ(silent.WhyNotConnected(), "check the address and that the server runs there");
}

TEST_F(SessionTest, WithoutACaptureTheCodeTellsWhoseResultItIs) {
    const struct {
        int result;
        bool fault;
        const char* meaning;
    } kRows[] = {
        {-1, true, "result -1: no connection to the server"},
        {-9995, true, "result -9995: the server closed the connection"},
        {-9996, true, "result -9996: receiving failed"},
        {-9997, true, "result -9997: sending failed"},
        {-9999, true, "result -9999: waited 0.0 s for studio:7000 to reply to the block"},
        {-1000, true, "result -1000: the reply was no packet"},
        {-5, false, "result -5: unknown"},
        {-9998, false, "result -9998: unknown"},
    };
    for (const auto& row : kRows) {
        m_server->results = {row.result};
        Session session(Studio(), Parts(false));
        EXPECT_EQ(Pump(session), row.result);
        EXPECT_EQ(session.TransportFault(), row.fault) << row.result;
        EXPECT_EQ(session.Describe(row.result), row.meaning);
    }
}

TEST_F(SessionTest, WithACaptureThePrintedLineTells) {
    Session session(Studio(), Parts(true));
    m_server->results = {-1, -5};
    EXPECT_EQ(Pump(session), -1);
    EXPECT_FALSE(session.TransportFault()) << "the server's status, though it equals a talker's code";
    m_server->printed = "CVRXTalker::PumpAudio: failed";
    EXPECT_EQ(Pump(session), -5);
    EXPECT_TRUE(session.TransportFault());
}

TEST_F(SessionTest, GivesUpTheConnectionAfterWhatIsNoPacketOnly) {
    for (const int result : {-1, -9995, -9996, -9997, -9999, -1000}) {
        const int before = m_server->talkers;
        Session session(Studio(), Parts(false));
        EXPECT_TRUE(session.Reconnect(result));
        EXPECT_EQ(m_server->talkers - before, result == -1000 ? 2 : 1) << result;
    }
}

TEST_F(SessionTest, TakesWholeRepliesThroughTheOtherPort) {
    Session session(Studio(), Parts(false));
    session.TakeReplies(Replies::kWhole);
    ASSERT_TRUE(session.Connect());
    EXPECT_EQ(Pump(session, 480), 0);
    EXPECT_EQ(Pump(session, kWholeReplyWords), 0);
    EXPECT_EQ(m_server->configured, (std::vector<std::string>{kArgs, kWholeArgs})) << "told once";
    EXPECT_EQ(m_server->outCounts, (std::vector<unsigned>{2040, 2040}));
    EXPECT_EQ(m_server->blocks[0].size(), 480U);
    EXPECT_EQ(m_out, std::vector<std::uint32_t>(kWholeReplyWords, 8));
}

TEST_F(SessionTest, AsksForPinsThroughThePositivePort) {
    Session session(Studio(), Parts(false));
    session.TakeReplies(Replies::kWhole);
    ASSERT_TRUE(session.Connect());
    EXPECT_EQ(Pump(session), 0);
    PinValues pins;
    EXPECT_EQ(session.PinProps(pins), 0);
    EXPECT_EQ(PinText(pins.in), "480 2 1");
    EXPECT_EQ(PinText(pins.out), "240 1 0");
    EXPECT_EQ(Pump(session), 0);
    EXPECT_EQ(m_server->configured, (std::vector<std::string>{kArgs, kWholeArgs, kArgs, kWholeArgs}));
}

TEST_F(SessionTest, ReconnectsTheWayThatRepliesAreTaken) {
    Session session(Studio(), Parts(false));
    session.TakeReplies(Replies::kWhole);
    EXPECT_EQ(Pump(session), 0);
    EXPECT_TRUE(session.Reconnect(-9995));
    EXPECT_EQ(m_server->configured, (std::vector<std::string>{kWholeArgs, kWholeArgs}));
}

TEST_F(SessionTest, ASwitchThatFailsIsAFaultOfTheConnection) {
    Session session(Studio(), Parts(false));
    ASSERT_TRUE(session.Connect());
    session.TakeReplies(Replies::kWhole);
    m_server->connects = {false};
    EXPECT_EQ(Pump(session), -1);
    EXPECT_TRUE(session.TransportFault());
    EXPECT_TRUE(m_server->blocks.empty());
    EXPECT_TRUE(session.Reconnect(-1));
    EXPECT_EQ(Pump(session), 0);
}

TEST_F(SessionTest, SendsTexts) {
    Session session(Studio(), Parts(false));
    std::string reply;
    EXPECT_EQ(session.SendMessage("status", reply), 1);
    EXPECT_EQ(reply, "re: status");
    m_server->results = {-9995};
    EXPECT_EQ(session.SendMessage("status", reply), -9995);
    EXPECT_TRUE(session.TransportFault());
    EXPECT_EQ(session.Describe(-9999), "result -9999: waited 0.0 s for studio:7000 to reply to the text");
}

TEST_F(SessionTest, TwoAtATimeKnowTheirOwnFaults) {
    Session one(Studio(), Parts(false));
    Session other(Studio(), Parts(false));
    m_server->results = {-9995, -5};
    EXPECT_EQ(Pump(one), -9995);
    EXPECT_EQ(Pump(other), -5);
    EXPECT_TRUE(one.TransportFault());
    EXPECT_FALSE(other.TransportFault());
}

TEST_F(SessionTest, AsksItsOwnStopCheck) {
    SessionParts parts = Parts(false);
    EXPECT_FALSE(Session(Studio(), parts).Stopped());
    bool stopped = false;
    parts.stopped = [&stopped] { return stopped; };
    const Session session(Studio(), parts);
    EXPECT_FALSE(session.Stopped());
    stopped = true;
    EXPECT_TRUE(session.Stopped());
}

} // namespace
