// The plug-in's binary in the strict host, with real servers.

#include "lv2/settings/BundleSettings.h"
#include "tests/lv2/InvertingServer.h"
#include "tests/lv2/StrictHost.h"
#include "tests/support/Await.h"
#include "tests/support/Entries.h"
#include "tests/support/FolderTest.h"
#include "tests/support/ScriptedServer.h"
#include "tests/tools/VrxRun.h"
#include "tests/tools/capture/RecordProcess.h"

#include <chrono>
#include <cmath>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <lv2/buf-size/buf-size.h>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>

namespace {

using namespace stricthost;
using namespace vrx;
namespace fs = std::filesystem;
using Lengths = std::vector<std::size_t>;

class LibraryTest : public FolderTest {
protected:
    lv2::BundleSettings Settings(int port, std::size_t channels = 2) const {
        lv2::BundleSettings settings;
        settings.name = "studio";
        settings.server.host = "127.0.0.1";
        settings.server.port = port;
        settings.server.args =
            "server=127.0.0.1,servport=" + std::to_string(port) + ",clport=0,input=In,output=Out,layout=Main";
        settings.server.input = "In";
        settings.server.output = "Out";
        settings.server.layout = "Main";
        settings.talker = VRX_PLUGIN;
        settings.channels = channels;
        settings.blockFrames = 64;
        settings.latencyFrames = 128;
        return settings;
    }
    /// Writes a bundle and returns its folder.
    std::string Bundle(const lv2::BundleSettings& settings) const {
        std::string bundle = Path(("vrx-" + settings.name + ".lv2").c_str());
        fs::create_directories(bundle);
        if (!fs::exists(bundle + "/vrx_lv2.so")) fs::create_symlink(VRX_LV2_BINARY, bundle + "/vrx_lv2.so");
        std::ofstream(bundle + "/settings.txt") << *lv2::SettingsText(settings);
        return bundle;
    }
};

Audio NoiseFrames(std::size_t channels, std::size_t frames) {
    Audio audio(channels);
    const std::vector<int> noise = Noise(channels * frames);
    for (std::size_t i = 0; i < noise.size(); ++i)
        audio[i % channels].push_back(static_cast<float>(noise[i]) / 32768.0F);
    return audio;
}

/// `in` as late as that, each sample times `gain`.
Audio Delayed(const Audio& in, std::size_t latency, float gain) {
    Audio out(in.size());
    for (std::size_t channel = 0; channel < in.size(); ++channel) {
        out[channel].resize(in[channel].size());
        for (std::size_t i = latency; i < in[channel].size(); ++i)
            out[channel][i] = gain * in[channel][i - latency];
    }
    return out;
}

TEST_F(LibraryTest, DescribesTheBundlesPlugin) {
    lv2::BundleSettings settings = Settings(1);
    const Library studio(Bundle(settings));
    settings.name = "other";
    const Library other(Bundle(settings)); // the same binary
    EXPECT_STREQ(studio.Plugin()->URI, "urn:vrx:talker:studio");
    EXPECT_STREQ(other.Plugin()->URI, "urn:vrx:talker:other");
    EXPECT_EQ(studio.Plugin()->extension_data("http://lv2plug.in/ns/ext/state#interface"), nullptr);
}

TEST_F(LibraryTest, HasNoPluginWithoutSettings) {
    const std::string bundle = Bundle(Settings(1));
    for (const char* text : {"", "name=studio\n"}) {
        std::ofstream(bundle + "/settings.txt") << text;
        EXPECT_EQ(Library(bundle).Plugin(), nullptr);
    }
    fs::remove(bundle + "/settings.txt");
    EXPECT_EQ(Library(bundle).Plugin(), nullptr);
}

TEST_F(LibraryTest, HasNoInstanceWithoutItsTalker) {
    lv2::BundleSettings settings = Settings(1);
    settings.talker = Path("none.so");
    const Library library(Bundle(settings));
    Features features;
    features.WithMap().WithLog();
    EXPECT_THROW(Instance(library, 2, {}, &features), std::runtime_error);
    ASSERT_EQ(features.Logged().size(), 1U);
    EXPECT_EQ(features.Logged()[0].find("vrx studio: cannot load the plug-in: " + Path("none.so")), 0U)
        << features.Logged()[0];
}

TEST_F(LibraryTest, DoesNotTouchTheNetworkBeforeActivation) {
    const ScriptedServer server({[](Peer&) { ADD_FAILURE() << "somebody connected"; }});
    const Library library(Bundle(Settings(server.Port())));
    const std::size_t before = Entries("/proc/self/task");
    const Instance instance(library, 2, {.activate = false});
    EXPECT_EQ(Entries("/proc/self/task"), before) << "nothing can connect later, either";
}

TEST_F(LibraryTest, GivesTheServersSoundAfterTheReportedLatency) {
    struct Case {
        const char* name;
        Lengths lengths;
        Habits habits;
    };
    const Case cases[] = {
        {"blocks as long as the server's", {64}, {}},
        {"one frame at a time", {1}, {}},
        {"more than the latency", {1000}, {}},
        {"all at once", {100000}, {}},
        {"lengths that change", {7, 64, 1, 300, 128, 63, 65}, {}},
        {"no frames now and then", {0, 64, 0, 0, 31}, {}},
        {"in place", {64, 100}, {.inPlace = true}},
        {"in place, one frame at a time", {1}, {.inPlace = true}},
        {"never activated", {64, 17}, {.activate = false}},
        {"no outputs connected", {64, 1000}, {.latency = false, .late = false}},
        {"enabled", {64}, {.enabled = 1.0F}},
    };
    const InvertingServer server;
    const Library library(Bundle(Settings(server.Port())));
    const Audio in = NoiseFrames(2, 3000);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Instance instance(library, 2, c.habits);
        EXPECT_EQ(instance.Play(in, c.lengths), Delayed(in, 128, -1));
        if (c.habits.latency) {
            EXPECT_EQ(instance.Latency(), 128);
        }
        if (c.habits.late) {
            EXPECT_EQ(instance.Late(), 0);
        }
    }
}

TEST_F(LibraryTest, SoundsTheSameThroughARecorder) {
    if (!CanRecord()) GTEST_SKIP() << "this vrx was built without recording";
    const InvertingServer server;
    RecordProcess record("127.0.0.1:" + std::to_string(server.Port()), Path("lv2.pcap"));
    {
        const Library library(Bundle(Settings(std::stoi(record.Port()))));
        const Audio in = NoiseFrames(2, 6400);
        Instance instance(library, 2);
        EXPECT_EQ(instance.Play(in, {64, 100, 1}), Delayed(in, 128, -1));
    }
    EXPECT_EQ(record.Stop().exitCode, 0);
    const auto read = Vrx({"diff", Path("lv2.pcap"), Path("lv2.pcap")});
    ASSERT_EQ(read.exitCode, 0) << read.err;
    std::istringstream first(read.out);
    std::string name;
    std::size_t exchanges = 0;
    first >> name >> exchanges;
    EXPECT_EQ(name, "exchanges");
    EXPECT_GE(exchanges, 100U) << "one for each block of 64 frames";
}

TEST_F(LibraryTest, ProcessesAnyNumberOfChannels) {
    const InvertingServer server;
    for (const std::size_t channels : {1U, 3U, 8U, 64U}) {
        SCOPED_TRACE(channels);
        const Library library(Bundle(Settings(server.Port(), channels)));
        const Audio in = NoiseFrames(channels, 500);
        Instance instance(library, channels);
        EXPECT_EQ(instance.Play(in, {50}), Delayed(in, 128, -1));
    }
}

TEST_F(LibraryTest, TellsTheLatencyBeforeAnythingIsPlayed) {
    const Library library(Bundle(Settings(RefusedPort())));
    Instance instance(library, 2);
    (void)instance.Run({{}, {}});
    EXPECT_EQ(instance.Latency(), 128);
}

TEST_F(LibraryTest, TakesBlocksAsLongAsTheHosts) {
    lv2::BundleSettings settings = Settings(RefusedPort());
    settings.blockFrames = settings.latencyFrames = 0;
    const Library library(Bundle(settings));
    struct Case {
        const char* uri;
        std::int32_t frames;
        float latency;
    };
    // 20 ms, 960 frames, in whole blocks beyond the least delay.
    for (const Case& c : {Case{LV2_BUF_SIZE__nominalBlockLength, 256, 256 + 4 * 256},
                          Case{LV2_BUF_SIZE__maxBlockLength, 64, 64 + 15 * 64},
                          Case{LV2_BUF_SIZE__minBlockLength, 64, 1024 + 2 * 512}}) {
        SCOPED_TRACE(c.uri);
        Features features;
        features.WithOption(c.uri, c.frames);
        Instance instance(library, 2, {.freeWheeling = 0.0F}, &features);
        (void)instance.Run({{}, {}});
        EXPECT_EQ(instance.Latency(), c.latency);
    }
}

TEST_F(LibraryTest, LetsTheDrySoundThroughAsLateAsTheWetOne) {
    const InvertingServer server;
    const Library library(Bundle(Settings(server.Port())));
    const Audio in = NoiseFrames(2, 1000);
    Instance instance(library, 2, {.enabled = 0.0F});
    EXPECT_EQ(instance.Play(in, {64, 7}), Delayed(in, 128, 1));
}

TEST_F(LibraryTest, JoinsDryAndWetWithoutAClick) {
    const InvertingServer server;
    const Library library(Bundle(Settings(server.Port(), 1)));
    Instance instance(library, 1);
    const Audio ones(1, std::vector<float>(640, 1.0F));
    std::vector<float> out;
    for (const float enabled : {1.0F, 0.0F, 1.0F}) {
        instance.Controls().enabled = enabled;
        const Audio played = instance.Play(ones, {64});
        out.insert(out.end(), played[0].begin(), played[0].end());
    }
    float largestStep = 0;
    for (std::size_t i = 129; i < out.size(); ++i)
        largestStep = std::max(largestStep, std::abs(out[i] - out[i - 1]));
    EXPECT_EQ(out[600], -1);
    EXPECT_EQ(out[1200], 1);
    EXPECT_EQ(out.back(), -1);
    EXPECT_LT(largestStep, 2.1F / 48) << "from -1 to 1 within a millisecond";
}

TEST_F(LibraryTest, RunsSeveralInstancesAtATime) {
    std::vector<InvertingServer> servers(4);
    std::vector<std::unique_ptr<Library>> libraries;
    for (const InvertingServer& server : servers) {
        lv2::BundleSettings settings = Settings(server.Port());
        settings.name = "number" + std::to_string(libraries.size());
        libraries.push_back(std::make_unique<Library>(Bundle(settings)));
    }
    const Audio in = NoiseFrames(2, 2000);
    std::vector<std::future<Audio>> played;
    for (const auto& library : libraries)
        played.push_back(std::async(std::launch::async, [&library, &in, length = 50 + 31 * played.size()] {
            return Instance(*library, 2).Play(in, {length});
        }));
    for (auto& audio : played) EXPECT_EQ(audio.get(), Delayed(in, 128, -1));
}

TEST_F(LibraryTest, OutlivesItsBundleAndItsDescription) {
    const InvertingServer server;
    const Audio in = NoiseFrames(2, 500);
    auto library = std::make_unique<Library>(Bundle(Settings(server.Port())));
    Instance instance(*library, 2);
    fs::remove_all(Path("vrx-studio.lv2"));
    EXPECT_EQ(instance.Play(in, {64}), Delayed(in, 128, -1));
}

TEST_F(LibraryTest, StartsAnewAtEachActivation) {
    const InvertingServer server;
    const Library library(Bundle(Settings(server.Port())));
    const Audio in = NoiseFrames(2, 300);
    Instance instance(library, 2);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(instance.Play(in, {64}), Delayed(in, 128, -1)) << "nothing of the round before";
        instance.Deactivate();
        instance.Activate();
    }
    instance.Activate(); // once too often
    EXPECT_EQ(instance.Play(in, {64}), Delayed(in, 128, -1));
}

TEST_F(LibraryTest, PlaysOnWithoutAServer) {
    struct Case {
        const char* name;
        bool silence;
        float gain;
    };
    for (const Case& c : {Case{"dry", false, 1}, Case{"silence", true, 0}}) {
        SCOPED_TRACE(c.name);
        lv2::BundleSettings settings = Settings(RefusedPort());
        settings.silenceWhenLate = c.silence;
        const Library library(Bundle(settings));
        const Audio in = NoiseFrames(2, 640);
        Instance instance(library, 2, {.freeWheeling = 0.0F});
        const Audio out = instance.Play(in, {64});
        const Audio expected = Delayed(in, 128, c.gain);
        for (std::size_t i = 0; i < 640; ++i) EXPECT_EQ(out[0][i] + 0.0F, expected[0][i] + 0.0F) << i;
        EXPECT_EQ(instance.Late(), 8) << "blocks whose turn came";
        instance.Deactivate();
        instance.Activate();
        (void)instance.Run({{}, {}});
        EXPECT_EQ(instance.Late(), 0) << "since activation";
    }
}

TEST_F(LibraryTest, SaysOnceThatTheServerIsNotThere) {
    const int port = RefusedPort();
    const Library library(Bundle(Settings(port)));
    Features features;
    features.WithMap().WithLog();
    Instance instance(library, 2, {.freeWheeling = 0.0F}, &features);
    const auto patience = std::chrono::steady_clock::now() + Subprocess::kPatience;
    while (features.Logged().empty() && std::chrono::steady_clock::now() < patience)
        (void)instance.Play(NoiseFrames(2, 64), {64});
    // Long enough for a second attempt, half a second later.
    const auto second = std::chrono::steady_clock::now() + std::chrono::milliseconds(800);
    while (std::chrono::steady_clock::now() < second) (void)instance.Play(NoiseFrames(2, 64), {64});
    ASSERT_EQ(features.Logged().size(), 1U);
    const std::string line = features.Logged()[0];
    EXPECT_EQ(line.find("vrx studio: no sound from 127.0.0.1:" + std::to_string(port) + ": "), 0U) << line;
    EXPECT_NE(line.find("\nhttp://lv2plug.in/ns/ext/log#Warning"), std::string::npos) << line;
}

TEST_F(LibraryTest, BouncesOnWithoutAServerThatNeverComes) {
    const Library library(Bundle(Settings(RefusedPort())));
    const Audio in = NoiseFrames(2, 6400);
    Instance instance(library, 2); // waits for the server once
    EXPECT_EQ(instance.Play(in, {64}), Delayed(in, 128, 1));
}

/// With a server that is a program of its own, to be killed.
class KilledServer : public LibraryTest {};

TEST_F(KilledServer, IsHeardAgainWhenItIsBack) {
    const std::vector<std::string> options{"--process", "invert"};
    auto server = std::make_unique<ServeProcess>(options);
    const std::string port = server->Port();
    const Library library(Bundle(Settings(std::stoi(port), 1)));
    Instance instance(library, 1);
    const Audio ones(1, std::vector<float>(640, 1.0F));
    EXPECT_EQ(instance.Play(ones, {64})[0].back(), -1);
    server->Kill();
    instance.Controls().freeWheeling = 0;
    for (int i = 0; i < 100 && instance.Late() == 0; ++i) (void)instance.Play(ones, {64});
    EXPECT_GT(instance.Late(), 0);
    EXPECT_EQ(instance.Play(ones, {64})[0].back(), 1) << "dry";
    server = std::make_unique<ServeProcess>(std::vector<std::string>{"--process", "invert", "--port", port});
    instance.Controls().freeWheeling = 1; // waits for the first reply
    EXPECT_EQ(instance.Play(ones, {64})[0].back(), -1);
}

TEST_F(LibraryTest, StopsWhileTheServerIsStuck) {
    std::promise<void> asked;
    auto server = std::make_unique<ScriptedServer>(std::vector<ScriptedServer::Script>{[&asked](Peer& peer) {
        peer.ReadLine();
        peer.Send("hello\n");
        (void)peer.Read(20); // the beginning of a request
        asked.set_value();
        peer.WaitForClose();
    }});
    const std::size_t withServer = Entries("/proc/self/task");
    const Library library(Bundle(Settings(server->Port())));
    Features features;
    features.WithMap().WithLog();
    auto instance = std::make_unique<Instance>(library, 2, Habits{.freeWheeling = 0.0F}, &features);
    (void)instance->Play(NoiseFrames(2, 640), {64});
    ASSERT_EQ(asked.get_future().wait_for(Subprocess::kPatience), std::future_status::ready);
    const auto start = std::chrono::steady_clock::now();
    instance.reset();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took.count(), 5) << "the talker itself waits for ten seconds";
    EXPECT_TRUE(features.Logged().empty());

    server.reset();
    EXPECT_TRUE(Await([&] { return Entries("/proc/self/task") < withServer; }))
        << "the thread that was let go ends";
}

/// Any schedule of calls gives the same sound.
TEST_F(LibraryTest, PlaysTheSameForEveryScheduleOfCalls) {
    const InvertingServer server;
    const Library library(Bundle(Settings(server.Port())));
    const Audio in = NoiseFrames(2, 2000);
    std::uint32_t state = 1;
    const auto random = [&state](std::uint32_t below) {
        state = state * 1664525 + 1013904223;
        return (state >> 16) % below;
    };
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        Lengths lengths;
        for (std::uint32_t i = 0; i <= random(20); ++i)
            lengths.push_back(random(3) == 0 ? random(3) : random(400));
        lengths.push_back(64);
        Instance instance(library, 2, {.activate = random(2) == 0, .inPlace = random(2) == 0});
        EXPECT_EQ(instance.Play(in, lengths), Delayed(in, 128, -1));
    }
}

} // namespace
