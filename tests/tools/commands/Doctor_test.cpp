#include "tests/support/ScriptedServer.h"
#include "tests/tools/VrxRun.h"

#include <chrono>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <thread>

namespace {

using Strings = std::vector<std::string>;

Subprocess::Outcome Doctor(const std::string& host, const std::string& port, const Strings& options = {}) {
    Strings command{"doctor", host, port};
    command.insert(command.end(), options.begin(), options.end());
    return Vrx(command);
}

/// "look-up ok, reach ok, connect FAIL" of what `--json` printed.
std::string States(const nlohmann::json& object) {
    std::string states;
    for (const auto& step : object.at("steps"))
        states += (states.empty() ? "" : ", ") + step.at("name").get<std::string>() + " " +
                  step.at("state").get<std::string>();
    return states;
}

const nlohmann::json& Last(const nlohmann::json& object) {
    return object.at("steps").back();
}

TEST(Doctor, FindsNothingWrongWithAGoodServer) {
    const ServeProcess server({"--pin-frames", "64"});
    const auto end = Doctor("localhost", server.Port());
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.err, "");
    for (const char* line :
         {"look-up ok ", " ms  localhost is 127.0.0.1\n", "\nreach   ok ", " ms  127.0.0.1 answers\n",
          "\nconnect ok ", " is open\n", "\ncommand ok ", "  the server answered \"connect,localhost,0\"\n",
          "\npins    ok ", "  In: 64 2 1, Out: 64 2 1\n", "\nsilence ok ",
          "  a block of 64 frames of 2 channels came back\n", "\nlatency ", " blocks: p50 ",
          " ms; a block lasts 1.33 ms at 48000 Hz\n", "\nwhole   ok ",
          "  a reply of 2040 words was collected\n", "\npieces  ok ",
          "  10 of 10 replies of 540 bytes came in one piece\n"})
        EXPECT_NE(end.out.find(line), std::string::npos) << line << end.out;
    EXPECT_EQ(end.out.find('\033'), std::string::npos) << "no colours in a pipe";
}

TEST(Doctor, PrintsTheSameAsJson) {
    const ServeProcess server;
    const auto end = Doctor("127.0.0.1", server.Port(), {"--json", "--block", "4000", "--rate", "8000"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    ASSERT_TRUE(IsOneLine(end.out)) << end.out;
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(object.at("server"), "127.0.0.1");
    EXPECT_EQ(object.at("port"), std::stoi(server.Port()));
    EXPECT_EQ(object.at("ok"), true);
    EXPECT_EQ(
        States(object),
        "look-up ok, reach ok, connect ok, command ok, pins ok, silence ok, latency ok, whole ok, pieces ok");
    for (const auto& step : object.at("steps")) EXPECT_GE(step.at("milliseconds"), 0);
}

TEST(Doctor, ColoursOnATerminalUnlessRefused) {
    const ServeProcess server;
    const std::string command = std::string(VRX_PROGRAM " doctor 127.0.0.1 ") + server.Port();
    const auto colored = RunProgram({"script", "-qec", "TERM=xterm " + command, "/dev/null"});
    EXPECT_NE(colored.out.find("\033[32mok"), std::string::npos) << colored.out;
    for (const char* refusal : {"NO_COLOR=1 TERM=xterm ", "TERM=dumb "}) {
        const auto plain = RunProgram({"script", "-qec", refusal + command, "/dev/null"});
        EXPECT_NE(plain.out.find("look-up ok"), std::string::npos) << plain.out;
        EXPECT_EQ(plain.out.find("\033[3"), std::string::npos) << plain.out;
    }
}

// ---- each step that can fail

TEST(Doctor, AnUnknownName) {
    struct Case {
        const char* host;
        const char* detail;
    };
    const Case cases[] = {{"no-such-host.invalid", "'no-such-host.invalid' is not known: "},
                          {"1host", "'1host' is no IPv4 address"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.host);
        const auto end = Doctor(c.host, "7000", {"--json"});
        EXPECT_EQ(end.exitCode, 3);
        const auto object = nlohmann::json::parse(end.out);
        EXPECT_EQ(States(object), "look-up FAIL");
        EXPECT_EQ(Last(object).at("detail").get<std::string>().rfind(c.detail, 0), 0U) << end.out;
        EXPECT_FALSE(Last(object).at("means").get<std::string>().empty());
        EXPECT_FALSE(Last(object).at("try").get<std::string>().empty());
        EXPECT_EQ(object.at("ok"), false);
    }
}

TEST(Doctor, AnAddressThatCannotBeReached) {
    const auto end = Doctor("255.255.255.255", "7000", {"--json"}); // no connection is made to everybody
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_EQ(States(nlohmann::json::parse(end.out)), "look-up ok, reach FAIL");
}

TEST(Doctor, AClosedPort) {
    const std::string port = std::to_string(RefusedPort());
    const auto end = Doctor("127.0.0.1", port);
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_NE(end.out.find("\nreach   ok "), std::string::npos) << end.out;
    EXPECT_NE(
        end.out.find(" ms  127.0.0.1:" + port +
                     " is closed\n"
                     "          means: the machine is there, but no program listens at this port\n"
                     "          try: starting the server, or its right port (to try without it: vrx serve "
                     "--port " +
                     port + ")\n"),
        std::string::npos)
        << end.out;
    EXPECT_EQ(end.out.find("command"), std::string::npos) << "nothing more to try";
}

TEST(Doctor, AListenerThatNeverAnswers) {
    const auto listen = [](Peer& peer) { peer.WaitForClose(); };
    ScriptedServer server({listen, listen});
    const std::string port = std::to_string(server.Port());
    const auto end = Doctor("127.0.0.1", port, {"--json"});
    EXPECT_EQ(end.exitCode, 3);
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(States(object), "look-up ok, reach ok, connect ok, command FAIL");
    const auto detail = Last(object).at("detail").get<std::string>();
    EXPECT_EQ(detail.rfind("cannot connect to 127.0.0.1:" + port + ": waited 1", 0), 0U) << detail;
    EXPECT_NE(detail.find(" s for its reply to the connect command"), std::string::npos) << detail;
}

TEST(Doctor, AServerThatHangsUpOnTheConnectCommand) {
    const auto hangUp = [](Peer& peer) { peer.ReadLine(); };
    ScriptedServer server({[](Peer& peer) { peer.WaitForClose(); }, hangUp});
    const auto end = Doctor("127.0.0.1", std::to_string(server.Port()), {"--json"});
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_EQ(States(nlohmann::json::parse(end.out)), "look-up ok, reach ok, connect ok, command FAIL");
}

TEST(Doctor, AServerThatAnswersTextOnly) {
    const auto talk = [](Peer& peer) {
        for (std::string line = peer.ReadLine(); !line.empty(); line = peer.ReadPacket())
            peer.Send("what?\n");
    };
    ScriptedServer server({[](Peer& peer) { peer.WaitForClose(); }, talk, talk, talk, talk, talk, talk});
    const auto end = Doctor("127.0.0.1", std::to_string(server.Port()), {"--json"});
    EXPECT_EQ(end.exitCode, 4);
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(States(object),
              "look-up ok, reach ok, connect ok, command ok, pins note, silence FAIL, pieces FAIL");
    EXPECT_EQ(object.at("steps")[5].at("detail"),
              "a block of 175 frames of 2 channels was answered with the text 'what?'");
}

TEST(Doctor, AServerThatRefusesBlocks) {
    const ServeProcess server({"--faults", "negative-status"});
    const auto end = Doctor("127.0.0.1", server.Port(), {"--json"});
    EXPECT_EQ(end.exitCode, 4);
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(object.at("steps")[5].at("detail"),
              "a block of 175 frames of 2 channels was refused with status -5");
    EXPECT_EQ(Last(object).at("state"), "ok") << "the replies themselves are whole";
}

TEST(Doctor, ASlowServer) {
    const ServeProcess server({"--faults", "late=20ms", "--pin-frames", "16"});
    const auto end = Doctor("127.0.0.1", server.Port(), {"--json"});
    EXPECT_EQ(end.exitCode, 0);
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(object.at("steps")[6].at("state"), "note");
    EXPECT_NE(object.at("steps")[6].at("means").get<std::string>().find("took longer than a block lasts"),
              std::string::npos);
}

TEST(Doctor, ReplyInPieces) {
    const ServeProcess server({"--faults", "pieces=700"});
    const auto small = nlohmann::json::parse(Doctor("127.0.0.1", server.Port(), {"--json"}).out);
    EXPECT_EQ(Last(small).at("state"), "FAIL");
    EXPECT_EQ(Last(small).at("detail").get<std::string>().rfind("a reply of 1428 bytes came in ", 0), 0U)
        << small;
    EXPECT_EQ(Last(small).at("try"),
              "a server that sends each reply with one call, or a host that collects replies, "
              "as vrx pump --replies whole");
    const auto large =
        nlohmann::json::parse(Doctor("127.0.0.1", server.Port(), {"--json", "--block", "400"}).out);
    EXPECT_EQ(Last(large).at("state"), "note") << "such replies are collected";
    EXPECT_EQ(Last(large).at("try"),
              "nothing with vrx pump, which collects such replies; in other hosts --block "
              "175, whose replies fit one segment");
    const auto larger =
        nlohmann::json::parse(Doctor("127.0.0.1", server.Port(), {"--json", "--block", "1021"}).out);
    EXPECT_EQ(Last(larger).at("state"), "FAIL") << "more than a whole reply holds";
    EXPECT_EQ(Last(larger).at("try"), "--block 175, whose replies fit one segment");
    EXPECT_EQ(Doctor("127.0.0.1", server.Port()).exitCode, 4);
}

TEST(Doctor, ALargeReplyIsOnePieceWhenItIsSentAtOnce) {
    const ServeProcess server;
    const auto object = nlohmann::json::parse(
        Doctor("127.0.0.1", server.Port(), {"--json", "--block", "2000", "--channels", "4"}).out);
    EXPECT_EQ(Last(object).at("name"), "pieces");
    EXPECT_NE(Last(object).at("detail").get<std::string>().find("32028 bytes"), std::string::npos) << object;
}

TEST(Doctor, AServerWithoutWholeReplies) {
    const ServeProcess server({"--block-limit", "700"});
    const auto end = Doctor("127.0.0.1", server.Port(), {"--json"});
    EXPECT_EQ(end.exitCode, 0) << "no host has to have them";
    const auto object = nlohmann::json::parse(end.out);
    const auto& whole = object.at("steps")[7];
    EXPECT_EQ(whole.at("name"), "whole");
    EXPECT_EQ(whole.at("state"), "note");
    EXPECT_EQ(whole.at("detail").get<std::string>().rfind("no reply of 2040 words: result -", 0), 0U)
        << whole;
}

TEST(Doctor, ATextReplyThatComesInPieces) {
    const auto talk = [](Peer& peer) {
        for (std::string line = peer.ReadLine(); !line.empty(); line = peer.ReadPacket()) {
            peer.Send("only ");
            std::this_thread::sleep_for(std::chrono::milliseconds(5)); // lets the pieces be pieces
            peer.Send("texts\n");
        }
    };
    ScriptedServer server(
        {[](Peer& peer) { peer.WaitForClose(); }, talk, talk, talk, talk, talk, talk, talk});
    const auto object =
        nlohmann::json::parse(Doctor("127.0.0.1", std::to_string(server.Port()), {"--json"}).out);
    EXPECT_EQ(object.at("steps")[5].at("detail"),
              "a block of 175 frames of 2 channels was answered with the text 'only texts'");
}

TEST(Doctor, AddressesThatTheTalkerTakes) {
    const ServeProcess server;
    for (const char* host : {"127.1", "0x7f.1", "0177.0.0.1", "2130706433"}) {
        const auto end = Doctor(host, server.Port(), {"--json"});
        EXPECT_EQ(end.exitCode, 0) << host << end.out;
    }
}

TEST(Doctor, ABlockThatNoReplyCanHoldIsNotTheServersFault) {
    const ServeProcess server({"--channels", "8"});
    const auto end = Doctor("127.0.0.1", server.Port(), {"--json", "--block", "200000"});
    EXPECT_EQ(end.exitCode, 4);
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(Last(object).at("detail"), "a block of 200000 frames of 8 channels is too long");
    EXPECT_EQ(Last(object).at("try"), "--block 32767 at most");
}

TEST(Doctor, WrongUsage) {
    for (const Strings& arguments :
         {Strings{}, Strings{"h"}, Strings{"h", "0"}, Strings{"h", "x"}, Strings{"h", "1", "--block", "0"},
          Strings{"h", "1", "--block", "262137", "--channels", "2"}, Strings{"a,b", "1"},
          Strings{"h", "1", "2"}}) {
        Strings command{"doctor"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const auto end = Vrx(command);
        EXPECT_EQ(end.exitCode, 1);
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
    }
}

} // namespace
