#include "tests/support/ScriptedServer.h"
#include "tests/tools/VrxRun.h"

#include <csignal>
#include <future>
#include <gtest/gtest.h>

namespace {

std::vector<std::string> Command(int port, const std::vector<std::string>& texts) {
    std::vector<std::string> command{"send", "--servport", std::to_string(port)};
    command.insert(command.end(), texts.begin(), texts.end());
    return command;
}

TEST(Send, PrintsOneReplyPerLine) {
    const ScriptedServer server({[](Peer& peer) {
        EXPECT_EQ(peer.ReadLine(), "connect,127.0.0.1,0\n");
        peer.Send("welcome\n");
        EXPECT_EQ(peer.ReadLine(), "gain -6\n");
        peer.Send("gain is -6 now\n");
        EXPECT_EQ(peer.ReadLine(), "status\n");
        peer.Send("\n");
        EXPECT_EQ(peer.ReadLine(), "dump\n");
        peer.Send(Words({0x07FF0003, 12, 7}));
        peer.WaitForClose();
    }});
    const auto end = Vrx(Command(server.Port(), {"gain -6", "status", "dump"}));
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.out, "gain is -6 now\n\n(a packet of 12 bytes)\n");
    EXPECT_EQ(end.err, "");
}

TEST(Send, HandsNoControlCharactersToATerminal) {
    const auto script = [](Peer& peer) {
        peer.ReadLine();
        peer.Send("welcome\n");
        peer.ReadLine();
        peer.Send("\033]0;title\a\xC2\x9B"
                  "2Jred\n");
        peer.WaitForClose();
    };
    const ScriptedServer server({script, script});
    const std::string command =
        std::string(VRX_PROGRAM " send status --servport ") + std::to_string(server.Port());
    const auto shown = RunProgram({"script", "-qec", command, "/dev/null"});
    EXPECT_EQ(shown.out, "?]0;title???2Jred\r\n");
    const auto piped = RunProgram({"sh", "-c", command});
    EXPECT_EQ(piped.out, "\033]0;title\a\xC2\x9B"
                         "2Jred\n")
        << "a program gets every byte";
}

TEST(Send, RefusesTextsThatAreNotOneLine) {
    for (const std::string text : {"", "a\nb", "a\n"}) {
        SCOPED_TRACE(text);
        const auto end = Vrx(Command(1, {"fine", text}));
        EXPECT_EQ(end.exitCode, 1);
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
    }
    EXPECT_EQ(Vrx(Command(1, {})).exitCode, 1);
}

TEST(Send, ReportsALostConnectionAfterTheRepliesSoFar) {
    const ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send("ok\n");
        peer.ReadLine();
        peer.Send("one\n");
        peer.ReadLine();
    }});
    const auto end = Vrx(Command(server.Port(), {"first", "second"}));
    EXPECT_EQ(end.exitCode, 4);
    EXPECT_EQ(end.out, "one\n");
    EXPECT_EQ(end.err,
              "vrx send: no reply to 'second' from 127.0.0.1:" + std::to_string(server.Port()) +
                  " (result -9995: the server closed the connection): check the server and the command\n");
}

TEST(Send, ReportsAServerThatIsNotThere) {
    const auto end = Vrx(Command(RefusedPort(), {"x"}));
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
}

TEST(Send, WaitsWithoutLimitUntilInterrupted) {
    std::promise<void> asked;
    const ScriptedServer server({[&asked](Peer& peer) {
        peer.ReadLine();
        peer.Send("ok\n");
        peer.ReadLine();
        asked.set_value();
        peer.WaitForClose();
    }});
    std::vector<std::string> command = Command(server.Port(), {"never answered"});
    command.insert(command.begin(), VRX_PROGRAM);
    Subprocess send(command);
    asked.get_future().wait_for(Subprocess::kPatience);
    send.Signal(SIGINT);
    const auto end = send.Wait();
    EXPECT_EQ(end.exitCode, 5);
    EXPECT_EQ(end.err, "vrx send: interrupted\n");
}

} // namespace
