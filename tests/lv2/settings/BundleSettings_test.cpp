#include "lv2/settings/BundleSettings.h"

#include "tests/support/FolderTest.h"

namespace {

using namespace vrx::lv2;

BundleSettings Example() {
    BundleSettings settings;
    settings.name = "studio";
    settings.server.args = "server=10.0.0.7,servport=7000,clport=3,input=A=B,output=Out,layout=Main";
    settings.server.host = "10.0.0.7";
    settings.server.port = 7000;
    settings.server.clientPort = 3;
    settings.server.input = "A=B";
    settings.server.output = "Out";
    settings.server.layout = "Main";
    settings.talker = "/opt/a folder/VRX_talker_norvo.so";
    settings.channels = 6;
    settings.blockFrames = 128;
    settings.latencyFrames = 512;
    settings.silenceWhenLate = true;
    return settings;
}

constexpr char kExample[] = "name=studio\n"
                            "args=server=10.0.0.7,servport=7000,clport=3,input=A=B,output=Out,layout=Main\n"
                            "server=10.0.0.7\n"
                            "servport=7000\n"
                            "clport=3\n"
                            "input=A=B\n"
                            "output=Out\n"
                            "layout=Main\n"
                            "talker=/opt/a folder/VRX_talker_norvo.so\n"
                            "channels=6\n"
                            "block=128\n"
                            "latency=512\n"
                            "silence=1\n";

/// The example with one line in another's place; an empty one leaves the line out.
std::string With(const std::string& key, const std::string& line) {
    std::string text = kExample;
    const std::size_t begin = ("\n" + text).find("\n" + key + "=");
    const std::size_t end = text.find('\n', begin);
    return text.replace(begin, end - begin, line);
}

TEST(BundleSettings, AreWrittenAsLinesOfKeyAndValue) {
    EXPECT_EQ(SettingsText(Example()), kExample);
}

TEST(BundleSettings, AreReadBackAsWritten) {
    const auto settings = ParseSettings(kExample);
    ASSERT_TRUE(settings);
    EXPECT_EQ(SettingsText(*settings), kExample);
    EXPECT_EQ(settings->server.Place(), "10.0.0.7:7000");
    EXPECT_EQ(settings->server.input, "A=B");
    EXPECT_EQ(settings->channels, 6U);
    EXPECT_TRUE(settings->silenceWhenLate);
}

TEST(BundleSettings, HoldOneLineTextsOnly) {
    BundleSettings settings = Example();
    settings.talker = "/opt/two\nlines.so";
    EXPECT_FALSE(SettingsText(settings));
}

TEST(BundleSettings, AreRefusedWhenSomethingIsMissingOrOutOfRange) {
    struct Case {
        const char* name;
        std::string text;
        bool good;
    };
    const Case cases[] = {
        {"nothing", "", false},
        {"a key that nobody knows", std::string(kExample) + "later=1\n", true},
        {"a line without a key", std::string("hello\n") + kExample, true},
        {"no last line feed", std::string(kExample, sizeof kExample - 2), true},
        {"no server", With("server", ""), false},
        {"an empty object name", With("input", "input="), true},
        {"no number", With("channels", "channels=two"), false},
        {"a number with more behind it", With("channels", "channels=2 "), false},
        {"a negative number", With("channels", "channels=-2"), false},
        {"no channels", With("channels", "channels=0"), false},
        {"as many channels as can be", With("channels", "channels=64"), true},
        {"one more", With("channels", "channels=65"), false},
        {"a negative server port", With("servport", "servport=-58536"), true},
        {"a server port beyond an int", With("servport", "servport=2147483648"), false},
        {"any latency", With("latency", "latency=0"), true},
        {"a latency as long as the block", With("latency", "latency=128"), true},
        {"a latency shorter than the block", With("latency", "latency=127"), false},
        {"the longest latency", With("latency", "latency=480000"), true},
        {"a longer one", With("latency", "latency=480001"), false},
        {"neither yes nor no", With("silence", "silence=2"), false},
        {"a name that leaves the folder", With("name", "name=../x"), false},
    };
    for (const Case& c : cases) EXPECT_EQ(ParseSettings(c.text).has_value(), c.good) << c.name;
}

TEST(BundleName, IsSafeInFilesAndUris) {
    const std::string longest(64, 'a');
    for (const std::string& name : {std::string("studio"), std::string("A-1_b"), std::string("7"), longest})
        EXPECT_TRUE(IsBundleName(name)) << name;
    for (const std::string& name :
         {std::string(), longest + "a", std::string("-x"), std::string("_x"), std::string("."),
          std::string(".."), std::string("a/b"), std::string("../a"), std::string("a.b"), std::string("a b"),
          std::string("a>b"), std::string("a\"b"), std::string("a\\b"), std::string("a\nb"),
          std::string("a#b"), std::string("a%2Fb"), std::string("a:b"), std::string("\xC3\xA4"),
          std::string("a\0b", 3)})
        EXPECT_FALSE(IsBundleName(name)) << name;
}

TEST(PluginUri, NamesTheTalker) {
    EXPECT_EQ(PluginUri("studio"), "urn:vrx:talker:studio");
}

TEST(PortIndex, CountsBehindTheAudioPorts) {
    EXPECT_EQ(PortIndex(ControlPort::kLatency, 2), 4U);
    EXPECT_EQ(PortIndex(ControlPort::kFreeWheeling, 2), 5U);
    EXPECT_EQ(PortIndex(ControlPort::kEnabled, 2), 6U);
    EXPECT_EQ(PortIndex(ControlPort::kLate, 2), 7U);
    EXPECT_EQ(PortIndex(ControlPort::kLatency, 64), 128U);
}

class SettingsFile : public FolderTest {};

TEST_F(SettingsFile, IsReadFromTheBundle) {
    EXPECT_FALSE(ReadSettings(m_folder.Path()));
    Write("settings.txt", kExample);
    const auto settings = ReadSettings(m_folder.Path());
    ASSERT_TRUE(settings);
    EXPECT_EQ(settings->name, "studio");
    EXPECT_TRUE(ReadSettings(m_folder.Path().string() + "/")) << "hosts name folders with a slash";
}

} // namespace
