#include "tests/support/FolderTest.h"
#include "tests/support/JackRecorder.h"
#include "tests/support/JackServer.h"
#include "tests/tools/VrxRun.h"
#include "tests/tools/capture/RecordProcess.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <fstream>

namespace {

using Clock = std::chrono::steady_clock;

/// One server for all tests of a run: many short-lived ones make JACK unreliable.
JackServer& TheJackServer() {
    static JackServer server("vrx-test-" + std::to_string(::getpid()));
    server.Use();
    return server;
}

/// A `vrx live` at a server that inverts what it gets.
class Live {
public:
    Live(const std::string& port, std::vector<std::string> arguments)
        : m_process(Command(port, std::move(arguments))) {}

    /// Its first line; not with --json, which leaves standard output to the object.
    std::string Ready() { return m_process.ReadLine(); }
    Subprocess::Outcome End() {
        m_process.Signal(SIGTERM);
        return m_process.Wait();
    }
    Subprocess& Process() { return m_process; }

private:
    static std::vector<std::string> Command(const std::string& port, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(),
                         {VRX_PROGRAM, "live", "--plugin", VRX_PLUGIN, "--servport", port});
        return arguments;
    }

    Subprocess m_process;
};

class LiveTest : public FolderTest {
protected:
    void SetUp() override {
        if (!JackServer::Installed())
            GTEST_SKIP() << "needs jackd and its tools (Debian: jackd2; script/setup live)";
        ASSERT_TRUE(TheJackServer().Up());
    }

    /// Plays so many frames as fast as they go, of which each has to come back processed, and ends it with its summary.
    static nlohmann::json PlayFreewheeling(Live& live, std::size_t frames) {
        JackRecorder recorder("vrx");
        EXPECT_TRUE(recorder.Up());
        recorder.Freewheel(true);
        EXPECT_TRUE(recorder.Hear(20000)); // what came before may have been late
        const std::size_t from = recorder.Frames();
        EXPECT_TRUE(recorder.Hear(frames));
        const std::size_t to = recorder.Frames();
        recorder.Freewheel(false);
        const Subprocess::Outcome end = live.End();
        EXPECT_EQ(end.exitCode, 0) << end.err;
        nlohmann::json summary = nlohmann::json::parse(end.out);
        EXPECT_EQ(recorder.Count(from, to, summary["latency_frames"]).wet, to - from);
        return summary;
    }

    static constexpr std::size_t kPeriod = 256;
    ServeProcess m_serve{{"--process", "invert"}};
};

TEST_F(LiveTest, ReportsWhatItDelays) {
    Live live(m_serve.Port(), {"--block", "256", "--latency", "768"});
    EXPECT_EQ(live.Ready(),
              "vrx live: ready: 2 channels at 48000 Hz, period 256, block 256, latency 768 frames (16.0 ms)");
    JackRecorder recorder("vrx");
    ASSERT_TRUE(recorder.Up());
    EXPECT_TRUE(Await(
        [&] { return recorder.Latencies("vrx") == std::pair<jack_nframes_t, jack_nframes_t>(768, 768); }));
    ASSERT_TRUE(recorder.Hear(48000));
    const std::size_t delay = 768;
    const JackRecorder::Counts heard = recorder.Count(24000, recorder.Frames(), delay);
    EXPECT_GT(heard.wet, heard.other + heard.dry + heard.silence); // a busy machine may be late now and then
    for (const std::size_t wrong : {delay - 1, delay + 1, delay - 256, delay + 256})
        EXPECT_LT(recorder.Count(24000, recorder.Frames(), wrong).wet, 100U) << wrong;
    const Subprocess::Outcome end = live.End();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.err, "");
}

TEST_F(LiveTest, FreewheelingIsExactFromTheFirstFrameToTheLast) {
    for (const char* block : {"64", "256", "1000"}) {
        SCOPED_TRACE(block);
        Live live(m_serve.Port(), {"--block", block, "--latency", "2000", "--json"});
        PlayFreewheeling(live, 480000);
    }
}

TEST_F(LiveTest, SoundsTheSameThroughARecorder) {
    if (!CanRecord()) GTEST_SKIP() << "this vrx was built without recording";
    RecordProcess record("127.0.0.1:" + m_serve.Port(), Path("live.pcap"));
    Live live(record.Port(), {"--block", "256", "--latency", "2000", "--json"});
    const nlohmann::json summary = PlayFreewheeling(live, 96000);

    EXPECT_EQ(record.Stop().exitCode, 0);
    const auto read = Vrx({"diff", Path("live.pcap"), Path("live.pcap"), "--json"});
    ASSERT_EQ(read.exitCode, 0) << read.err;
    EXPECT_GE(nlohmann::json::parse(read.out)["same"], summary["blocks"]);
}

TEST_F(LiveTest, TheSummaryHasItsKeys) {
    Live live(m_serve.Port(),
              {"--seconds", "0.5", "--json", "--report", Path("live.html"), "--csv", Path("live.csv")});
    const Subprocess::Outcome end = live.Process().Wait();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    const nlohmann::json summary = nlohmann::json::parse(end.out);
    for (const char* key : {"sample_rate", "period_frames", "block_frames", "latency_frames", "channels",
                            "frames", "blocks", "late", "lost", "reconnects", "xruns"})
        EXPECT_TRUE(summary.at(key).is_number_unsigned()) << key;
    for (const char* key : {"p50", "p99", "p99_9", "max"})
        EXPECT_GT(summary.at("round_trip").at(key), 0) << key;
    for (const char* key : {"p50", "p99", "max"}) EXPECT_GT(summary.at("process").at(key), 0) << key;
    EXPECT_EQ(summary["sample_rate"], 48000);
    EXPECT_EQ(summary["channels"], 2);
    EXPECT_GT(summary["frames"], 0);
    EXPECT_EQ(end.err.find("vrx live: ready: "), 0U); // standard output is the object's alone
    std::ifstream page(Path("live.html"));
    EXPECT_NE(std::string(std::istreambuf_iterator<char>(page), {}).find("vrx live: vrx through 127.0.0.1:"),
              std::string::npos);
    std::ifstream rows(Path("live.csv"));
    EXPECT_GT(std::count(std::istreambuf_iterator<char>(rows), {}, '\n'), 10);
}

TEST_F(LiveTest, SoundIsBackAfterTheServerWasKilled) {
    Live live(m_serve.Port(), {"--block", "256", "--latency", "2048", "--json"});
    JackRecorder recorder("vrx");
    ASSERT_TRUE(recorder.Up());
    ASSERT_TRUE(recorder.Hear(24000));
    m_serve.Kill();
    const std::size_t killed = recorder.Frames();
    ASSERT_TRUE(recorder.Hear(24000));
    const ServeProcess again({"--process", "invert", "--port", m_serve.Port()});
    const std::size_t back = recorder.Frames();
    const std::size_t delay = 2048;
    const auto wet = [&](std::size_t from) { return recorder.Count(from, recorder.Frames(), delay).wet; };
    EXPECT_TRUE(Await([&] { return wet(back) > 2000; }));
    ASSERT_TRUE(recorder.Hear(4800));
    const Subprocess::Outcome end = live.End();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    const nlohmann::json summary = nlohmann::json::parse(end.out);
    EXPECT_GE(summary["reconnects"], 1);
    EXPECT_GT(summary["late"], 50);
    EXPECT_GE(summary["lost"], 1);
    EXPECT_LE(summary["lost"], summary["late"]);
    // The dry input stood in, with the same delay.
    EXPECT_GT(recorder.Count(killed + 4096, back, delay).dry, (back - killed) / 2);
    EXPECT_NE(end.err.find("is away: "), std::string::npos) << end.err;
    EXPECT_EQ(end.err.find("is away: "), end.err.rfind("is away: ")) << end.err; // one line for one outage
}

/// Whatever becomes of a reply: what comes out is processed or dry, at one and the same delay, with a fade of a
/// millisecond between the two, and where the server goes on the processed sound is soon back.
TEST_F(LiveTest, EachFaultChangesNothingButWetToDry) {
    struct Case {
        const char* faults;
        bool back;      // within this test's patience
        int late;       // at least
        int reconnects; // at least
    };
    const std::size_t delay = 1024;
    constexpr std::size_t kFade = 48;
    for (const Case& c : {
             Case{"late=100ms", true, 1, 0}, Case{"reset", true, 1, 1}, Case{"cut=2", true, 1, 1},
             Case{"pieces=4000", true, 0, 0}, Case{"refuse=2s", true, 1, 1},
             Case{"no-answer", false, 1, 0}, // the talker waits for ten seconds
         }) {
        SCOPED_TRACE(c.faults);
        // With this seed it is some 140 replies, three quarters of a second, until one is spoilt.
        const ServeProcess serve({"--process", "invert", "--faults", c.faults, "--fault-rate", "0.01",
                                  "--fault-limit", "1", "--seed", "433"});
        Live live(serve.Port(), {"--block", "256", "--latency", "1024", "--json"});
        JackRecorder recorder("vrx");
        ASSERT_TRUE(recorder.Up());
        const std::size_t from =
            recorder.Frames() + delay + 2 * kPeriod; // connections take effect with a period
        ASSERT_TRUE(recorder.Hear(48000));
        const std::size_t fault = recorder.Frames();
        if (c.back) {
            EXPECT_TRUE(Await([&] { return recorder.Count(fault, recorder.Frames(), delay).wet > 2000; }));
        } else {
            ASSERT_TRUE(recorder.Hear(24000));
            EXPECT_EQ(recorder.Count(fault, fault + 24000, delay).dry, 24000U);
        }
        EXPECT_LE(recorder.LongestFade(from, recorder.Frames(), delay), kFade);
        const Subprocess::Outcome end = live.End();
        EXPECT_EQ(end.exitCode, 0) << end.err;
        const nlohmann::json summary = nlohmann::json::parse(end.out);
        EXPECT_EQ(summary["latency_frames"], 1024);
        EXPECT_GE(summary["late"], c.late);
        EXPECT_GE(summary["reconnects"], c.reconnects);
    }
}

TEST_F(LiveTest, ConnectJoinsThePhysicalPorts) {
    Live live(m_serve.Port(), {"--latency", "1024", "--connect"});
    EXPECT_NE(live.Ready(), "");
    const std::string ports = RunProgram({"jack_lsp", "-c"}).out;
    for (const char* joined : {"system:capture_1\n   vrx:in_1\n", "system:capture_2\n   vrx:in_2\n",
                               "system:playback_1\n   vrx:out_1\n", "system:playback_2\n   vrx:out_2\n"})
        EXPECT_NE(ports.find(joined), std::string::npos) << ports;
    EXPECT_EQ(live.End().exitCode, 0);
}

TEST_F(LiveTest, AStuckServerDoesNotHoldUpTheEnd) {
    const ServeProcess serve({"--faults", "no-answer"});
    Live live(serve.Port(), {"--block", "256", "--latency", "1024", "--json"});
    JackRecorder recorder("vrx");
    ASSERT_TRUE(recorder.Up());
    ASSERT_TRUE(recorder.Hear(9600));
    const auto begin = Clock::now();
    const Subprocess::Outcome end = live.End();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5)); // the talker itself would wait for ten
}

TEST_F(LiveTest, ManyChannelsAndTwoClients) {
    Live wide(m_serve.Port(), {"--channels", "32", "--name", "wide", "--latency", "1024"});
    EXPECT_EQ(
        wide.Ready().find("vrx live: ready: 32 channels at 48000 Hz, period 256, block 32, latency 1024"), 0U)
        << wide.Ready();
    Live second(m_serve.Port(), {"--name", "wide", "--block", "256", "--latency", "512"});
    EXPECT_NE(second.Ready(), "");
    JackRecorder recorder("wide-01"); // JACK's name for the second one
    EXPECT_TRUE(recorder.Up() && recorder.HasPort("wide:out_32"));
    EXPECT_EQ(wide.End().exitCode, 0);
    EXPECT_EQ(second.End().exitCode, 0);
}

TEST_F(LiveTest, APeriodChangeMakesANewBridgeAndKeepsThePorts) {
    Live live(m_serve.Port(), {"--block", "256", "--latency", "256", "--json"});
    JackRecorder recorder("vrx");
    ASSERT_TRUE(recorder.Up());
    ASSERT_TRUE(recorder.Hear(4800));
    EXPECT_EQ(RunProgram({"jack_bufsize", "1024"}).exitCode, 0);
    const bool changed = Await(
        [&] { return recorder.Latencies("vrx") == std::pair<jack_nframes_t, jack_nframes_t>(1024, 1024); });
    ASSERT_TRUE(recorder.Hear(96000));
    EXPECT_GT(recorder.Count(recorder.Frames() - 48000, recorder.Frames(), 1024).wet, 24000U);
    EXPECT_EQ(RunProgram({"jack_bufsize", "256"}).exitCode, 0);
    EXPECT_TRUE(changed);
    const Subprocess::Outcome end = live.End();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_NE(end.err.find(
                  "vrx live: JACK has changed: 2 channels at 48000 Hz, period 1024, block 256, latency 1024"),
              std::string::npos)
        << end.err;
}

TEST_F(LiveTest, TheEndOfTheJackServerEndsItWithFour) {
    JackServer own("vrx-test-own-" + std::to_string(::getpid()), 1024);
    ASSERT_TRUE(own.Up());
    Live live(m_serve.Port(), {"--latency", "2048"});
    EXPECT_NE(live.Ready().find("period 1024"), std::string::npos);
    own.Stop();
    const Subprocess::Outcome end = live.Process().Wait();
    EXPECT_EQ(end.exitCode, 4) << end.err;
    EXPECT_NE(end.err.find("vrx live: the JACK server has ended\n"), std::string::npos) << end.err;
    EXPECT_NE(end.out.find(" blocks of 512 frames through 127.0.0.1:"), std::string::npos) << end.out;
}

TEST_F(LiveTest, FailuresAreOneLine) {
    struct Case {
        std::vector<std::string> arguments;
        int code;
        const char* part;
    };
    const std::string port = m_serve.Port();
    for (const Case& c : {
             Case{{"--servport", port, "--channels", "65"}, 1, "--channels"},
             Case{{"--servport", port, "--late", "wet"}, 1, "--late"},
             Case{{"--servport", port, "--name", ""}, 1, "--name"},
             Case{{"--servport", port, "--name", std::string(100, 'x')}, 1, "--name"},
             Case{{"--servport", port, "--block", "262000"}, 1, "blocks of 262000 frames are too long"},
             Case{{}, 1, "--servport"},
             Case{{"--servport", "1"}, 3, "cannot connect to 127.0.0.1:1"},
             Case{{"--servport", port, "--plugin", Path("none.so")}, 2, "none.so"},
         }) {
        std::vector<std::string> arguments = {"live", "--plugin", VRX_PLUGIN};
        if (c.code == 2) arguments.resize(1);
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const Subprocess::Outcome end = Vrx(arguments);
        EXPECT_EQ(end.exitCode, c.code) << end.err;
        EXPECT_EQ(end.out, "");
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        EXPECT_NE(end.err.find(c.part), std::string::npos) << end.err;
    }
}

TEST_F(LiveTest, StartsNoJackServer) {
    ::setenv("JACK_DEFAULT_SERVER", "nobody-runs-this-one", 1);
    const Subprocess::Outcome end = Vrx({"live", "--plugin", VRX_PLUGIN, "--servport", m_serve.Port()});
    TheJackServer().Use();
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
    EXPECT_NE(end.err.find("no JACK server runs here"), std::string::npos) << end.err;
}

} // namespace
