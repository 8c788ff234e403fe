#include "tests/support/FolderTest.h"
#include "tests/support/RawClient.h"
#include "tests/support/ScriptedServer.h"
#include "tests/tools/VrxRun.h"
#include "tests/tools/capture/RecordProcess.h"
#include "tests/tools/capture/Requests.h"
#include "tests/tools/capture/Tshark.h"
#include "tools/capture/Recording.h"

#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using vrx::tool::Exchange;
using vrx::tool::Recording;
using vrx::tool::ReplyBytes;
using vrx::tool::ServerEnd;

namespace {

std::vector<Exchange> Exchanges(const std::string& path) {
    std::vector<Exchange> all;
    Recording recording(path);
    for (Exchange each; recording.Next(each);) all.push_back(each);
    return all;
}

/// How many exchanges of a recording have their whole reply.
std::size_t WholeExchanges(const std::string& path) {
    std::size_t whole = 0;
    for (const Exchange& each : Exchanges(path)) whole += each.whole ? 1 : 0;
    return whole;
}

/// A request and the pieces of its reply, in hexadecimal.
using Told = std::pair<std::string, std::vector<std::string>>;

std::string Hex(const std::string& bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        text += kDigits[static_cast<unsigned char>(c) >> 4];
        text += kDigits[c & 0xF];
    }
    return text;
}

/// What tshark reads, connection by connection: what a client sends behind a reply is its next request.
std::map<int, std::vector<Told>> ExchangesByTshark(const std::string& path, const std::string& serverPort) {
    std::map<int, std::vector<Told>> streams;
    const std::string json = Tshark(path, {"-Y", "tcp.len > 0", "-T", "json", "-e", "tcp.stream", "-e",
                                           "tcp.dstport", "-e", "tcp.payload"});
    for (const auto& packet : nlohmann::json::parse(json)) {
        const auto field = [&](const char* name) {
            return packet["_source"]["layers"][name][0].get<std::string>();
        };
        auto& told = streams[std::stoi(field("tcp.stream"))];
        std::string payload = field("tcp.payload");
        std::erase(payload, ':');
        if (field("tcp.dstport") != serverPort) {
            told.back().second.push_back(payload);
        } else if (told.empty() || !told.back().second.empty()) {
            told.push_back({payload, {}});
        } else {
            told.back().first += payload;
        }
    }
    return streams;
}

std::string Place(int port) {
    return "127.0.0.1:" + std::to_string(port);
}

class Record : public FolderTest {};

} // namespace

TEST_F(Record, APumpThroughItIsThePumpItself) {
    Write("in.wav", Wav16(2, Noise(20000)));
    const ServeProcess server({"--process", "gain=-3", "--process", "delay=17"});
    const auto pump = [this](const char* out, const std::string& port) {
        const auto end = Vrx({"pump", Path("in.wav"), Path(out), "--block", "100", "--servport", port});
        EXPECT_EQ(end.exitCode, 0) << end.err;
    };
    pump("direct.wav", server.Port());
    RecordProcess record("127.0.0.1:" + server.Port(), Path("run.pcap"));
    pump("recorded.wav", record.Port());
    const auto end = record.Stop();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.err, "");
    EXPECT_TRUE(end.out.starts_with("vrx record: listening on 127.0.0.1:" + record.Port() +
                                    "\nvrx record: 1 client, "))
        << end.out;
    EXPECT_EQ(Bytes("direct.wav"), Bytes("recorded.wav"));

    const auto all = Exchanges(Path("run.pcap"));
    ASSERT_EQ(all.size(), 102U) << "connect, pins, 100 blocks";
    EXPECT_EQ(all[0].request, "connect,127.0.0.1,0\n");
    for (const Exchange& each : all) EXPECT_TRUE(each.whole) << each.number;
}

TEST_F(Record, KeepsPiecesEndsAndHalfCloses) {
    const ScriptedServer server({[](Peer& peer) {
                                     peer.ReadLine();
                                     peer.Send("one");
                                     peer.ReadLine(); // the client has seen the piece
                                     peer.Send("two\n");
                                     peer.Close();
                                 },
                                 [](Peer& peer) {
                                     peer.ReadLine();
                                     peer.Reset();
                                 },
                                 [](Peer& peer) {
                                     EXPECT_EQ(peer.Read(100), "half\n") << "up to the client's end";
                                     peer.Send("answer\n");
                                 }});
    RecordProcess record(Place(server.Port()), Path("run.pcap"));
    const auto port = static_cast<std::uint16_t>(std::stoi(record.Port()));
    {
        const RawClient client(port);
        client.Send("first\n");
        EXPECT_EQ(client.Receive(3), "one");
        client.Send("second\n");
        EXPECT_EQ(client.ReceiveRest(), "two\n<end>");
    }
    {
        const RawClient client(port);
        client.Send("third\n");
        EXPECT_EQ(client.ReceiveRest(), "<reset>");
    }
    {
        const RawClient client(port);
        client.Send("half\n");
        client.EndSending();
        EXPECT_EQ(client.ReceiveRest(), "answer\n<end>");
    }
    EXPECT_EQ(record.Stop().exitCode, 0);
    const auto all = Exchanges(Path("run.pcap"));
    ASSERT_EQ(all.size(), 4U);
    EXPECT_EQ(all[1].end, ServerEnd::kCloses);
    EXPECT_EQ(all[2].request, "third\n");
    EXPECT_EQ(all[2].end, ServerEnd::kResets);
    EXPECT_EQ(ReplyBytes(all[3]), "answer\n");
    EXPECT_EQ(all[3].end, ServerEnd::kStays);
}

TEST_F(Record, SurvivesAKillUpToTheLastWholeExchange) {
    const ServeProcess server;
    RecordProcess record("127.0.0.1:" + server.Port(), Path("run.pcap"));
    const RawClient client(static_cast<std::uint16_t>(std::stoi(record.Port())));
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(client.Ask("help").starts_with("commands: "));
    // The reply was handed on before it was written, so the next one shows that it was.
    client.Ask("status");
    record.Kill();
    EXPECT_GE(Exchanges(Path("run.pcap")).size(), 100U);
}

TEST_F(Record, RecordsTwentyClientsAtOnce) {
    constexpr int kClients = 20;
    constexpr int kRequests = 50;
    const ServeProcess server;
    RecordProcess record("127.0.0.1:" + server.Port(), Path("run.pcap"));
    const auto port = static_cast<std::uint16_t>(std::stoi(record.Port()));
    std::vector<std::thread> clients;
    for (unsigned i = 0; i < kClients; ++i)
        clients.emplace_back([port, i] {
            const RawClient client(port);
            for (unsigned n = 0; n < kRequests; ++n) {
                const std::string request = BlockRequest({i, n});
                client.Send(request);
                const std::string reply = client.Receive(BlockReply({i, n}).size());
                ASSERT_EQ(reply.substr(28), BlockReply({i, n}).substr(28));
            }
        });
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(record.Stop().exitCode, 0);
    const auto all = Exchanges(Path("run.pcap"));
    EXPECT_EQ(all.size(), std::size_t{kClients} * kRequests);
    for (const Exchange& each : all) EXPECT_EQ(ReplyBytes(each).substr(28), each.request.substr(20, 8));
    if (!HaveTshark())
        GTEST_SKIP() << "tshark is not installed (script/setup ci): the capture was not checked with it";
    EXPECT_EQ(Tshark(Path("run.pcap"), {"-Y", kTrouble}), "");
}

TEST_F(Record, MutesSamples) {
    const ServeProcess server;
    RecordProcess record("127.0.0.1:" + server.Port(), Path("run.pcap"), {"--mute"});
    {
        const RawClient client(static_cast<std::uint16_t>(std::stoi(record.Port())));
        client.Send(BlockRequest({1, 2}));
        EXPECT_EQ(client.Receive(36).substr(28), BlockReply({1, 2}).substr(28)) << "on the wire they stay";
    }
    EXPECT_EQ(record.Stop().exitCode, 0);
    const auto all = Exchanges(Path("run.pcap"));
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].request, BlockRequest({0, 0}));
    EXPECT_EQ(ReplyBytes(all[0]).substr(28), BlockReply({0, 0}).substr(28));
}

TEST_F(Record, AFullDiskEndsTheRecordingAndNotTheConversation) {
    const ServeProcess server;
    // A limit on the file's size is the disk that fills up.
    Subprocess record({"sh", "-c", "trap '' XFSZ; ulimit -f 8; exec \"$@\"", "sh", VRX_PROGRAM, "record",
                       "--to", "127.0.0.1:" + server.Port(), Path("run.pcap")});
    const std::string first = record.ReadLine();
    {
        const RawClient client(static_cast<std::uint16_t>(std::stoi(first.substr(first.rfind(':') + 1))));
        for (int i = 0; i < 200; ++i) ASSERT_TRUE(client.Ask("help").starts_with("commands: ")) << i;
    }
    record.Signal(SIGTERM);
    const auto end = record.Wait();
    EXPECT_EQ(end.exitCode, 2);
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
    EXPECT_EQ(end.err, "vrx record: " + Path("run.pcap") +
                           ": the recording ends here: File too large; what goes over the wire goes on\n");
    const auto all = Exchanges(Path("run.pcap"));
    EXPECT_GT(all.size(), 5U);
    for (const Exchange& each : all) EXPECT_TRUE(each.whole);
}

TEST_F(Record, PassesARefusalOnAsAReset) {
    RecordProcess record(Place(RefusedPort()), Path("run.pcap"));
    {
        const RawClient client(static_cast<std::uint16_t>(std::stoi(record.Port())));
        EXPECT_EQ(client.ReceiveRest(), "<reset>");
    }
    const auto end = record.Stop();
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
    EXPECT_NE(end.err.find("cannot be reached: Connection refused"), std::string::npos) << end.err;
    const auto all = Exchanges(Path("run.pcap"));
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].kind, Exchange::kNothing);
    EXPECT_EQ(all[0].end, ServerEnd::kResets);
}

TEST_F(Record, EndsOnSignalsAndAfterTheTimeAskedFor) {
    for (const int signal : {SIGINT, SIGTERM}) {
        RecordProcess record(Place(RefusedPort()), Path("run.pcap"), {"--force"});
        EXPECT_EQ(record.Stop(signal).exitCode, 0);
    }
    EXPECT_EQ(Vrx({"record", "--to", Place(RefusedPort()), Path("run.pcap"), "--force", "--seconds", "0.1"})
                  .exitCode,
              0);
}

TEST_F(Record, APumpLeavesARecordingOfItself) {
    Write("in.wav", Wav16(2, Noise(2000)));
    const ServeProcess server({"--process", "gain=-3"});
    const auto pump = [&](std::vector<std::string> more) {
        std::vector<std::string> command{"pump", Path("in.wav"), Path("out.wav"), "--block",
                                         "20",   "--servport",   server.Port()};
        command.insert(command.end(), more.begin(), more.end());
        return Vrx(command);
    };
    EXPECT_EQ(pump({}).exitCode, 0);
    const std::string direct = Bytes("out.wav");
    const auto end = pump({"--force", "--record", Path("run.pcap")});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_NE(end.out.find("127.0.0.1:" + server.Port()), std::string::npos)
        << "the server's own name: " << end.out;
    EXPECT_EQ(Bytes("out.wav"), direct);
    EXPECT_EQ(Exchanges(Path("run.pcap")).size(), 52U) << "connect, pins, 50 blocks";
    EXPECT_EQ(pump({"--record", Path("run.pcap")}).exitCode, 2) << "it exists already";

    // Whole replies go through the recorder as well, and a run that fails leaves its recording too.
    EXPECT_EQ(pump({"--force", "--replies", "whole", "--record", Path("run.pcap")}).exitCode, 0);
    EXPECT_EQ(Bytes("out.wav"), direct);
    const ServeProcess broken({"--faults", "reset"});
    const auto failed = Vrx({"pump", Path("in.wav"), Path("no.wav"), "--retries", "0", "--servport",
                             broken.Port(), "--record", Path("failed.pcap")});
    EXPECT_EQ(failed.exitCode, 4);
    const auto all = Exchanges(Path("failed.pcap"));
    ASSERT_GE(all.size(), 3U);
    EXPECT_EQ(all[2].end, ServerEnd::kResets);
}

TEST_F(Record, TcpdumpSeesTheSame) {
    if (RunProgram({"sh", "-c", "command -v tcpdump"}).exitCode != 0)
        GTEST_SKIP() << "tcpdump is not installed: script/setup ci";
    const ServeProcess server({"--process", "gain=-3"});
    // Its buffer has slots as long as a snapshot: the whole conversation has room in it, or the kernel drops what
    // a busy machine does not let tcpdump fetch in time.
    Subprocess tcpdump(
        {"sh", "-c",
         "exec tcpdump -i lo -U --immediate-mode -s 16384 -B 16384 -w \"$1\" tcp port \"$2\" 2>&1", "sh",
         Path("other.pcap"), server.Port()});
    const std::string first = tcpdump.ReadLine();
    if (first.find("listening on lo") == std::string::npos)
        GTEST_SKIP() << "capturing is not allowed here: " << first;
    RecordProcess record("127.0.0.1:" + server.Port(), Path("run.pcap"));
    {
        const RawClient client(static_cast<std::uint16_t>(std::stoi(record.Port())));
        client.Ask("connect,127.0.0.1,0");
        for (unsigned i = 0; i < 50; ++i) {
            client.Send(BlockRequest(std::vector<std::uint32_t>(2000, i)));
            ASSERT_EQ(client.Receive(8028).size(), 8028U);
        }
    }
    EXPECT_EQ(record.Stop().exitCode, 0);
    // The packets are in the file once the last one is.
    for (int i = 0; i < 1000 && Exchanges(Path("other.pcap")).size() < 51; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    tcpdump.Signal(SIGTERM);
    (void)tcpdump.Wait();
    const auto diff = Vrx({"diff", Path("run.pcap"), Path("other.pcap")});
    EXPECT_EQ(diff.exitCode, 0) << diff.err;
    EXPECT_EQ(Exchanges(Path("run.pcap")).size(), 51U);
}

TEST_F(Record, TsharkReadsTheSameExchanges) {
    if (!HaveTshark()) GTEST_SKIP() << "tshark is not installed: script/setup ci";
    Write("in.wav", Wav16(2, Noise(2000)));
    const ServeProcess server({"--faults", "pieces=500", "--fault-rate", "0.5"});
    RecordProcess record("127.0.0.1:" + server.Port(), Path("run.pcap"));
    std::vector<std::thread> clients;
    for (unsigned i = 0; i < 4; ++i)
        clients.emplace_back([&record, i] {
            const RawClient client(static_cast<std::uint16_t>(std::stoi(record.Port())));
            for (unsigned n = 0; n < 25; ++n) {
                const std::vector<std::uint32_t> words(20 * n + i, n);
                client.Send(BlockRequest(words));
                ASSERT_EQ(client.Receive(28 + 4 * words.size()).size(), 28 + 4 * words.size());
            }
        });
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(Vrx({"pump", Path("in.wav"), Path("out.wav"), "--block", "500", "--replies", "whole",
                   "--servport", record.Port()})
                  .exitCode,
              0);
    EXPECT_EQ(Vrx({"send", "--servport", record.Port(), "help", "status", "nonsense"}).exitCode, 0);
    EXPECT_EQ(record.Stop().exitCode, 0);

    std::map<int, std::vector<Told>> ours;
    for (const Exchange& each : Exchanges(Path("run.pcap"))) {
        Told told{Hex(each.request), {}};
        for (const auto& piece : each.reply) told.second.push_back(Hex(piece.bytes));
        ours[static_cast<int>(each.connection) - 1].push_back(told);
    }
    EXPECT_EQ(ours.size(), 6U);
    EXPECT_EQ(ours, ExchangesByTshark(Path("run.pcap"), server.Port()));
}

TEST_F(Record, SaysWhatIsWrongOnOneLine) {
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        const char* line;
    };
    const std::string file = Path("run.pcap");
    Write("taken.pcap", "x");
    const Case cases[] = {
        {{"--to", "127.0.0.1", file},
         1,
         "vrx record: --to 127.0.0.1 is not HOST:PORT, such as 127.0.0.1:7000\n"},
        {{"--to", ":7000", file}, 1, "vrx record: --to :7000 is not HOST:PORT, such as 127.0.0.1:7000\n"},
        {{"--to", "h:70000", file}, 1, "vrx record: --to h:70000 is not HOST:PORT, such as 127.0.0.1:7000\n"},
        {{"--to", "127.0.0.1:1", "/nowhere/x.pcap"},
         2,
         "vrx record: /nowhere/x.pcap: cannot be created: No such file or directory\n"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> command{"record"};
        command.insert(command.end(), c.arguments.begin(), c.arguments.end());
        const auto end = Vrx(command);
        EXPECT_EQ(end.exitCode, c.exitCode);
        EXPECT_EQ(end.err, c.line);
        EXPECT_EQ(end.out, "");
    }
    EXPECT_EQ(Vrx({"record", "--to", "127.0.0.1:1", Path("taken.pcap")}).exitCode, 2);
    const auto noHost = Vrx({"record", "--to", "no.such.host.invalid:7000", file});
    EXPECT_EQ(noHost.exitCode, 3);
    EXPECT_TRUE(IsOneLine(noHost.err)) << noHost.err;
    EXPECT_FALSE(std::filesystem::exists(file)) << "nothing is left behind";
}

TEST_F(Record, AChecksOwnRunLeavesARecording) {
    const ServeProcess server;
    const auto end = Vrx({"check", "server", "127.0.0.1", server.Port(), "--only",
                          "^(one-piece|through-talker)$", "--record", Path("run.pcap"), "--json"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.err, "");
    EXPECT_NE(end.out.find("\"target\":\"127.0.0.1:" + server.Port() + "\""), std::string::npos) << end.out;
    EXPECT_GT(WholeExchanges(Path("run.pcap")), 150U) << "100 blocks of one check, 50 of the other";

    const auto again = Vrx({"check", "server", "127.0.0.1", server.Port(), "--only", "^one-piece$",
                            "--record", Path("run.pcap")});
    EXPECT_EQ(again.exitCode, 2);
    EXPECT_TRUE(IsOneLine(again.err)) << again.err;
    EXPECT_NE(again.err.find("run.pcap"), std::string::npos) << again.err;
}

TEST_F(Record, ACheckOfAPluginLeavesARecording) {
    const std::vector<std::string> command = {
        "check",  "plugin",   VRX_PLUGIN,      "--only", "^(text-replies|peer-closed|dead-connection)$",
        "--json", "--record", Path("run.pcap")};
    const auto end = Vrx(command);
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.err, "");
    EXPECT_NE(end.out.find("\"passed\":3,"), std::string::npos) << end.out;
    EXPECT_GT(WholeExchanges(Path("run.pcap")), 10U);
    std::map<std::pair<std::string, ServerEnd>, int> asked;
    for (const Exchange& each : Exchanges(Path("run.pcap")))
        ++asked[{each.request.substr(0, each.request.find(',')), each.end}];
    EXPECT_GT((asked[{"connect", ServerEnd::kStays}]), 2) << "each of the checks connects";
    const auto again = Vrx(command);
    EXPECT_EQ(again.exitCode, 2);
    EXPECT_EQ(again.out, "");
    EXPECT_TRUE(IsOneLine(again.err)) << again.err;
    EXPECT_NE(again.err.find("run.pcap"), std::string::npos) << again.err;
}

TEST_F(Record, TsharkFindsNoTroubleInACheckOfAPlugin) {
    if (!HaveTshark()) GTEST_SKIP() << "tshark is not installed: script/setup ci";
    const auto end = Vrx({"check", "plugin", VRX_PLUGIN, "--only",
                          "^(large-block-bytes|text-replies|peer-closed|reset|dead-connection)$", "--record",
                          Path("run.pcap")});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(Tshark(Path("run.pcap"), {"-Y", kTrouble}), "");
}

TEST_F(Record, AFullDiskChangesNoVerdictOfACheck) {
    const auto end = RunProgram({"sh", "-c", "ulimit -f 8; exec \"$@\"", "sh", VRX_PROGRAM, "check", "plugin",
                                 VRX_PLUGIN, "--only", "^(status|pin-bits)$", "--record", Path("run.pcap")});
    EXPECT_EQ(end.exitCode, 0) << end.out;
    EXPECT_TRUE(end.out.ends_with("vrx check: 2 checks at level 5: 2 passed\n")) << end.out;
    EXPECT_EQ(end.err,
              "vrx: " + Path("run.pcap") + ": the recording ends here: File too large; the checks go on\n");
    EXPECT_GT(WholeExchanges(Path("run.pcap")), 5U);
}

TEST_F(Record, ADoctorsOwnRunLeavesARecording) {
    const ServeProcess server;
    const auto end = Vrx({"doctor", "127.0.0.1", server.Port(), "--record", Path("run.pcap")});
    EXPECT_EQ(end.exitCode, 0) << end.out << end.err;
    EXPECT_NE(end.out.find("127.0.0.1:" + server.Port() + " is open"), std::string::npos) << end.out;
    EXPECT_GT(WholeExchanges(Path("run.pcap")), 20U)
        << "what the talker says, and ten replies looked at for pieces";
}
