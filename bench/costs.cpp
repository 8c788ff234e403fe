// What a talker costs beside its round trips: allocations, memory, threads, and coming and going.

#include "bench/Exchange.h"
#include "bench/Rounds.h"
#include "talker/CVRXTalker.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::atomic<int64_t> allocations = 0;
thread_local double secondsSlept = 0;

double WallNow() {
    timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

// Every allocation of the process passes here, operator new's included.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* old, size_t size);

__attribute__((visibility("default"))) void* malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(size_t count, size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* old, size_t size) {
    ++allocations;
    return __libc_realloc(old, size);
}

/// So do all sleeps, a talker's waits for its watchdog among them.
__attribute__((visibility("default"))) int usleep(useconds_t microseconds) {
    const double start = WallNow();
    const timespec time{microseconds / 1'000'000, 1000L * (microseconds % 1'000'000)};
    const int result = ::nanosleep(&time, nullptr);
    secondsSlept += WallNow() - start;
    return result;
}
}

namespace bench {
namespace {

using Talker = std::unique_ptr<CVRXTalker>;

Talker Connected(int port) {
    Talker talker(TalkerFactory());
    talker->Configure(TalkerSettings(port).c_str());
    return talker;
}

bool Pump(CVRXTalker& talker, std::vector<uint32_t>& words) {
    const auto count = static_cast<unsigned>(words.size());
    return talker.PumpAudio(words.data(), words.data(), count, count) == 0;
}

/// A number of this process, such as `Threads`, from one of its files under /proc/self.
double Figure(const char* file, const std::string& name) {
    std::ifstream in(std::string("/proc/self/") + file);
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(name + ":")) return std::atof(line.c_str() + name.size() + 1);
    }
    return -1;
}

double OpenDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<double>(std::distance(begin(all), end(all)));
}

struct Usage {
    double privateKiB = Figure("smaps_rollup", "Private_Dirty");
    double residentKiB = Figure("smaps_rollup", "Rss");
    double threads = Figure("status", "Threads");
    double descriptors = OpenDescriptors();
};

/// Measures in a child process, which ends without taking its talkers down one tick after another.
Usage UsageOf(int talkers, int port) {
    int pipe[2];
    if (::pipe(pipe) != 0) std::abort();
    const pid_t child = ::fork();
    if (child == 0) {
        const Usage before;
        std::vector<Talker> connected;
        std::vector<uint32_t> words(16);
        for (int i = 0; i < talkers; ++i) {
            connected.push_back(Connected(port));
            if (!Pump(*connected.back(), words)) ::_exit(1);
        }
        Usage used;
        used.privateKiB -= before.privateKiB;
        used.residentKiB -= before.residentKiB;
        used.threads -= before.threads;
        used.descriptors -= before.descriptors;
        ::_exit(::write(pipe[1], &used, sizeof used) == sizeof used ? 0 : 1);
    }
    ::close(pipe[1]);
    Usage used;
    const bool complete = ::read(pipe[0], &used, sizeof used) == sizeof used;
    ::close(pipe[0]);
    ::waitpid(child, nullptr, 0);
    if (!complete) std::abort();
    return used;
}

void SetLimited(benchmark::State& state, const std::string& counter, double value, double limit) {
    state.counters[counter] = value;
    state.counters["limit " + counter] = limit;
}

void RunAllocations(benchmark::State& state, int port, size_t wordCount) {
    constexpr int kCalls = 1000;
    const Talker talker = Connected(port);
    std::vector<uint32_t> words(wordCount);
    Pump(*talker, words);
    for (auto _ : state) {
        const int64_t before = allocations;
        for (int i = 0; i < kCalls; ++i) {
            if (!Pump(*talker, words)) return state.SkipWithError("a block failed");
        }
        SetLimited(state, "count allocations per call", static_cast<double>(allocations - before) / kCalls,
                   1);
    }
}

void RunOneTalker(benchmark::State& state, int port) {
    for (auto _ : state) SetLimited(state, "count KiB resident", UsageOf(1, port).privateKiB, 64);
}

void RunManyTalkers(benchmark::State& state, int port) {
    constexpr int kTalkers = 1000;
    for (auto _ : state) {
        const Usage used = UsageOf(kTalkers, port);
        SetLimited(state, "count KiB resident each", used.residentKiB / kTalkers, 64);
        state.counters["count threads each"] = used.threads / kTalkers;
        state.counters["count descriptors each"] = used.descriptors / kTalkers;
    }
}

/// From nothing to nothing, in seconds, without the waits for a watchdog's tick. Those leave the core cold: all
/// beginnings and ends follow such a rest.
template <class Connect>
double Lifetime(Connect connect) {
    constexpr useconds_t kRest = 10'000;
    ::usleep(kRest);
    const double start = WallNow();
    secondsSlept = 0;
    auto connection = connect();
    ::usleep(kRest);
    connection.reset();
    return WallNow() - start - secondsSlept;
}

void RunLifetimes(benchmark::State& state, int port) {
    std::vector<double> ours;
    std::vector<double> bare;
    for (auto _ : state) {
        ours.push_back(Lifetime([port] { return Connected(port); }));
        bare.push_back(Lifetime([port] { return std::make_unique<BareConnection>(port); }));
    }
    SetLimited(state, "floor bare connect and exchange", MedianRatio(ours, bare), 1.3);
}

void RaiseDescriptorLimit() {
    rlimit limit;
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

void AddRows() {
    RaiseDescriptorLimit();
    static const Listener listener;
    static const ChildProcess server([] { ServeAnyone(listener); });
    PinTo(kClientCore);
    const int port = listener.Port();

    const auto add = [port](const std::string& name, int rounds, auto run) {
        benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
            run(state, port);
        })->Iterations(rounds);
    };
    for (const size_t words : {16U, 1024U, 12'000U}) {
        add("PumpAudio heap allocations/" + std::to_string(words) + " words", 1,
            [words](benchmark::State& state, int at) { RunAllocations(state, at, words); });
    }
    add("Connected talker/one, private memory", 1, RunOneTalker);
    add("Connected talker/1,000 in one process", 1, RunManyTalkers);
    add("Talker created, configured, deleted/one after another", 100, RunLifetimes);
}

} // namespace bench
