// vrx serve beside the least that a server can be: one thread, one epoll, one receive and one send per block. Clients
// and servers have a core each, but for the row that needs all of them.

#include "bench/Exchange.h"
#include "bench/Rounds.h"
#include "tests/support/Subprocess.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;
constexpr size_t kMostBytes = 16384;

double Seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

/// Ends the process where a call fails that must not.
int Must(const char* call, int result) {
    if (result >= 0) return result;
    std::perror(call);
    std::exit(1);
}

void UseAllCores() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    for (size_t core = 0; core < CPU_SETSIZE; ++core) CPU_SET(core, &cores);
    (void)::sched_setaffinity(0, sizeof cores, &cores);
}

void Watch(int poll, int descriptor) {
    epoll_event event{EPOLLIN, {.fd = descriptor}};
    Must("epoll_ctl", ::epoll_ctl(poll, EPOLL_CTL_ADD, descriptor, &event));
}

void SendAtOnce(int socket) {
    const int on = 1;
    Must("setsockopt", ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on));
}

/// Answers each packet that a receive brings whole; for ever. The requests here all do.
void ServeByEpoll(const Listener& listener) {
    static char request[kMostBytes];
    static char reply[kMostBytes];
    const int poll = Must("epoll_create1", ::epoll_create1(0));
    Watch(poll, listener.Socket());
    epoll_event events[128];
    for (;;) {
        const int count = Must("epoll_wait", ::epoll_wait(poll, events, 128, -1));
        for (int i = 0; i < count; ++i) {
            const int socket = events[i].data.fd;
            if (socket == listener.Socket()) {
                const int fresh = Must("accept4", ::accept4(socket, nullptr, nullptr, SOCK_NONBLOCK));
                SendAtOnce(fresh);
                Watch(poll, fresh);
            } else if (::recv(socket, request, sizeof request, 0) > 0) {
                (void)::send(socket, reply, WriteReply(request, reply), MSG_NOSIGNAL);
            } else {
                ::close(socket);
            }
        }
    }
}

/// The time that all threads of a process have run.
double ProcessorSeconds(pid_t process) {
    double seconds = 0;
    for (const auto& thread :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        double nanoseconds = 0;
        std::ifstream(thread.path() / "schedstat") >> nanoseconds;
        seconds += nanoseconds * 1e-9;
    }
    return seconds;
}

/// A vrx serve of its own, on the server's core or on all.
class VrxServer {
public:
    VrxServer(std::vector<std::string> options, bool allCores) {
        options.insert(options.begin(), {VRX_PROGRAM, "serve", "--quiet", "--max-clients", "1000"});
        if (allCores) {
            UseAllCores();
        } else {
            PinTo(kServerCore);
        }
        m_process = std::make_unique<Subprocess>(options);
        PinTo(kClientCore);
        const std::string line = m_process->ReadLine();
        m_port = std::atoi(line.substr(line.rfind(':') + 1).c_str());
    }
    int Port() const { return m_port; }
    pid_t Pid() const { return m_process->Pid(); }
    double ResidentKiB() const {
        std::ifstream status("/proc/" + std::to_string(m_process->Pid()) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("VmRSS:")) return std::atof(line.c_str() + 6);
        }
        return 0;
    }

private:
    std::unique_ptr<Subprocess> m_process;
    int m_port = 0;
};

/// Some clients of one server, each of which sends its next block when the reply to the last one is there.
class Clients {
public:
    Clients(int port, size_t count) : m_poll(Must("epoll_create1", ::epoll_create1(0))) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        while (m_clients.size() < count) {
            const int socket = Must("socket", ::socket(AF_INET, SOCK_STREAM, 0));
            Must("connect", ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address));
            SendAtOnce(socket);
            epoll_event event{EPOLLIN, {.u64 = m_clients.size()}};
            Must("epoll_ctl", ::epoll_ctl(m_poll, EPOLL_CTL_ADD, socket, &event));
            m_clients.push_back({Descriptor(socket), {}, 0, {}});
        }
    }

    /// Sends so many blocks in all; false when a reply was not the one expected. Replies repeat the words.
    bool Exchange(const std::vector<uint32_t>& words, size_t blocks) {
        const std::vector<char> request = Request(words);
        const size_t replyBytes = kReplyHead + 4 * words.size();
        size_t sent = 0;
        for (Client& client : m_clients) sent += Send(client, request);
        epoll_event events[128];
        for (size_t done = 0; done < sent;) {
            const int count = Must("epoll_wait", ::epoll_wait(m_poll, events, 128, -1));
            for (int i = 0; i < count; ++i) {
                Client& client = m_clients[events[i].data.u64];
                const ssize_t got =
                    ::recv(client.socket, m_reply + client.received, kMostBytes - client.received, 0);
                if (got <= 0) return false;
                client.received += static_cast<size_t>(got);
                if (client.received < replyBytes) continue;
                if (client.received > replyBytes) return false;
                client.seconds.push_back(Seconds(client.sentAt));
                ++done;
                if (sent < blocks) sent += Send(client, request);
            }
        }
        return std::memcmp(m_reply + kReplyHead, words.data(), 4 * words.size()) == 0;
    }

    /// The times of each client's exchanges so far.
    std::vector<std::vector<double>> TakeTimes() {
        std::vector<std::vector<double>> times;
        for (Client& client : m_clients) times.push_back(std::exchange(client.seconds, {}));
        return times;
    }

private:
    struct Client {
        Descriptor socket;
        Clock::time_point sentAt;
        size_t received;
        std::vector<double> seconds;
    };

    static size_t Send(Client& client, const std::vector<char>& request) {
        client.received = 0;
        client.sentAt = Clock::now();
        (void)::send(client.socket, request.data(), request.size(), MSG_NOSIGNAL);
        return 1;
    }

    Descriptor m_poll;
    std::vector<Client> m_clients;
    char m_reply[kMostBytes];
};

std::vector<uint32_t> Words(size_t count) {
    std::vector<uint32_t> words(count);
    for (size_t i = 0; i < count; ++i) words[i] = 0x01020304U + static_cast<uint32_t>(i);
    return words;
}

double Quantile(std::vector<double> values, double share) {
    const auto at =
        values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

/// The servers of all rows; the bare one first, as a process with threads does not fork.
struct Field {
    Listener listener;
    ChildProcess bare{[this] { ServeByEpoll(listener); }};
    VrxServer vrx{{"--threads", "2"}, false};
};

constexpr int kRounds = 201;

/// The time that a number of blocks takes ours and the bare server, by turns.
void RunBesideEpoll(benchmark::State& state, Field& field, size_t clientCount, size_t wordCount) {
    const auto words = Words(wordCount);
    const size_t blocks = std::max<size_t>(1000, 16 * clientCount);
    Clients ours(field.vrx.Port(), clientCount);
    Clients theirs(field.listener.Port(), clientCount);
    if (!ours.Exchange(words, blocks) || !theirs.Exchange(words, blocks))
        return state.SkipWithError("a wrong reply");
    struct Side {
        Clients& clients;
        pid_t server;
        std::vector<double> wall;
        std::vector<double> processor;
    };
    Side sides[] = {{ours, field.vrx.Pid(), {}, {}}, {theirs, field.bare.Pid(), {}, {}}};
    for (auto _ : state) {
        for (Side& side : sides) {
            const double before = ProcessorSeconds(side.server);
            const auto start = Clock::now();
            if (!side.clients.Exchange(words, blocks)) return state.SkipWithError("a wrong reply");
            side.wall.push_back(Seconds(start));
            side.processor.push_back(ProcessorSeconds(side.server) - before);
        }
    }
    state.counters["floor bare epoll server"] = MedianRatio(sides[0].wall, sides[1].wall);
    state.counters["limit floor bare epoll server"] = 1.05;
    state.counters["floor its processor time"] = MedianRatio(sides[0].processor, sides[1].processor);
}

/// A chain that takes milliseconds for a block, far longer than its way, by one thread and by two.
void RunHeavyChain(benchmark::State& state) {
    std::vector<std::string> chain{"--channels", "1", "--samples", "s32"};
    for (int i = 0; i < 2000; ++i) chain.insert(chain.end(), {"--process", "invert"});
    auto two = chain;
    chain.insert(chain.end(), {"--threads", "1"});
    two.insert(two.end(), {"--threads", "2"});
    const VrxServer one(chain, true);
    const VrxServer both(two, true);
    UseAllCores();
    Clients ofOne(one.Port(), 8);
    Clients ofBoth(both.Port(), 8);
    const auto words = Words(2000);
    std::vector<double> oneTimes;
    std::vector<double> bothTimes;
    for (auto _ : state) {
        for (auto& [clients, times] : {std::pair(&ofOne, &oneTimes), std::pair(&ofBoth, &bothTimes)}) {
            const auto start = Clock::now();
            if (!clients->Exchange(words, 100)) return state.SkipWithError("a wrong reply");
            times->push_back(Seconds(start));
        }
    }
    PinTo(kClientCore);
    state.counters["count times one thread"] = MedianRatio(oneTimes, bothTimes);
}

/// The p99 of the client that waits longest, beside that of the one in the middle.
void RunFairness(benchmark::State& state, Field& field) {
    Clients clients(field.vrx.Port(), 64);
    std::vector<double> slowest;
    std::vector<double> middle;
    for (auto _ : state) {
        if (!clients.Exchange(Words(256), 64 * 500)) return state.SkipWithError("a wrong reply");
        std::vector<double> p99s;
        for (const auto& times : clients.TakeTimes()) p99s.push_back(Quantile(times, 0.99));
        slowest.push_back(Quantile(p99s, 1));
        middle.push_back(Quantile(p99s, 0.5));
    }
    state.counters["count slowest client's p99 to the median's"] = MedianRatio(slowest, middle);
    state.counters["limit count slowest client's p99 to the median's"] = 2;
}

void RunMemory(benchmark::State& state) {
    const VrxServer server({}, false);
    Clients first(server.Port(), 1);
    bool right = first.Exchange(Words(256), 1);
    const double before = server.ResidentKiB();
    Clients more(server.Port(), 200);
    right = more.Exchange(Words(256), 2000) && right;
    for (auto _ : state) state.counters["count KiB per client"] = (server.ResidentKiB() - before) / 200;
    if (!right) state.SkipWithError("a wrong reply");
}

template <class Run>
void Add(const std::string& name, int rounds, Run run) {
    benchmark::RegisterBenchmark(name.c_str(), std::move(run))
        ->Iterations(rounds)
        ->Unit(benchmark::kMillisecond);
}

} // namespace

void AddRows() {
    static const auto field = std::make_shared<Field>();
    for (const size_t words : {16U, 256U, 2040U}) {
        Add("vrx serve round trip/" + std::to_string(words) + " words", kRounds,
            [words](benchmark::State& state) { RunBesideEpoll(state, *field, 1, words); });
    }
    for (const size_t clients : {8U, 64U, 256U}) {
        Add("vrx serve time for blocks/" + std::to_string(clients) + " clients", kRounds,
            [clients](benchmark::State& state) { RunBesideEpoll(state, *field, clients, 256); });
    }
    Add("vrx serve heavy chain/8 clients by 2 threads", 15, RunHeavyChain);
    Add("vrx serve fairness/64 clients", 15, [](benchmark::State& state) { RunFairness(state, *field); });
    Add("vrx serve memory/200 clients", 1, RunMemory);
}

} // namespace bench
