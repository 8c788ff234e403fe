#include "tests/support/FolderTest.h"
#include "tests/tools/VrxRun.h"

#include <nlohmann/json.hpp>

namespace {

using Strings = std::vector<std::string>;
namespace fs = std::filesystem;

class Lv2 : public FolderTest {
protected:
    Subprocess::Outcome Run(Strings arguments) const {
        arguments.insert(arguments.begin(), "lv2");
        arguments.insert(arguments.end(), {"--dir", Path("lv2")});
        return Vrx(arguments);
    }
    Subprocess::Outcome Add(const std::string& name, Strings more = {}) const {
        more.insert(more.begin(), {"add", name, "--servport", "7000"});
        return Run(more);
    }
    std::string Settings(const std::string& name) const {
        return Bytes("lv2/vrx-" + name + ".lv2/settings.txt");
    }
    void ExpectFailure(const Subprocess::Outcome& end, int exitCode, const std::string& says) const {
        EXPECT_EQ(end.exitCode, exitCode);
        EXPECT_EQ(end.out, "");
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        EXPECT_NE(end.err.find(says), std::string::npos) << end.err;
    }
};

#ifdef VRX_LV2_BINARY

TEST_F(Lv2, AddsABundleAndPrintsItsUri) {
    const auto end = Add("studio", {"--server", "10.0.0.7", "--channels", "6", "--block", "128", "--latency",
                                    "512", "--late", "silence", "--layout", "Main room"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.out, "urn:vrx:talker:studio\n");
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(Settings("studio"),
              "name=studio\n"
              "args=server=10.0.0.7,servport=7000,clport=0,input=In,output=Out,layout=Main room\n"
              "server=10.0.0.7\nservport=7000\nclport=0\ninput=In\noutput=Out\nlayout=Main room\n"
              "talker=" VRX_PLUGIN "\n"
              "channels=6\nblock=128\nlatency=512\nsilence=1\n");
    EXPECT_EQ(fs::read_symlink(Path("lv2/vrx-studio.lv2/vrx_lv2.so")), VRX_LV2_BINARY);
}

TEST_F(Lv2, TakesTheTalkersWholeArgumentLine) {
    const std::string args = "server=h,servport=1,clport=2,input=I,output=O,layout=L";
    EXPECT_EQ(Run({"add", "x", "--args", args}).exitCode, 0);
    EXPECT_NE(Settings("x").find("\nargs=" + args + "\n"), std::string::npos);
}

TEST_F(Lv2, ReplacesABundleOnlyWhenForced) {
    EXPECT_EQ(Add("studio").exitCode, 0);
    ExpectFailure(Add("studio", {"--channels", "1"}), 2, "exists already");
    EXPECT_NE(Settings("studio").find("channels=2\n"), std::string::npos);
    EXPECT_EQ(Add("studio", {"--channels", "1", "--force"}).exitCode, 0);
    EXPECT_NE(Settings("studio").find("channels=1\n"), std::string::npos);
}

TEST_F(Lv2, ListsAndRemoves) {
    const auto none = Run({"list"});
    EXPECT_EQ(none.exitCode, 0) << none.err;
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(Add("two").exitCode, 0);
    EXPECT_EQ(Add("one", {"--channels", "1"}).exitCode, 0);
    EXPECT_EQ(Run({"list"}).out, "one  urn:vrx:talker:one  127.0.0.1:7000  1 channel\n"
                                 "two  urn:vrx:talker:two  127.0.0.1:7000  2 channels\n");
    const auto json = nlohmann::json::parse(Run({"list", "--json"}).out).at("plugins");
    ASSERT_EQ(json.size(), 2U);
    EXPECT_EQ(json[0], (nlohmann::json{{"name", "one"},
                                       {"uri", "urn:vrx:talker:one"},
                                       {"server", "127.0.0.1"},
                                       {"port", 7000},
                                       {"channels", 1},
                                       {"bundle", Path("lv2/vrx-one.lv2")}}));
    const auto removed = Run({"remove", "one"});
    EXPECT_EQ(removed.exitCode, 0) << removed.err;
    EXPECT_EQ(removed.out, "");
    EXPECT_EQ(Run({"list"}).out, "two  urn:vrx:talker:two  127.0.0.1:7000  2 channels\n");
    ExpectFailure(Run({"remove", "one"}), 2, "vrx lv2 remove: no talker 'one'");
}

TEST_F(Lv2, PutsBundlesIntoTheHomeFolder) {
    const auto in = [](const char* home, const Strings& arguments) {
        Strings command{"env", std::string("HOME=") + home, VRX_PROGRAM, "lv2"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return RunProgram(command);
    };
    EXPECT_EQ(in(m_folder.Path().c_str(), {"add", "x", "--servport", "1"}).exitCode, 0);
    EXPECT_TRUE(fs::exists(Path(".lv2/vrx-x.lv2/manifest.ttl")));
    ExpectFailure(in("", {"add", "x", "--servport", "1"}), 2, "--dir");
}

TEST_F(Lv2, RefusesNamesThatBreakPathsOrUris) {
    for (const char* name : {"../x", "a/b", "a b", "a>", "\"", "", "ä"})
        ExpectFailure(Add(name), 1, "vrx lv2 add: the name");
    EXPECT_FALSE(fs::exists(Path("lv2")));
}

TEST_F(Lv2, RefusesATalkerThatIsNone) {
    ExpectFailure(Add("x", {"--plugin", Path("none.so")}), 2, "none.so");
    ExpectFailure(Add("x", {"--plugin", VRX_LV2_BINARY}), 2, "is no talker plug-in");
    EXPECT_FALSE(fs::exists(Path("lv2")));
}

TEST_F(Lv2, LeavesNothingBehindWhereItCannotWrite) {
    Write("lv2", "a file");
    ExpectFailure(Add("x"), 2, Path("lv2"));
}

#endif

TEST_F(Lv2, RefusesWrongUsage) {
    ExpectFailure(Run({"add", "x"}), 1, "--servport");
    ExpectFailure(Add("x", {"--latency", "127", "--block", "128"}), 1, "--latency 127");
    for (const Strings& options :
         {Strings{"--channels", "0"}, Strings{"--channels", "65"}, Strings{"--block", "0"},
          Strings{"--latency", "480001"}, Strings{"--late", "wet"}, Strings{"--input", "a,b"}})
        ExpectFailure(Add("x", options), 1, options[0]);
    EXPECT_EQ(Vrx({"lv2"}).exitCode, 1);
    EXPECT_EQ(Vrx({"lv2", "help"}).exitCode, 1);
    EXPECT_EQ(Run({"add"}).exitCode, 1);
}

} // namespace
