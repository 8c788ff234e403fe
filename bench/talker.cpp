// Round trips of PumpAudio beside a bare loop of send and recv and beside message libraries. The server is
// single-threaded and blocking, in a process of its own; client and server have a core each.

#include "bench/Exchange.h"
#include "bench/Rounds.h"
#include "talker/CVRXTalker.h"

#include <algorithm>
#include <asio.hpp>
#include <cstring>
#include <ctime>
#include <memory>
#include <nng/nng.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>
#include <numeric>
#include <utility>
#include <zmq.h>

namespace bench {
namespace {

constexpr int kTurn = 50; // exchanges in a row on one connection
constexpr int kTurnsPerRound = 20;
constexpr int kRounds = 41;

/// One way to get the words of a block to the server and back.
class Path {
public:
    virtual ~Path() = default;

    /// What may be made ahead for a block.
    virtual void Prepare(const std::vector<uint32_t>& words) { m_request = Request(words); }

    /// One round trip; false when the reply is not the one expected.
    virtual bool Exchange() = 0;

    /// The words of the last reply.
    virtual std::vector<uint32_t> Words() const = 0;

protected:
    size_t WordCount() const { return (m_request.size() - Request({}).size()) / 4; }
    size_t ReplyBytes() const { return kReplyHead + 4 * WordCount(); }
    std::vector<uint32_t> WordsOf(const char* reply) const {
        std::vector<uint32_t> words(WordCount());
        std::memcpy(words.data(), reply + kReplyHead, 4 * words.size());
        return words;
    }

    std::vector<char> m_request;
};

class BarePath : public Path {
public:
    explicit BarePath(int port) : m_connection(port) {}

    bool Exchange() override {
        return m_connection.Exchange(m_request) == static_cast<ssize_t>(ReplyBytes());
    }
    std::vector<uint32_t> Words() const override { return WordsOf(m_connection.Reply()); }

private:
    BareConnection m_connection;
};

class TalkerPath : public Path {
public:
    explicit TalkerPath(int port) : m_talker(TalkerFactory()) {
        m_talker->Configure(TalkerSettings(port).c_str());
    }

    void Prepare(const std::vector<uint32_t>& words) override {
        m_in = words;
        m_out.assign(words.size(), 0);
    }
    bool Exchange() override {
        const auto count = static_cast<unsigned>(m_in.size());
        return m_talker->PumpAudio(m_in.data(), m_out.data(), count, count) == 0;
    }
    std::vector<uint32_t> Words() const override { return m_out; }

private:
    std::unique_ptr<CVRXTalker> m_talker;
    std::vector<uint32_t> m_in;
    std::vector<uint32_t> m_out;
};

class AsioPath : public Path {
public:
    explicit AsioPath(int port) : m_socket(m_context), m_buffer(1 << 20) {
        m_socket.connect({asio::ip::address_v4::loopback(), static_cast<uint16_t>(port)});
        m_socket.set_option(asio::ip::tcp::no_delay(true));
        asio::write(m_socket, asio::buffer("connect,127.0.0.1,1\n", 20));
        m_socket.read_some(asio::buffer(m_buffer));
    }

    bool Exchange() override {
        asio::write(m_socket, asio::buffer(m_request));
        return m_socket.read_some(asio::buffer(m_buffer)) == ReplyBytes();
    }
    std::vector<uint32_t> Words() const override { return WordsOf(m_buffer.data()); }

private:
    asio::io_context m_context;
    asio::ip::tcp::socket m_socket;
    std::vector<char> m_buffer;
};

/// Answers packets in messages of ZeroMQ.
void ServeZmq(int port) {
    void* const context = zmq_ctx_new();
    void* const socket = zmq_socket(context, ZMQ_REP);
    zmq_bind(socket, ("tcp://127.0.0.1:" + std::to_string(port)).c_str());
    std::vector<char> request(1 << 20);
    std::vector<char> reply(1 << 20);
    while (zmq_recv(socket, request.data(), request.size(), 0) > 0)
        zmq_send(socket, reply.data(), WriteReply(request.data(), reply.data()), 0);
}

class ZmqPath : public Path {
public:
    explicit ZmqPath(int port)
        : m_context(zmq_ctx_new()), m_socket(zmq_socket(m_context, ZMQ_REQ)), m_buffer(1 << 20) {
        zmq_connect(m_socket, ("tcp://127.0.0.1:" + std::to_string(port)).c_str());
    }
    ~ZmqPath() override {
        zmq_close(m_socket);
        zmq_ctx_term(m_context);
    }

    bool Exchange() override {
        zmq_send(m_socket, m_request.data(), m_request.size(), 0);
        return zmq_recv(m_socket, m_buffer.data(), m_buffer.size(), 0) == static_cast<int>(ReplyBytes());
    }
    std::vector<uint32_t> Words() const override { return WordsOf(m_buffer.data()); }

private:
    void* m_context;
    void* m_socket;
    std::vector<char> m_buffer;
};

/// Answers packets in messages of nng.
void ServeNng(int port) {
    nng_socket socket;
    nng_rep0_open(&socket);
    nng_listen(socket, ("tcp://127.0.0.1:" + std::to_string(port)).c_str(), nullptr, 0);
    std::vector<char> reply(1 << 20);
    for (nng_msg* message; nng_recvmsg(socket, &message, 0) == 0;) {
        const size_t bytes = WriteReply(static_cast<const char*>(nng_msg_body(message)), reply.data());
        nng_msg_clear(message);
        nng_msg_append(message, reply.data(), bytes);
        nng_sendmsg(socket, message, 0);
    }
}

class NngPath : public Path {
public:
    explicit NngPath(int port) : m_buffer(1 << 20) {
        nng_req0_open(&m_socket);
        nng_dial(m_socket, ("tcp://127.0.0.1:" + std::to_string(port)).c_str(), nullptr, NNG_FLAG_NONBLOCK);
    }
    ~NngPath() override { nng_close(m_socket); }

    bool Exchange() override {
        size_t bytes = m_buffer.size();
        return nng_send(m_socket, m_request.data(), m_request.size(), 0) == 0 &&
               nng_recv(m_socket, m_buffer.data(), &bytes, 0) == 0 && bytes == ReplyBytes();
    }
    std::vector<uint32_t> Words() const override { return WordsOf(m_buffer.data()); }

private:
    nng_socket m_socket;
    std::vector<char> m_buffer;
};

/// A port that nobody listens at now, for servers that do not say which one the system picked.
int FreePort() {
    return Listener().Port();
}

constexpr size_t kBare = 0;
constexpr size_t kOurs = 1;
constexpr size_t kInTurns = 3; // the first paths share one server, which takes them in turns

/// All servers and all connections; the servers first, as a process with threads does not fork.
struct Field {
    Listener listener;
    ChildProcess server{[this] { ServeInTurns(listener, static_cast<int>(kInTurns), kTurn); }};
    int zmqPort = FreePort();
    ChildProcess zmqServer{[this] { ServeZmq(zmqPort); }};
    int nngPort = FreePort();
    ChildProcess nngServer{[this] { ServeNng(nngPort); }};

    struct Entry {
        std::string name;
        std::unique_ptr<Path> path;
    };
    std::vector<Entry> paths; // in the order of the server's turns: the bare loop, ours, the others

    Field() {
        PinTo(kClientCore);
        paths.push_back({"bare loop", std::make_unique<BarePath>(listener.Port())});
        paths.push_back({"PumpAudio", std::make_unique<TalkerPath>(listener.Port())});
        paths.push_back({"Asio", std::make_unique<AsioPath>(listener.Port())});
        paths.push_back({"ZeroMQ", std::make_unique<ZmqPath>(zmqPort)});
        paths.push_back({"nng", std::make_unique<NngPath>(nngPort)});
    }
};
double WallNow() {
    timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double Quantile(std::vector<double> values, double share) {
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size()));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

/// One turn of exchanges; false when one failed. Adds the time of each.
bool TakeTurn(Path& path, std::vector<double>& seconds) {
    for (int i = 0; i < kTurn; ++i) {
        const double start = WallNow();
        if (!path.Exchange()) return false;
        seconds.push_back(WallNow() - start);
    }
    return true;
}

void RunRoundTrips(benchmark::State& state, Field& field, size_t wordCount, double limit) {
    const size_t count = field.paths.size();
    std::vector<uint32_t> words(wordCount);
    std::iota(words.begin(), words.end(), 0x01020304U);
    std::vector<double> unused;
    for (auto& [name, path] : field.paths) {
        path->Prepare(words);
        if (!TakeTurn(*path, unused) || path->Words() != words)
            return state.SkipWithError((name + " got another reply").c_str());
    }

    std::vector<std::vector<double>> medians(count);
    std::vector<std::vector<double>> p99s(count);
    for (auto _ : state) {
        std::vector<std::vector<double>> seconds(count);
        // The message libraries go by themselves: their threads leave both cores in a state in which whoever
        // comes next is a fifth faster with large blocks.
        for (const auto& [first, end] : {std::pair(size_t{0}, kInTurns), std::pair(kInTurns, count)}) {
            for (int turn = 0; turn < kTurnsPerRound; ++turn) {
                for (size_t i = first; i < end; ++i) {
                    if (!TakeTurn(*field.paths[i].path, seconds[i]))
                        return state.SkipWithError((field.paths[i].name + " got another reply").c_str());
                }
            }
        }
        for (size_t i = 0; i < count; ++i) {
            medians[i].push_back(Quantile(seconds[i], 0.5));
            p99s[i].push_back(Quantile(seconds[i], 0.99));
        }
    }
    state.counters["floor bare loop, median"] = MedianRatio(medians[kOurs], medians[kBare]);
    state.counters["limit floor bare loop, median"] = limit;
    state.counters["floor bare loop, p99"] = MedianRatio(p99s[kOurs], p99s[kBare]);
    state.counters["limit floor bare loop, p99"] = 1.05;
    for (size_t i = kOurs + 1; i < count; ++i) {
        const std::string& name = field.paths[i].name;
        state.counters["vs " + name] = MedianRatio(medians[kOurs], medians[i]);
        state.counters["floor (" + name + " to the loop)"] = MedianRatio(medians[i], medians[kBare]);
    }
}

} // namespace

void AddRows() {
    static const auto field = std::make_shared<Field>();
    for (const size_t words : {16U, 64U, 256U, 1024U, 4096U, 12'000U}) {
        const double limit = words == 12'000 ? 1.05 : 1.01;
        benchmark::RegisterBenchmark(
            ("PumpAudio round trip/" + std::to_string(words) + " words").c_str(),
            [words, limit](benchmark::State& state) { RunRoundTrips(state, *field, words, limit); })
            ->Iterations(kRounds)
            ->Unit(benchmark::kMillisecond);
    }
}

} // namespace bench
