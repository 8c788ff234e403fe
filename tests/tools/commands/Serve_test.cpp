#include "tests/support/RawClient.h"
#include "tests/support/Subprocess.h"
#include "tests/support/TemporaryFolder.h"

#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::string_literals;

const std::string kPump = "\x03\x00\xFF\x07"                                // tag
                          "\x40\x00\x00\x00"                                // 64 bytes
                          "\x03\x00\x00\x00"                                // argument words
                          "\x3A\x00\x00\x00"                                // command
                          "\x05\x00\x00\x00"                                // reply words
                          "\x01\x02\x03\x04\x0A\x06\x07\x08"                // data
                          "Main,In.samples[0],Out.samples[0]\x00\x00\x00"s; //

const std::string kReplyHead = "\x03\x00\xFF\x07"   // tag
                               "\x24\x00\x00\x00"   // 36 bytes
                               "\x05\x00\x00\x00"   // reply words
                               "\x3A\x00\x00\x00"   // command
                               "\x00\x00\x00\x00"s; // status
const std::string kData = "\x01\x02\x03\x04\x0A\x06\x07\x08";
constexpr size_t kReplyBytes = 36;
constexpr size_t kCyclesAt = 20;
constexpr size_t kDataAt = 28;

const std::string kPins = "\x03\x00\xFF\x07\x3C\x00\x00\x00\x05\x00\x00\x00\x3A\x00\x00\x00\x05\x00\x00\x00"
                          "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
                          "-1,In.info1,Out.info1\x00\x00\x00"s;

std::string Word(uint32_t value) {
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

/// A packet with the given data that asks for `outWords` words back.
std::string Pump(const std::string& data, uint32_t outWords) {
    const std::string path = "L,I.samples[0],O.samples[0]\0"s;
    const auto words = static_cast<uint32_t>(data.size() / 4);
    return Word(0x07FF0003) + Word(20 + 4 * words + 28) + Word(words + 1) + Word(0x3A) + Word(outWords + 3) +
           data + path;
}

/// A running `vrx serve`, stopped with this object.
class Serve : public Subprocess {
public:
    explicit Serve(const std::vector<std::string>& options = {}) : Subprocess(Command(options)) {
        const std::string first = ReadLine();
        const std::string head = "vrx serve: listening on 127.0.0.1:";
        EXPECT_EQ(first.substr(0, head.size()), head);
        if (first.size() <= head.size()) return;
        const auto [end, error] =
            std::from_chars(first.data() + head.size(), first.data() + first.size(), m_port);
        EXPECT_TRUE(error == std::errc() && end == first.data() + first.size()) << first;
    }

    static std::vector<std::string> Command(const std::vector<std::string>& options) {
        std::vector<std::string> command{VRX_PROGRAM, "serve"};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    uint16_t Port() const { return m_port; }

private:
    uint16_t m_port = 0;
};

/// Waits until something has come true; false when it takes so long that it never will.
template <class Condition>
bool Comes(const Condition& condition) {
    const auto until = std::chrono::steady_clock::now() + Subprocess::kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until) return false;
    }
    return true;
}

std::string Exchange(const RawClient& client, const std::string& packet, size_t replyBytes) {
    client.Send(packet);
    return client.Receive(replyBytes);
}

void ExpectServing(const RawClient& client) {
    const std::string reply = Exchange(client, kPump, kReplyBytes);
    EXPECT_EQ(reply.substr(0, kCyclesAt), kReplyHead);
    EXPECT_EQ(reply.size() > kDataAt ? reply.substr(kDataAt) : "", kData);
}

void ExpectServing(const Serve& server) {
    ExpectServing(RawClient(server.Port()));
}

TEST(ServeProgram, PrintsOnlyItsPortWhenQuietAndStopsOnASignal) {
    for (const int signal : {SIGINT, SIGTERM}) {
        Serve server({"--quiet"});
        const RawClient client(server.Port());
        ExpectServing(client);
        server.Signal(signal);
        const auto end = server.Wait();
        EXPECT_EQ(end.exitCode, 0);
        EXPECT_EQ(end.out, "vrx serve: listening on 127.0.0.1:" + std::to_string(server.Port()) + "\n");
        EXPECT_EQ(end.err, "");
        EXPECT_EQ(client.ReceiveRest(), "<end>");
    }
}

TEST(ServeProgram, StatesItsLimitsAndWhatItDid) {
    Serve server({"--max-packet", "5000", "--block-limit", "100", "--max-clients", "7", "--idle", "2.5"});
    EXPECT_EQ(server.ReadLine(),
              "vrx serve: limits: packet 5000 bytes, block 100 words, 7 clients, idle 2.5 s");
    {
        const RawClient client(server.Port());
        ExpectServing(client);
        client.Ask("nonsense");
    }
    server.Signal(SIGTERM);
    server.Wait();
    EXPECT_EQ(server.ReadLine(), "vrx serve: stopped after 1 clients, 1 packets, 1 errors");
}

TEST(ServeProgram, SaysWhereItCannotListen) {
    const Serve first;
    const std::string port = std::to_string(first.Port());
    const auto taken = RunProgram(Serve::Command({"--port", port}));
    EXPECT_EQ(taken.exitCode, 3);
    EXPECT_EQ(taken.out, "");
    EXPECT_EQ(taken.err, "vrx serve: cannot listen on 127.0.0.1:" + port +
                             ": Address already in use; choose another --bind or --port\n");

    const auto name = RunProgram(Serve::Command({"--bind", "localhost"}));
    EXPECT_EQ(name.exitCode, 3);
    EXPECT_EQ(
        name.err,
        "vrx serve: cannot listen on localhost:0: not an IPv4 address; choose another --bind or --port\n");
}

TEST(ServeProgram, ListensAgainOnThePortItJustHad) {
    std::string port;
    {
        Serve first;
        port = std::to_string(first.Port());
        ExpectServing(first);
        first.Signal(SIGTERM);
        first.Wait();
    }
    ExpectServing(Serve({"--port", port}));
}

TEST(ServeProgram, WarnsWhenOtherMachinesCanReachIt) {
    Subprocess server(Serve::Command({"--bind", "0.0.0.0"}));
    const std::string first = server.ReadLine();
    const std::string where = first.substr(first.rfind(' ') + 1);
    EXPECT_EQ(where.substr(0, 8), "0.0.0.0:");
    server.ReadLine();
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait().err, "vrx serve: warning: other machines can reach " + where +
                                     "; there is no password and no encryption\n");
}

TEST(ServeProgram, RefusesOptionsThatMeanNothing) {
    const std::vector<std::string> kWrong[] = {
        {"--process", "louder"}, {"--process", "lowpass=24000"},
        {"--samples", "u8"},     {"--channels", "0"},
        {"--channels", "1024"},  {"--pin-frames", "131072"},
        {"--port", "65536"},     {"--max-packet", "23"},
        {"--max-clients", "0"},  {"--idle", "0"},
        {"--faults", "boom"},    {"--fault-rate", "1.1"},
        {"--seed", "x"},         {"--unheard-of"},
        {"--threads", "0"},      {"--allow", "10.1.2.3/8"},
    };
    for (const auto& options : kWrong) {
        SCOPED_TRACE(options[0] + " " + options.back());
        const auto end = RunProgram(Serve::Command(options));
        EXPECT_EQ(end.exitCode, 1);
        EXPECT_EQ(end.out, "");
        EXPECT_NE(end.err, "");
    }
}

TEST(ServeProgram, ListsItsFaults) {
    const auto end = RunProgram(Serve::Command({"--faults", "help"}));
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_EQ(end.out.substr(0, end.out.find('\n')),
              "pieces=N            the reply in pieces of N bytes, 1 ms apart");
}

TEST(ServeProgram, AnswersTextCommands) {
    const Serve server;
    const RawClient client(server.Port());
    EXPECT_EQ(client.Ask("connect,127.0.0.1,7001"), "connected");
    EXPECT_EQ(client.Ask("help").substr(0, 9), "commands:");
    EXPECT_EQ(client.Ask("start"), "error: unknown command 'start'; try help");
    const std::string status = client.Ask("status");
    EXPECT_EQ(status.substr(0, status.find(" uptime=")), "clients=1 packets=0 errors=1");
    client.Send("he");
    client.Send("lp\nhelp\nstat");
    EXPECT_EQ(client.ReceiveLine().substr(0, 9), "commands:");
    EXPECT_EQ(client.ReceiveLine().substr(0, 9), "commands:");
    EXPECT_EQ(client.Ask("us").substr(0, 10), "clients=1 ");
}

TEST(ServeProgram, ReturnsABlockWithItsTime) {
    const Serve server;
    const RawClient client(server.Port());
    const std::string reply = Exchange(client, kPump, kReplyBytes);
    EXPECT_EQ(reply.substr(0, kCyclesAt), kReplyHead);
    EXPECT_EQ(reply.substr(kDataAt), kData);
    EXPECT_EQ(reply.substr(kCyclesAt, 4),
              reply.substr(kCyclesAt + 4, 4)); // the mean of one block is its time
    EXPECT_EQ(reply[kCyclesAt], '\0');         // no fraction
    EXPECT_NE(reply.substr(kCyclesAt, 4), "\0\0\0\0"s);
    EXPECT_EQ(static_cast<unsigned char>(reply[kCyclesAt + 3]) & 0x80, 0); // never negative
}

struct BlockCase {
    const char* name;
    std::vector<std::string> options;
    std::string in;
    uint32_t outWords;
    std::string out;
};
const BlockCase kBlocks[] = {
    {"nothing in, nothing out", {}, "", 0, ""},
    {"nothing in, zeros out", {}, "", 2, Word(0) + Word(0)},
    {"more in than out", {}, Word(1) + Word(2) + Word(3), 1, Word(1)},
    {"more out than in", {}, Word(1), 3, Word(1) + Word(0) + Word(0)},
    {"floats by default: 1 becomes 10", {"--process", "gain=20"}, Word(0x3F800000), 1, Word(0x41200000)},
    {"integers", {"--samples", "s32", "--process", "gain=20"}, Word(7), 1, Word(70)},
    {"a chain", {"--samples=s32", "--process=gain=20", "--process=invert"}, Word(7), 1, Word(0xFFFFFFBA)},
    {"one frame of two channels",
     {"--process", "delay=1"},
     Word(1) + Word(2) + Word(3) + Word(4),
     4,
     Word(0) + Word(0) + Word(1) + Word(2)},
    {"one frame of one channel",
     {"--process", "delay=1", "--channels", "1"},
     Word(1) + Word(2),
     2,
     Word(0) + Word(1)},
};

TEST(ServeProgram, ProcessesBlocks) {
    for (const BlockCase& c : kBlocks) {
        SCOPED_TRACE(c.name);
        const Serve server(c.options);
        const RawClient client(server.Port());
        const std::string reply = Exchange(client, Pump(c.in, c.outWords), kDataAt + c.out.size());
        ASSERT_EQ(reply.size(), kDataAt + c.out.size());
        EXPECT_EQ(reply.substr(4, 8), Word(static_cast<uint32_t>(reply.size())) + Word(c.outWords + 3));
        EXPECT_EQ(reply.substr(kDataAt), c.out);
    }
}

TEST(ServeProgram, ServesManyClientsByManyThreads) {
    const Serve server({"--threads", "4", "--process", "delay=1", "--channels", "1"});
    constexpr uint32_t kEach = 200;
    const auto pump = [&server](uint32_t client) {
        const RawClient connection(server.Port());
        for (uint32_t i = 0; i < kEach; ++i) {
            const uint32_t last = i == 0 ? 0 : client << 16 | (i - 1);
            const std::string reply = Exchange(connection, Pump(Word(client << 16 | i), 1), 32);
            ASSERT_EQ(reply.substr(kDataAt), Word(last));
        }
    };
    std::vector<std::thread> clients;
    for (uint32_t client = 1; client <= 8; ++client) clients.emplace_back(pump, client);
    for (std::thread& client : clients) client.join();
    EXPECT_TRUE(RawClient(server.Port()).Ask("status").find(" packets=1600 errors=0 ") != std::string::npos);
}

TEST(ServeProgram, SharesLongBlocksAmongItsThreads) {
    const Serve server({"--threads", "3", "--process", "lowpass=100", "--channels", "1"});
    const std::string data(1000000, '\0'); // takes far longer than a short block
    const auto pump = [&] {
        const RawClient connection(server.Port());
        for (int i = 0; i < 20; ++i) ASSERT_EQ(Exchange(connection, Pump(data, 1), 32).size(), 32U);
    };
    std::vector<std::thread> clients;
    for (int client = 0; client < 4; ++client) clients.emplace_back(pump);
    for (std::thread& client : clients) client.join();
    const std::string status = RawClient(server.Port()).Ask("status json");
    const std::string busy = status.substr(status.find("\"busy\":") + 7);
    EXPECT_GT(std::strtod(busy.c_str(), nullptr), 0) << status;
}

TEST(ServeProgram, TellsMonitorsAboutItself) {
    const Serve server;
    const RawClient client(server.Port());
    ExpectServing(client);
    Exchange(client, kPins, kReplyBytes);
    client.Ask("nonsense");
    const std::string status = client.Ask("status json");
    EXPECT_EQ(status.substr(0, status.find("\"uptime\"")), R"({"clients":1,"packets":2,"errors":1,)");
    EXPECT_NE(status.find(R"("blocks":1,"busy":)"), status.npos) << status;
    EXPECT_NE(status.find(R"("latency":0})"), status.npos) << status;
}

TEST(ServeProgram, LetsInOnlyWhoMay) {
    const Serve open({"--allow", "10.0.0.0/8", "--allow", "127.0.0.0/8"});
    ExpectServing(open);

    const Serve closed({"--allow", "10.0.0.0/8"});
    const RawClient client(closed.Port());
    client.Send("help\n");
    const std::string end = client.ReceiveRest();
    EXPECT_TRUE(end == "<end>" || end == "<reset>") << end; // not a byte
}

TEST(ServeProgram, LetsAnExchangeUnderWayEndWhenItStops) {
    Serve server({"--faults", "late=100ms"});
    const RawClient idle(server.Port());
    EXPECT_EQ(idle.Ask("connect,127.0.0.1,1"), "connected");
    const RawClient busy(server.Port());
    EXPECT_EQ(busy.Ask("connect,127.0.0.1,1"), "connected");
    const RawClient halfway(server.Port());
    EXPECT_EQ(halfway.Ask("connect,127.0.0.1,1"), "connected");
    halfway.Send(kPump.substr(0, 30));
    busy.Send(kPump);
    EXPECT_TRUE(Comes([&] { return idle.Ask("status").find(" packets=1 ") != std::string::npos; }));
    server.Signal(SIGTERM);
    EXPECT_EQ(idle.ReceiveRest(), "<end>");
    halfway.Send(kPump.substr(30));
    const std::string whole = busy.ReceiveRest();
    EXPECT_EQ(whole.substr(0, kCyclesAt), kReplyHead);
    EXPECT_EQ(whole.substr(kDataAt), kData + "<end>");
    EXPECT_EQ(halfway.ReceiveRest().substr(kDataAt), kData + "<end>");
    const auto end = server.Wait();
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_FALSE(RawClient::CanConnect(server.Port()));
}

TEST(ServeProgram, StopsAfterASecondWhateverIsUnderWay) {
    Serve server({"--faults", "late=3600s"});
    const RawClient client(server.Port());
    client.Send(kPump);
    const RawClient other(server.Port());
    EXPECT_TRUE(Comes([&] { return other.Ask("status").find(" packets=1 ") != std::string::npos; }));
    server.Signal(SIGTERM);
    const auto end = server.Wait();
    EXPECT_FALSE(end.timedOut);
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_NE(client.ReceiveRest().find("<"), std::string::npos);
}

/// A socket in a temporary folder that hears what a service tells its manager.
class ServiceManagerSocket {
public:
    ServiceManagerSocket() : m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        Path().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const timeval patience{20, 0};
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    ~ServiceManagerSocket() { ::close(m_socket); }
    std::string Path() const { return m_folder / "notify"; }
    std::string Next() const {
        char text[100];
        const ssize_t count = ::recv(m_socket, text, sizeof text, 0);
        return count < 0 ? "<silence>" : std::string(text, static_cast<size_t>(count));
    }

private:
    TemporaryFolder m_folder;
    int m_socket;
};

TEST(ServeProgram, TellsItsServiceManagerWhenItIsReadyAndWhenItStops) {
    const ServiceManagerSocket manager;
    ::setenv("NOTIFY_SOCKET", manager.Path().c_str(), 1);
    Serve server;
    ::unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(manager.Next(), "READY=1");
    ExpectServing(server);
    server.Signal(SIGTERM);
    EXPECT_EQ(manager.Next(), "STOPPING=1");
    EXPECT_EQ(server.Wait().exitCode, 0);
}

TEST(ServeProgram, KeepsTheStateOfEachConnectionApart) {
    const Serve server({"--process", "delay=1", "--channels", "1"});
    const RawClient one(server.Port());
    const RawClient two(server.Port());
    EXPECT_EQ(Exchange(one, Pump(Word(1), 1), 32).substr(kDataAt), Word(0));
    EXPECT_EQ(Exchange(two, Pump(Word(2), 1), 32).substr(kDataAt), Word(0));
    EXPECT_EQ(Exchange(one, Pump(Word(3), 1), 32).substr(kDataAt), Word(1));
}

TEST(ServeProgram, TakesTheLargestBlock) {
    const Serve server;
    const RawClient client(server.Port());
    std::string data(4 * 262137, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 % 251);
    const std::string reply = Exchange(client, Pump(data, 262137), 1048576);
    ASSERT_EQ(reply.size(), 1048576U);
    EXPECT_TRUE(reply.substr(kDataAt) == data);
}

TEST(ServeProgram, AnswersEveryRequestThatWasSentAhead) {
    const Serve server;
    const RawClient client(server.Port());
    constexpr size_t kRequests = 3000; // several times what is received at once
    std::string requests;
    for (size_t i = 0; i < kRequests; ++i) requests += kPump;
    client.Send(requests);
    client.EndSending();
    const std::string replies = client.ReceiveRest();
    ASSERT_EQ(replies.size(), kRequests * kReplyBytes + std::string("<end>").size());
    for (size_t i = 0; i < kRequests; ++i)
        ASSERT_EQ(replies.substr(i * kReplyBytes + kDataAt, kData.size()), kData) << i;
    EXPECT_TRUE(replies.ends_with("<end>"));
}

TEST(ServeProgram, AnswersWhatComesWithTheEnd) {
    const Serve server;
    for (int i = 0; i < 50; ++i) {
        const RawClient client(server.Port());
        client.Send(kPump);
        client.EndSending();
        const std::string reply = client.ReceiveRest();
        ASSERT_EQ(reply.size(), kReplyBytes + std::string("<end>").size()) << i;
        ASSERT_TRUE(reply.ends_with("<end>")) << i;
    }
}

TEST(ServeProgram, GivesThePinsInfo) {
    const Serve server({"--pin-frames", "480", "--channels", "6"});
    const RawClient client(server.Port());
    const std::string reply = Exchange(client, kPins, kReplyBytes);
    ASSERT_EQ(reply.size(), kReplyBytes);
    EXPECT_EQ(reply.substr(0, kCyclesAt), kReplyHead);
    EXPECT_EQ(reply.substr(kDataAt), "\x06\x80\x07\x08\x06\x80\x07\x08"s); // 480 << 10 | 6 | 1 << 27, twice

    const Serve integers({"--samples", "s32"});
    EXPECT_EQ(Exchange(RawClient(integers.Port()), kPins, kReplyBytes).substr(kDataAt),
              "\x02\x00\x00\x00\x02\x00\x00\x00"s);
}

/// kPump with the bytes from `at` on replaced.
std::string Spoilt(size_t at, const std::string& bytes) {
    std::string packet = kPump;
    return packet.replace(at, bytes.size(), bytes);
}

struct RefusedCase {
    std::string packet;
    const char* answer;
};

TEST(ServeProgram, AnswersABadPacketWithALineAndGoesOn) {
    const Serve server({"--layout=Main", "--input=In", "--output=Out", "--block-limit", "4"});
    const RefusedCase kRefused[] = {
        {Spoilt(12, "\x3B"), "error: unknown packet command 59"},
        {Spoilt(8, "\0"s), "error: argument word count 0 does not fit a packet of 64 bytes"},
        {Spoilt(8, "\xFF\xFF\xFF\xFF"s),
         "error: argument word count 4294967295 does not fit a packet of 64 bytes"},
        {Spoilt(16, "\x02"), "error: reply word count 2 is less than 3"},
        {Spoilt(16, "\x08"), "error: block of 5 words exceeds the limit of 4"},
        {Spoilt(16, "\xFF\xFF\xFF\xFF"s), "error: block of 4294967292 words exceeds the limit of 4"},
        {Spoilt(28, "Mein"), "error: unknown layout 'Mein'"},
        {Spoilt(33, "im"), "error: unknown input 'im'"},
        {Spoilt(61, "xxx"), "error: object path is not ended by one to four zero bytes"},
        {Spoilt(60, "\0"s),
         "error: object path 'Main,In.samples[0],Out.samples[0' ends neither in .samples[0] nor in .info1 "
         "twice"},
        {Spoilt(32, "\n"), "error: object path 'Main.In.samples[0],Out.samples[0]' has not three fields"},
    };
    const RawClient client(server.Port());
    for (const RefusedCase& c : kRefused) {
        SCOPED_TRACE(c.answer);
        client.Send(c.packet);
        EXPECT_EQ(client.ReceiveLine(), c.answer);
        ExpectServing(client);
    }
}

TEST(ServeProgram, SendsAwayAClientWhoseFramesAreLost) {
    const Serve server({"--max-packet", "100000"});
    const RefusedCase kLost[] = {
        {Spoilt(0, "\x04"), "error: neither a text line nor a packet\n<end>"},
        {Spoilt(4, "\x17"), "error: packet length 23 is less than 24 bytes\n<end>"},
        {Spoilt(4, "\xA1\x86\x01"), "error: packet length 100001 exceeds the limit of 100000 bytes\n<end>"},
        {Spoilt(4, "\xFF\xFF\xFF\xFF"),
         "error: packet length 4294967295 exceeds the limit of 100000 bytes\n<end>"},
        {"help" + kPump, "error: neither a text line nor a packet\n<end>"},
        {"\0"s, "error: neither a text line nor a packet\n<end>"},
        {std::string(70000, 'x'), "error: text line longer than 65536 bytes\n<end>"},
    };
    const RawClient other(server.Port());
    for (const RefusedCase& c : kLost) {
        SCOPED_TRACE(c.answer);
        const RawClient client(server.Port());
        client.Send(c.packet);
        EXPECT_EQ(client.ReceiveRest(), c.answer);
        ExpectServing(other);
    }
}

TEST(ServeProgram, SurvivesClientsThatLeaveAtAnyPoint) {
    const Serve server;
    for (size_t count = 0; count <= kPump.size(); ++count) {
        RawClient(server.Port()).Send(kPump.substr(0, count));
    }
    ExpectServing(server);
}

TEST(ServeProgram, TurnsAwaySurplusClients) {
    const Serve server({"--max-clients", "2"});
    const RawClient first(server.Port());
    ExpectServing(first);
    {
        const RawClient second(server.Port());
        ExpectServing(second);
        const RawClient third(server.Port());
        third.Send(kPump);
        EXPECT_EQ(third.ReceiveRest(), "error: too many clients\n<end>");
        ExpectServing(second);
    }
    EXPECT_TRUE(Comes([&] { return first.Ask("status").starts_with("clients=1 "); })); // the second has left
    ExpectServing(server);
}

TEST(ServeProgram, DisconnectsASilentClient) {
    const Serve server({"--idle", "0.05"});
    const RawClient client(server.Port());
    EXPECT_EQ(client.ReceiveRest(), "<end>");
    ExpectServing(server);
}

TEST(ServeProgram, StopsReadingFromAClientThatDoesNotRead) {
    const Serve server;
    const std::string packet = Pump(std::string(240000, '\x11'), 60000);
    const RawClient greedy(server.Port());
    const RawClient other(server.Port());
    constexpr size_t kFarMoreThanBuffersHold = 1000;
    size_t whole = 0;
    size_t partly = 0;
    for (; whole < kFarMoreThanBuffersHold; ++whole) {
        partly = 0;
        // Each exchange of the other client gives the server the time to take what was sent.
        for (int idle = 0; partly < packet.size() && idle < 50; ++idle) {
            const size_t sent = greedy.SendWithoutWaiting(std::string_view(packet).substr(partly));
            if (sent > 0) idle = 0;
            partly += sent;
            ExpectServing(other);
        }
        if (partly < packet.size()) break;
    }
    ASSERT_LT(whole, kFarMoreThanBuffersHold);
    for (size_t i = 0; i < whole; ++i) ASSERT_EQ(greedy.Receive(240028).size(), 240028U);
    greedy.Send(std::string_view(packet).substr(partly));
    EXPECT_EQ(greedy.Receive(240028).substr(kDataAt), std::string(240000, '\x11'));
}

TEST(ServeProgram, ServesTwentyClientsAtOnce) {
    const Serve server;
    std::vector<RawClient> clients;
    for (int i = 0; i < 20; ++i) clients.emplace_back(server.Port());
    for (uint32_t round = 0; round < 50; ++round) {
        for (uint32_t i = 0; i < clients.size(); ++i) clients[i].Send(Pump(Word(round * 100 + i), 1));
        for (uint32_t i = 0; i < clients.size(); ++i) {
            ASSERT_EQ(clients[i].Receive(32).substr(kDataAt), Word(round * 100 + i)) << i;
        }
    }
    EXPECT_EQ(clients[0].Ask("status").substr(0, 33), "clients=20 packets=1000 errors=0 ");
}

TEST(ServeProgram, ServesOthersAmongRubbish) {
    const Serve server;
    const RawClient client(server.Port());
    std::mt19937_64 random(20);
    for (int round = 0; round < 200; ++round) {
        std::string rubbish(1 + random() % 3000, '\0');
        for (char& c : rubbish) c = static_cast<char>(random());
        // Some of it begins like a packet, some of it is text.
        if (round % 3 == 0) rubbish.insert(0, "\x03\x00\xFF\x07\x00\x04\x00\x00"s);
        if (round % 3 == 1) {
            for (char& c : rubbish) c = static_cast<char>((c & 0x5F) | 0x20);
        }
        RawClient(server.Port()).Send(rubbish);
        ExpectServing(client);
    }
}

struct FaultCase {
    const char* name;
    const char* scenario;
    std::string received; // after one kPump whose cycle words are replaced by "cyclcycl"
    bool stays;           // whether the connection goes on
};
const std::string kWholeReply = kReplyHead + "cyclcycl" + kData;
const FaultCase kFaults[] = {
    {"pieces", "pieces=7", kWholeReply, true},
    {"stall", "stall=20ms", kWholeReply, true},
    {"stall in the header", "stall-header=20ms", kWholeReply, true},
    {"cut", "cut=20", kReplyHead + "<end>", false},
    {"cut at once", "cut=0", "<end>", false},
    {"reset", "reset", "<reset>", false},
    {"no answer", "no-answer", "", true},
    {"wrong tag", "wrong-tag", "\x04" + kWholeReply.substr(1), true},
    {"wrong length", "wrong-length=255", kWholeReply.substr(0, 4) + "\xFF" + kWholeReply.substr(5), true},
    {"negative status", "negative-status",
     kWholeReply.substr(0, 16) + "\xFB\xFF\xFF\xFF" + kWholeReply.substr(20), true},
    {"text", "text", "error: a fault on purpose\n", true},
    {"late", "late=20ms", kWholeReply, true},
    {"duplicate", "duplicate", kWholeReply + kWholeReply, true},
};

/// Puts "cyclcycl" where a packet's measured times are.
std::string HideCycles(std::string bytes) {
    for (size_t at = 0; at + kReplyBytes <= bytes.size(); at += kReplyBytes) {
        bytes.replace(at + kCyclesAt, 8, "cyclcycl");
    }
    return bytes;
}

TEST(ServeFaults, SpoilRepliesToBlocksOnly) {
    for (const FaultCase& c : kFaults) {
        SCOPED_TRACE(c.name);
        const Serve server({"--faults", c.scenario});
        const RawClient client(server.Port());
        EXPECT_EQ(client.Ask("connect,127.0.0.1,1"), "connected");
        EXPECT_EQ(Exchange(client, kPins, kReplyBytes).substr(0, kCyclesAt), kReplyHead);
        client.Send(kPump);
        if (c.stays) {
            EXPECT_EQ(HideCycles(client.Receive(c.received.size())), c.received);
            EXPECT_EQ(client.Ask("connect,127.0.0.1,1"), "connected");
        } else {
            EXPECT_EQ(HideCycles(client.ReceiveRest()), c.received);
        }
        EXPECT_EQ(RawClient(server.Port()).Ask("connect,127.0.0.1,1"), "connected");
    }
}

TEST(ServeFaults, EndlessTextHasNoEnd) {
    const Serve server({"--faults", "endless-text"});
    const RawClient client(server.Port());
    client.Send(kPump);
    EXPECT_TRUE(client.Receive(3000000) == std::string(3000000, 'x'));
    EXPECT_EQ(RawClient(server.Port()).Ask("connect,127.0.0.1,1"), "connected");
}

TEST(ServeFaults, RefusesConnectionsForAWhile) {
    const Serve server({"--faults", "refuse=300ms"});
    const RawClient other(server.Port());
    other.Ask("status");
    {
        const RawClient client(server.Port());
        client.Send(kPump);
        EXPECT_EQ(client.ReceiveRest(), "<end>");
    }
    EXPECT_FALSE(RawClient::CanConnect(server.Port()));
    EXPECT_EQ(other.Ask("connect,127.0.0.1,1"), "connected");
    EXPECT_TRUE(Comes([&] { return RawClient::CanConnect(server.Port()); }));
    EXPECT_EQ(RawClient(server.Port()).Ask("connect,127.0.0.1,1"), "connected");
}

TEST(ServeFaults, RefusingSurvivesClientsThatCameJustBefore) {
    const Serve server({"--faults", "refuse=20ms"});
    const RawClient old(server.Port());
    EXPECT_EQ(old.Ask("connect,127.0.0.1,1"), "connected");
    server.Signal(SIGSTOP);
    const RawClient one(server.Port()); // both in the system's queue
    const RawClient two(server.Port());
    old.Send(kPump);
    server.Signal(SIGCONT);
    EXPECT_EQ(old.ReceiveRest(), "<end>");
    EXPECT_TRUE(Comes([&] { return RawClient::CanConnect(server.Port()); }));
    EXPECT_EQ(RawClient(server.Port()).Ask("connect,127.0.0.1,1"), "connected");
}

long ResidentKiB(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return -1;
}

TEST(ServeFaults, ManyPiecesTakeNoMemory) {
    const Serve server({"--faults", "pieces=1"});
    const RawClient client(server.Port());
    client.Send(Pump("", 250000)); // a reply of a million pieces
    EXPECT_EQ(client.Receive(20).size(), 20U);
    EXPECT_LT(ResidentKiB(server.Pid()),
              64 * 1024); // the steps of all pieces would take more than twice that
}

/// What a fresh server with these options does to the blocks of one connection: '.' answered, 't' text.
std::string Course(std::vector<std::string> options) {
    options.insert(options.begin(), {"--faults", "text"});
    const Serve server(options);
    const RawClient client(server.Port());
    std::string course;
    for (int i = 0; i < 40; ++i) {
        client.Send(kPump);
        const bool packet = client.Receive(1) == "\x03";
        course += packet ? '.' : 't';
        if (packet) {
            client.Receive(kReplyBytes - 1);
        } else {
            client.ReceiveLine();
        }
    }
    return course;
}

TEST(ServeFaults, RepeatThemselvesForTheSameSeed) {
    const std::string course = Course({"--fault-rate", "0.5", "--seed", "7"});
    EXPECT_NE(course.find('.'), course.npos);
    EXPECT_NE(course.find('t'), course.npos);
    EXPECT_EQ(Course({"--fault-rate", "0.5", "--seed", "7"}), course);
    EXPECT_NE(Course({"--fault-rate", "0.5", "--seed", "8"}), course);
}

TEST(ServeFaults, EndAtTheirLimit) {
    EXPECT_EQ(Course({"--fault-limit", "3"}), "ttt" + std::string(37, '.'));
    EXPECT_EQ(Course({"--fault-limit", "0"}), std::string(40, '.'));
}

} // namespace
