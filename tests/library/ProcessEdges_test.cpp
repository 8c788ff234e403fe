// The library before main and behind it: in constructors and destructors of a host's static objects.

#include "base/BaseHelpers.h"
#include "talker/CVRXTalker.h"
#include "tcpio/CTcpIOTalk.h"

#include "tests/support/ScriptedServer.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

constexpr int kExchanged = 77;

/// Once armed, exchanges by host name in its destructor, and ends the process at once with kExchanged when that
/// worked.
class ExchangesAtExit {
public:
    ~ExchangesAtExit() {
        CTcpIOTalk fresh;
        if (m_port != 0 && Exchanges(m_before) && Exchanges(fresh) &&
            CTcpIOTalk::TranslateAddress("localhost"))
            ::_exit(kExchanged);
    }

    void Arm(int port) {
        m_port = port;
        m_before.SetHostEnt("localhost", port); // points to an entry from now on
    }

private:
    bool Exchanges(CTcpIOTalk& talk) const {
        std::string reply;
        void* data = nullptr;
        int length = 0;
        talk.SendTcpMessage("localhost", m_port, "at exit", reply, data, length, 1000);
        talk.KillSocket();
        return reply == "at exit";
    }

    int m_port = 0;
    CTcpIOTalk m_before;
} g_exchangesAtExit; // made before anything was looked up, so destroyed after whatever a look-up made

/// Uses everything before main.
struct BeforeMain {
    std::unique_ptr<CVRXTalker> talker{TalkerFactory()};
    bool configured = talker->Configure("");
    CTcpIOTalk* channel = new CTcpIOTalk;
    const hostent* host = CTcpIOTalk::TranslateAddress("localhost");
    std::string text = String::Format("%s=%d", "a", 5);
    std::string upper = "upper";
    std::string expanded;
    string_vector list;
    string_map map;

    BeforeMain() {
        String::ToUpper(upper);
        String::ExpandDelimited(expanded, "$a$", {{"a", "b"}}, true, '$');
        list.Split("b a", " ", 0);
        list.sort(0);
        map.Split("key=value", 0);
    }
    ~BeforeMain() { delete channel; }
} g_beforeMain;

TEST(ProcessEdges, StaticInitialisersMayUseEverything) {
    EXPECT_EQ(g_beforeMain.talker->GetPumpCycles(), 0.0F);
    EXPECT_FALSE(g_beforeMain.configured);
    EXPECT_EQ(g_beforeMain.channel->SendString(-1, ""), 0);
    ASSERT_NE(g_beforeMain.host, nullptr);
    EXPECT_EQ(g_beforeMain.text, "a=5");
    EXPECT_EQ(g_beforeMain.upper, "UPPER");
    EXPECT_EQ(g_beforeMain.expanded, "b");
    EXPECT_EQ(g_beforeMain.list.front(), "a");
    EXPECT_EQ(g_beforeMain.map["key"], "value");
}

void Echo(Peer& peer) {
    for (std::string line = peer.ReadLine(); !line.empty(); line = peer.ReadLine()) peer.Send(line);
}

TEST(ProcessEdgesDeathTest, StaticDestructorsMayExchangeByHostName) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // the server is a thread
    EXPECT_EXIT(
        {
            ScriptedServer server({Echo, Echo});
            g_exchangesAtExit.Arm(server.Port());
            std::exit(0);
        },
        testing::ExitedWithCode(kExchanged), "");
}

} // namespace
