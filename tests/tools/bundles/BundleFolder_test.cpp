#include "tools/bundles/BundleFolder.h"

#include "tests/support/FolderTest.h"
#include "tools/program/Errors.h"

#include <atomic>
#include <thread>

namespace {

using namespace vrx;
using namespace vrx::tool;
namespace fs = std::filesystem;

lv2::BundleSettings Settings(const std::string& name) {
    lv2::BundleSettings settings;
    settings.name = name;
    settings.server.host = "10.0.0.7";
    settings.server.port = 7000;
    settings.talker = "/opt/VRX_talker_norvo.so";
    return settings;
}

class BundleFolderTest : public FolderTest {
protected:
    void Add(const lv2::BundleSettings& settings, bool overwrite = false) const {
        BundleFolder(Path("lv2")).Add(settings, "/opt/vrx_lv2.so", overwrite);
    }
    /// "" when nothing was thrown.
    template <class Call>
    static std::string Refusal(ExitCode code, const Call& call) {
        try {
            call();
            return "";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code, code) << failure.message;
            return failure.message;
        }
    }
    std::size_t Entries() const {
        const fs::directory_iterator folder(Path("lv2"));
        return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
    }
    BundleFolder Folder() const { return BundleFolder(Path("lv2")); }
};

TEST_F(BundleFolderTest, WritesAWholeBundle) {
    Add(Settings("studio"));
    const fs::path bundle = Path("lv2/vrx-studio.lv2");
    EXPECT_EQ(Folder().PathOf("studio"), bundle);
    EXPECT_EQ(Bytes("lv2/vrx-studio.lv2/settings.txt"), lv2::SettingsText(Settings("studio")));
    EXPECT_NE(Bytes("lv2/vrx-studio.lv2/manifest.ttl").find("<urn:vrx:talker:studio>"), std::string::npos);
    EXPECT_NE(Bytes("lv2/vrx-studio.lv2/plugin.ttl").find("lv2:port ["), std::string::npos);
    EXPECT_EQ(fs::read_symlink(bundle / "vrx_lv2.so"), "/opt/vrx_lv2.so");
    EXPECT_EQ(Entries(), 1U) << "nothing else is left";
}

TEST_F(BundleFolderTest, LeavesABundleOfTheSameNameAloneUnlessForced) {
    Add(Settings("studio"));
    lv2::BundleSettings other = Settings("studio");
    other.server.port = 7001;
    EXPECT_EQ(Refusal(kFileFailed, [&] { Add(other); }),
              Path("lv2/vrx-studio.lv2") +
                  ": exists already: choose another name, or overwrite it with --force");
    EXPECT_EQ(Folder().List().at(0).server.port, 7000);
    Add(other, true);
    EXPECT_EQ(Folder().List().at(0).server.port, 7001);
    EXPECT_EQ(Entries(), 1U);
}

TEST_F(BundleFolderTest, NeverTouchesWhatIsNoTalkersBundle) {
    const std::string taken = Path("lv2/vrx-studio.lv2");
    const auto refused = [&] {
        EXPECT_NE(Refusal(kFileFailed, [&] { Add(Settings("studio"), true); }), "");
        EXPECT_NE(Refusal(kFileFailed, [&] { Folder().Remove("studio"); }), "");
        EXPECT_EQ(Entries(), 1U);
        EXPECT_TRUE(Folder().List().empty());
    };
    fs::create_directories(taken);
    Write("lv2/vrx-studio.lv2/manifest.ttl", "somebody else's");
    refused();
    EXPECT_EQ(Bytes("lv2/vrx-studio.lv2/manifest.ttl"), "somebody else's");

    fs::remove_all(taken);
    Write("lv2/vrx-studio.lv2", "a file");
    refused();

    fs::remove(taken);
    fs::create_symlink(Path("nowhere"), taken);
    refused();
}

TEST_F(BundleFolderTest, RefusesNamesThatCouldLeaveTheFolder) {
    for (const char* name : {"", ".", "../x", "a/b", "/x", "a>b", "a b", "a\nb"}) {
        EXPECT_NE(Refusal(kWrongUsage, [&] { Add(Settings(name)); }), "") << name;
        EXPECT_NE(Refusal(kFileFailed, [&] { Folder().Remove(name); }), "") << name;
    }
    EXPECT_FALSE(fs::exists(Path("lv2")));
}

TEST_F(BundleFolderTest, RefusesTextsThatAreNotOneLine) {
    lv2::BundleSettings settings = Settings("studio");
    settings.server.layout = "Main\nname=other";
    EXPECT_NE(Refusal(kWrongUsage, [&] { Add(settings); }), "");
    EXPECT_EQ(Entries(), 0U);
}

TEST_F(BundleFolderTest, ListsByNameWhatItWrote) {
    EXPECT_TRUE(Folder().List().empty()) << "a folder that is not there";
    for (const char* name : {"b", "c", "a"}) Add(Settings(name));
    fs::create_directory(Path("lv2/other.lv2"));
    fs::rename(Path("lv2/vrx-c.lv2"), Path("lv2/vrx-d.lv2")); // no plug-in of that name
    std::string names;
    for (const auto& settings : Folder().List()) names += settings.name;
    EXPECT_EQ(names, "ab");
}

TEST_F(BundleFolderTest, RemovesABundle) {
    Add(Settings("a"));
    Add(Settings("b"));
    Folder().Remove("a");
    EXPECT_FALSE(fs::exists(Path("lv2/vrx-a.lv2")));
    EXPECT_EQ(Entries(), 1U);
    EXPECT_EQ(Refusal(kFileFailed, [&] { Folder().Remove("a"); }),
              "no talker 'a' in " + Path("lv2") + ": vrx lv2 list shows the names that are there");
}

TEST_F(BundleFolderTest, SaysWhyItCannotWrite) {
    Write("lv2", "a file");
    EXPECT_NE(Refusal(kFileFailed, [&] { Add(Settings("a")); }), "");
    EXPECT_NE(Refusal(kFileFailed, [&] { (void)Folder().List(); }), "");
}

TEST_F(BundleFolderTest, ShowsABundleWholeOrNotAtAll) {
    Add(Settings("a"));
    std::atomic<bool> done = false;
    std::thread writer([&] {
        for (int i = 0; i < 200; ++i) Add(Settings("a"), true);
        done = true;
    });
    const std::string whole = Bytes("lv2/vrx-a.lv2/plugin.ttl");
    std::size_t looks = 0;
    for (; !done || looks == 0; ++looks) {
        EXPECT_EQ(Bytes("lv2/vrx-a.lv2/plugin.ttl"), whole);
        EXPECT_TRUE(lv2::ReadSettings(Path("lv2/vrx-a.lv2")));
    }
    writer.join();
    EXPECT_GT(looks, 0U);
    EXPECT_EQ(Entries(), 1U);
}

} // namespace
