#include "tests/support/FolderTest.h"
#include "tests/support/RawClient.h"
#include "tests/support/ScriptedServer.h"
#include "tests/tools/VrxRun.h"
#include "tests/tools/capture/RecordProcess.h"
#include "tests/tools/capture/Requests.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <thread>

namespace {

/// A `vrx replay --serve` under way.
class ReplayProcess {
public:
    explicit ReplayProcess(const std::string& file, const std::string& timing = "recorded")
        : m_process({VRX_PROGRAM, "replay", file, "--serve", "--timing", timing}) {
        const std::string first = m_process.ReadLine();
        m_port = first.substr(first.rfind(':') + 1);
    }
    const std::string& Port() const { return m_port; }
    std::uint16_t Number() const { return static_cast<std::uint16_t>(std::stoi(m_port)); }
    Subprocess::Outcome Stop() {
        m_process.Signal(SIGTERM);
        return m_process.Wait();
    }
    Subprocess::Outcome Wait() { return m_process.Wait(); }

private:
    Subprocess m_process;
    std::string m_port;
};

class Replay : public FolderTest {
protected:
    /// Runs `clients` against the server through a recorder.
    template <class Clients>
    std::string Recorded(const std::string& server, const Clients& clients, const char* name = "run.pcap") {
        RecordProcess record("127.0.0.1:" + server, Path(name));
        clients(record.Port());
        const auto end = record.Stop();
        EXPECT_EQ(end.exitCode, 0) << end.err;
        return Path(name);
    }

    Subprocess::Outcome Pump(const std::string& port, const char* out, std::vector<std::string> more = {}) {
        std::vector<std::string> command{"pump", Path("in.wav"), Path(out), "--force",    "--block",
                                         "20",   "--retries",    "0",       "--servport", port};
        command.insert(command.end(), more.begin(), more.end());
        return Vrx(command);
    }
    static Subprocess::Outcome Diff(const std::string& a, const std::string& b) {
        return Vrx({"diff", a, b});
    }
};

/// What a pump's run came to, without what differs from run to run.
std::string Verdict(const Subprocess::Outcome& end, const std::string& port) {
    std::string text = std::to_string(end.exitCode) + " " + end.err;
    for (std::size_t at = 0; (at = text.find(port)) != text.npos;) text.replace(at, port.size(), "PORT");
    static const std::regex waited("waited [0-9.]+ s");
    return std::regex_replace(text, waited, "waited * s");
}

} // namespace

TEST_F(Replay, ServesAPumpAsTheServerDid) {
    Write("in.wav", Wav16(2, Noise(4000)));
    const ServeProcess server({"--process", "gain=-6"});
    const std::string file = Recorded(
        server.Port(), [&](const std::string& port) { EXPECT_EQ(Pump(port, "recorded.wav").exitCode, 0); });
    for (const char* timing : {"recorded", "fast"}) {
        ReplayProcess replay(file, timing);
        for (int round = 0; round < 2; ++round) { // as often as one likes
            const auto end = Pump(replay.Port(), "replayed.wav");
            EXPECT_EQ(end.exitCode, 0) << end.err;
            EXPECT_EQ(Bytes("recorded.wav"), Bytes("replayed.wav"));
        }
        const auto end = replay.Stop();
        EXPECT_EQ(end.exitCode, 0);
        EXPECT_EQ(end.err, "");
    }
}

TEST_F(Replay, ARecordingOfTheReplayIsTheSame) {
    Write("in.wav", Wav16(2, Noise(4000)));
    const ServeProcess server({"--process", "delay=3"});
    const auto clients = [&](const std::string& port) {
        EXPECT_EQ(Pump(port, "out.wav").exitCode, 0);
        EXPECT_EQ(Vrx({"pins", "--servport", port}).exitCode, 0);
        EXPECT_EQ(Vrx({"send", "--servport", port, "help", "status", "nonsense"}).exitCode, 0);
    };
    const std::string first = Recorded(server.Port(), clients);
    ReplayProcess replay(first);
    const std::string second = Recorded(replay.Port(), clients, "again.pcap");
    const auto diff = Diff(first, second);
    EXPECT_EQ(diff.exitCode, 0) << diff.err;
}

TEST_F(Replay, SaysWhichSampleAClientSendsDifferently) {
    Write("in.wav", Wav16(2, Noise(4000)));
    const ServeProcess server;
    const std::string file =
        Recorded(server.Port(), [&](const std::string& port) { EXPECT_EQ(Pump(port, "a.wav").exitCode, 0); });
    std::vector<int> changed = Noise(4000);
    changed[2 * 20 * 3 + 5] = 8192; // block 4, frame 3, second channel
    Write("in.wav", Wav16(2, changed));
    ReplayProcess replay(file);
    const auto pump = Pump(replay.Port(), "b.wav");
    EXPECT_EQ(pump.exitCode, 4);
    const auto end = replay.Wait();
    EXPECT_EQ(end.exitCode, 4);
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
    EXPECT_TRUE(end.err.starts_with("vrx replay: exchange 6, request frame 3, channel 2: ")) << end.err;
    EXPECT_TRUE(end.err.ends_with(" in " + file + ", 0.25 from the client\n")) << end.err;
}

TEST_F(Replay, AnswersADifferentRequestWithAnErrorLine) {
    const ServeProcess server;
    const std::string file = Recorded(server.Port(), [](const std::string& port) {
        const RawClient client(static_cast<std::uint16_t>(std::stoi(port)));
        client.Ask("help");
    });
    {
        ReplayProcess replay(file);
        const RawClient client(replay.Number());
        EXPECT_EQ(client.Ask("status"),
                  "error: exchange 1, request text: 'help' in " + file + ", 'status' from the client");
        EXPECT_EQ(replay.Wait().exitCode, 4);
    }
    ReplayProcess replay(file);
    const RawClient client(replay.Number());
    EXPECT_TRUE(client.Ask("help").starts_with("commands: "));
    EXPECT_EQ(client.Ask("help"), "error: exchange 2, request: no more exchanges in " + file +
                                      ", the text 'help' from the client");
    EXPECT_EQ(replay.Wait().exitCode, 4);
}

TEST_F(Replay, GivesEachOfManyClientsItsOwnConnection) {
    constexpr unsigned kClients = 20;
    const ServeProcess server;
    const auto clients = [](const std::string& port) {
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < kClients; ++i)
            threads.emplace_back([&port, i] {
                const RawClient client(static_cast<std::uint16_t>(std::stoi(port)));
                client.Ask("connect,127.0.0.1,0");
                for (unsigned n = 0; n < 10; ++n) {
                    client.Send(BlockRequest({n < 2 ? 0 : i, n}));
                    const std::string reply = client.Receive(36);
                    ASSERT_EQ(reply.substr(28), BlockReply({n < 2 ? 0 : i, n}).substr(28)) << i << " " << n;
                }
            });
        for (std::thread& thread : threads) thread.join();
    };
    const std::string first = Recorded(server.Port(), clients);
    ReplayProcess replay(first, "fast");
    const std::string second = Recorded(replay.Port(), clients, "again.pcap");
    const auto end = replay.Stop();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    const auto diff = Diff(first, second);
    EXPECT_EQ(diff.exitCode, 0) << diff.err;
}

TEST_F(Replay, EveryFaultComesBack) {
    Write("in.wav", Wav16(2, Noise(200)));
    for (const char* fault : {"pieces=10", "stall=200ms", "stall-header=200ms", "cut=10", "reset",
                              "wrong-tag", "wrong-length=8", "wrong-length=4000000000", "negative-status",
                              "text", "endless-text", "late=200ms", "duplicate", "refuse=100ms"}) {
        SCOPED_TRACE(fault);
        std::string recorded;
        std::string file;
        {
            const ServeProcess server({"--faults", fault, "--fault-limit", "1"});
            file = Recorded(
                server.Port(),
                [&](const std::string& port) {
                    recorded = Verdict(Pump(port, "out.wav"), port) + Bytes("out.wav");
                },
                "fault.pcap");
        }
        ReplayProcess replay(file);
        std::filesystem::remove(Path("out.wav"));
        const std::string replayed =
            Verdict(Pump(replay.Port(), "out.wav"), replay.Port()) + Bytes("out.wav");
        EXPECT_EQ(recorded, replayed);
        std::filesystem::remove(Path("out.wav"));
        const auto end = replay.Stop();
        EXPECT_EQ(end.exitCode, 0) << end.err;
        std::filesystem::remove(file);
    }
}

TEST_F(Replay, ASilentServerStaysSilent) {
    const ServeProcess server({"--faults", "no-answer"});
    const std::string file = Recorded(server.Port(), [](const std::string& port) {
        const RawClient client(static_cast<std::uint16_t>(std::stoi(port)));
        client.Ask("connect,127.0.0.1,0");
        client.Send(BlockRequest({1}));
        client.EndSending(); // and gives up
    });
    ReplayProcess replay(file);
    const RawClient client(replay.Number());
    EXPECT_EQ(client.Ask("connect,127.0.0.1,0"), "connected");
    client.Send(BlockRequest({1}));
    client.EndSending();
    EXPECT_EQ(client.ReceiveRest(), "<end>");
    EXPECT_EQ(replay.Stop().exitCode, 0);
}

TEST_F(Replay, ATalkerWaitsTenSecondsForASilentServerAgain) {
    Write("in.wav", Wav16(2, Noise(200)));
    const ServeProcess server({"--faults", "no-answer"});
    const auto pump = [&](const std::string& port) { // never gets to write its output
        return std::vector<std::string>{VRX_PROGRAM,  "pump", Path("in.wav"), Path("out.wav"),
                                        "--block",    "20",   "--retries",    "0",
                                        "--servport", port};
    };
    const std::string file = Recorded(server.Port(), [&](const std::string& port) {
        const RawClient watch(static_cast<std::uint16_t>(std::stoi(server.Port())));
        const Subprocess hasty(pump(port)); // killed once it has asked for its pins and a block
        while (watch.Ask("status").find(" packets=2 ") == std::string::npos) std::this_thread::yield();
    });
    ReplayProcess replay(file);
    const auto began = std::chrono::steady_clock::now();
    Subprocess direct(pump(server.Port()));
    Subprocess replayed(pump(replay.Port()));
    constexpr std::chrono::seconds kPatience(60);
    const auto end = direct.Wait(kPatience);
    EXPECT_EQ(end.exitCode, 4);
    EXPECT_EQ(Verdict(replayed.Wait(kPatience), replay.Port()), Verdict(end, server.Port()));
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::seconds(9));
    EXPECT_EQ(replay.Stop().exitCode, 0);
}

TEST_F(Replay, AsksAServerWhatWasAsked) {
    Write("in.wav", Wav16(2, Noise(4000)));
    const ServeProcess server({"--process", "gain=-6"});
    const std::string file =
        Recorded(server.Port(), [&](const std::string& port) { EXPECT_EQ(Pump(port, "a.wav").exitCode, 0); });
    const auto same =
        Vrx({"replay", file, "--to", "127.0.0.1:" + server.Port(), "--timing", "fast", "--json"});
    EXPECT_EQ(same.exitCode, 0) << same.err;
    EXPECT_EQ(same.out, R"({"exchanges":102,"same":102,"different":0,"missing":0,"first":null})"
                        "\n");
    const ServeProcess louder({"--process", "gain=-5"});
    const auto other = Vrx({"replay", file, "--to", "127.0.0.1:" + louder.Port(), "--json"});
    EXPECT_EQ(other.exitCode, 4);
    const auto json = nlohmann::json::parse(other.out);
    EXPECT_EQ(json["different"], 100);
    EXPECT_EQ(json["first"]["exchange"], 3);
    EXPECT_EQ(json["first"]["what"], "reply frame 1, channel 1");
    EXPECT_TRUE(IsOneLine(other.err)) << other.err;
    EXPECT_TRUE(other.err.starts_with("vrx replay: exchange 3, reply frame 1, channel 1: ")) << other.err;
    EXPECT_EQ(
        Vrx({"replay", file, "--to", "127.0.0.1:" + louder.Port(), "--timing", "fast", "--tolerance", "-10"})
            .exitCode,
        0);
}

TEST_F(Replay, NoticesThatAServerDoesNotAnswerAnyMore) {
    const ServeProcess server;
    const std::string file = Recorded(server.Port(), [](const std::string& port) {
        const RawClient client(static_cast<std::uint16_t>(std::stoi(port)));
        client.Ask("help");
        client.Ask("help");
    });
    const ScriptedServer closing({[](Peer& peer) { peer.ReadLine(); }, [](Peer& peer) { peer.ReadLine(); }});
    const auto end = Vrx({"replay", file, "--to", "127.0.0.1:" + std::to_string(closing.Port()), "--timing",
                          "fast", "--json"});
    EXPECT_EQ(end.exitCode, 4);
    const auto json = nlohmann::json::parse(end.out);
    EXPECT_EQ(json["different"], 2);
    EXPECT_EQ(json["first"]["what"], "reply");
    EXPECT_EQ(json["first"]["b"], "nothing");
}

TEST_F(Replay, SaysWhatIsWrongOnOneLine) {
    Write("no.pcap", "no capture");
    const ServeProcess server;
    const std::string file = Recorded(server.Port(), [](const std::string& port) {
        const RawClient client(static_cast<std::uint16_t>(std::stoi(port)));
        client.Ask("help");
    });
    const std::string empty = Recorded(
        server.Port(), [](const std::string&) {}, "empty.pcap");
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        std::string line;
    };
    const std::string nothing =
        "vrx replay: " + empty + ": holds no exchange between a talker and a server: is it the right file?\n";
    const std::string refused = "127.0.0.1:" + std::to_string(RefusedPort());
    const Case cases[] = {
        {{file},
         1,
         "vrx replay: one of --serve and --to HOST:PORT is needed: answer clients, or ask a server\n"},
        {{file, "--serve", "--json"}, 1, "vrx replay: --json, --tolerance and --report belong to --to\n"},
        {{file, "--to", "x", "--json"}, 1, "vrx replay: --to x is not HOST:PORT, such as 127.0.0.1:7000\n"},
        {{Path("none.pcap"), "--serve"},
         2,
         "vrx replay: " + Path("none.pcap") + ": cannot be opened: No such file or directory\n"},
        {{Path("no.pcap"), "--serve"}, 2, {}},
        {{empty, "--serve"}, 2, nothing},
        {{empty, "--to", "127.0.0.1:" + server.Port()}, 2, nothing},
        {{file, "--to", refused},
         3,
         "vrx replay: cannot connect to " + refused + ": Connection refused; is the server running there?\n"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> command{"replay"};
        command.insert(command.end(), c.arguments.begin(), c.arguments.end());
        const auto end = Vrx(command);
        EXPECT_EQ(end.exitCode, c.exitCode);
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        if (!c.line.empty()) {
            EXPECT_EQ(end.err, c.line);
        }
        EXPECT_EQ(end.out, "");
    }
}
