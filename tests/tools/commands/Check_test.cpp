#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/tools/VrxRun.h"

#include <dlfcn.h>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>
#include <unistd.h>

namespace {

using Strings = std::vector<std::string>;
using nlohmann::json;

std::string Contents(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Keys in the order of the alphabet.
Strings Keys(const json& object) {
    Strings keys;
    for (const auto& [key, value] : object.items()) keys.push_back(key);
    return keys;
}

Subprocess::Outcome CheckWrong(const std::string& wrong, Strings options) {
    ::setenv("VRX_WRONG", wrong.c_str(), 1);
    options.insert(options.begin(), {"check", "plugin", VRX_OTHER_PLUGIN});
    auto end = Vrx(options);
    ::unsetenv("VRX_WRONG");
    return end;
}

TEST(Check, PrintsOneJsonObject) {
    const auto end =
        CheckWrong("crashes-on-text", {"--json", "--only", "status|not-a-packet", "--seed", "7"});
    EXPECT_EQ(end.exitCode, 4);
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
    ASSERT_TRUE(IsOneLine(end.out)) << end.out;
    const json report = json::parse(end.out);
    EXPECT_EQ(Keys(report), (Strings{"checks", "counts", "kind", "level", "ok", "seed", "target"}));
    EXPECT_EQ(report.at("ok"), false);
    EXPECT_EQ(report.at("target"), VRX_OTHER_PLUGIN);
    EXPECT_EQ(report.at("kind"), "plugin");
    EXPECT_EQ(report.at("level"), 5);
    EXPECT_EQ(report.at("seed"), 7);
    EXPECT_EQ(
        report.at("counts"),
        json(
            {{"passed", 1}, {"failed", 0}, {"crashed", 1}, {"timed_out", 0}, {"warned", 0}, {"skipped", 0}}));
    ASSERT_EQ(report.at("checks").size(), 2U);
    const json& passed = report.at("checks").at(0);
    EXPECT_EQ(Keys(passed), (Strings{"expected", "got", "level", "means", "name", "seconds", "state"}));
    EXPECT_EQ(passed.at("name"), "status");
    EXPECT_EQ(passed.at("state"), "passed");
    const json& crashed = report.at("checks").at(1);
    EXPECT_EQ(crashed.at("name"), "not-a-packet");
    EXPECT_EQ(crashed.at("state"), "crashed");
    EXPECT_NE(crashed.at("got").get<std::string>().find("SIGABRT: in PumpAudio"), std::string::npos)
        << crashed;
}

TEST(Check, TellsPeopleWhatIsWrong) {
    const auto end = CheckWrong("sixteen-pin-bits", {"--only", "pin-bits"});
    EXPECT_EQ(end.exitCode, 4);
    for (const char* part :
         {"FAIL",
          "\n    expected: for the pin words 0x08000c02 and 0x07fffc00, the output's values are \"131071 0 "
          "0\"\n",
          "\n    got: ", "\"65535 0 0\"\n", "\n    means: ", "\n    again: vrx check plugin ",
          " --only '^pin-bits$' --seed 1\n", "\nvrx check: 1 check at level 5: 1 failed\n"})
        EXPECT_NE(end.out.find(part), std::string::npos) << part << "\n" << end.out;
    EXPECT_EQ(end.err, "vrx check plugin: " VRX_OTHER_PLUGIN " is wrong: pin-bits\n");
}

TEST(Check, SaysNothingWrongOfARightOne) {
    const auto end = CheckWrong("", {"--only", "pin-bits"});
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_EQ(end.err, "");
    EXPECT_TRUE(end.out.ends_with("vrx check: 1 check at level 5: 1 passed\n")) << end.out;
}

TEST(Check, SkipsWhatNeedsAFailedCheck) {
    const auto end = CheckWrong("configure-false", {"--json", "--only", "^connects$|^status$|^loads$"});
    EXPECT_EQ(end.exitCode, 4);
    const json report = json::parse(end.out);
    EXPECT_EQ(report.at("counts").at("passed"), 1);
    EXPECT_EQ(report.at("counts").at("failed"), 1);
    EXPECT_EQ(report.at("counts").at("skipped"), 1);
    EXPECT_EQ(report.at("checks").at(2).at("got"), "it needs 'connects'");
}

/// Factories that cannot be used: every call of theirs is survived, and said in one line.
TEST(Check, SurvivesFactoriesThatGiveNoTalker) {
    for (const char* wrong : {"factory-null", "factory-throws", "factory-exits", "factory-crashes"}) {
        const auto end = CheckWrong(wrong, {"--json"});
        EXPECT_EQ(end.exitCode, 4) << wrong;
        EXPECT_EQ(end.err, "vrx check plugin: " VRX_OTHER_PLUGIN " is wrong: loads\n") << wrong;
        const json counts = json::parse(end.out).at("counts");
        EXPECT_EQ(counts.at("passed"), 0) << wrong;
        EXPECT_EQ(counts.at("failed").get<int>() + counts.at("crashed").get<int>(), 1) << wrong;
    }
    const auto prints = CheckWrong("factory-prints", {"--only", "^loads"});
    EXPECT_EQ(prints.exitCode, 4);
    EXPECT_EQ(prints.err, "vrx check plugin: " VRX_OTHER_PLUGIN " is wrong: loads-quietly\n");
}

TEST(Check, EndsWhatHangs) {
    const auto end = CheckWrong("factory-hangs", {"--json", "--only", "^loads$"});
    EXPECT_EQ(end.exitCode, 4);
    const json report = json::parse(end.out);
    EXPECT_EQ(report.at("counts").at("timed_out"), 1);
    EXPECT_EQ(report.at("checks").at(0).at("got"), "still busy: in TalkerFactory");
}

TEST(Check, WritesJUnit) {
    const TemporaryFolder folder;
    const std::string path = folder / "report.xml";
    const auto end =
        CheckWrong("crashes-on-text", {"--junit", path, "--only", "^(status|not-a-packet|pin-bits)$"});
    EXPECT_EQ(end.exitCode, 4);
    const std::string xml = Contents(path);
    for (const char* part :
         {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>", "<testsuite name=\"vrx check plugin ", " tests=\"3\"",
          " failures=\"0\"", " errors=\"1\"", "<testcase classname=\"plugin.level4\" name=\"status\"",
          "<testcase classname=\"plugin.level5\" name=\"not-a-packet\"", "<error message=\"ended by SIGABRT"})
        EXPECT_NE(xml.find(part), std::string::npos) << part << "\n" << xml;
}

TEST(Check, LeavesNoUnwritableReportUnsaid) {
    const auto end = CheckWrong("", {"--junit", "/nowhere/report.xml", "--only", "^status$"});
    EXPECT_EQ(end.exitCode, 2);
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
}

TEST(Check, ListsEachCheckOnce) {
    const auto text = Vrx({"check", "list"});
    EXPECT_EQ(text.exitCode, 0);
    const auto end = Vrx({"check", "list", "--json"});
    ASSERT_TRUE(IsOneLine(end.out));
    std::set<std::string> names;
    int lastLevel = 0;
    std::string lastKind;
    const json list = json::parse(end.out);
    for (const json& check : list.at("checks")) {
        const std::string kind = check.at("kind");
        EXPECT_TRUE(names.insert(kind + " " + check.at("name").get<std::string>()).second) << check;
        if (kind != lastKind) lastLevel = 1;
        EXPECT_GE(check.at("level"), lastLevel) << check;
        lastLevel = check.at("level");
        lastKind = kind;
        EXPECT_LE(lastLevel, 10);
        EXPECT_TRUE(check.at("proves").get<std::string>().ends_with('.')) << check;
        EXPECT_NE(text.out.find(check.at("proves").get<std::string>()), std::string::npos);
        const std::string needs = check.at("needs");
        EXPECT_TRUE(needs.empty() || names.contains(kind + " " + needs)) << check;
    }
    EXPECT_GT(names.size(), 50U);
}

/// A library that is no plug-in.
std::string SystemLibrary() {
    Dl_info where{};
    ::dladdr(reinterpret_cast<void*>(&::getpid), &where);
    return where.dli_fname;
}

struct BadCall {
    Strings arguments;
    int exitCode;
    const char* says;
};

TEST(Check, RefusesWhatIsNothingToCheck) {
    const TemporaryFolder folder;
    const std::string text = folder / "text.so";
    std::ofstream(text) << "no library\n";
    const BadCall kCalls[] = {
        {{"plugin", folder / "missing.so"}, 2, "cannot load"},
        {{"plugin", text}, 2, "cannot load"},
        {{"plugin", folder.Path().string()}, 2, "cannot load"},
        {{"plugin", SystemLibrary()}, 2, "it has no TalkerFactory()"},
        {{"plugin", VRX_PLUGIN, "--only", "("}, 1, "no regular expression"},
        {{"plugin", VRX_PLUGIN, "--only", "^none$"}, 1, "no check up to level 5 matches"},
        {{"plugin", VRX_PLUGIN, "--level", "11"}, 1, "--level"},
        {{"server", "127.0.0.1", std::to_string(RefusedPort())}, 3, "cannot connect to 127.0.0.1:"},
        {{"server", std::string(70, 'n') + ".invalid", "7000"}, 3, "is not known"},
    };
    for (const BadCall& call : kCalls) {
        Strings arguments = call.arguments;
        arguments.insert(arguments.begin(), "check");
        const auto end = Vrx(arguments);
        EXPECT_EQ(end.exitCode, call.exitCode) << end.err;
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        EXPECT_NE(end.err.find(call.says), std::string::npos) << end.err;
        EXPECT_EQ(end.out, "");
    }
}

TEST(Check, KnowsAWebServer) {
    ScriptedServer server({[](Peer& peer) {
        peer.ReadLine();
        peer.Send("HTTP/1.1 400 Bad Request\r\n\r\n");
    }});
    const auto end = Vrx({"check", "server", "127.0.0.1", std::to_string(server.Port())});
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_NE(end.err.find("is a web server"), std::string::npos) << end.err;
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
}

TEST(Check, KnowsAServerThatSaysNothing) {
    ScriptedServer server({[](Peer& peer) { peer.WaitForClose(); }, [](Peer& peer) { peer.WaitForClose(); }});
    const auto end = RunProgram({VRX_PROGRAM, "check", "server", "127.0.0.1", std::to_string(server.Port())},
                                std::chrono::seconds(40));
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_NE(end.err.find("does not answer"), std::string::npos) << end.err;
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
}

TEST(Check, FindsNothingWrongWithOurServer) {
    const ServeProcess server;
    const auto end =
        RunProgram({VRX_PROGRAM, "check", "server", "127.0.0.1", server.Port()}, std::chrono::seconds(120));
    EXPECT_EQ(end.exitCode, 0) << end.out << end.err;
    EXPECT_EQ(end.err, "");
}

} // namespace
