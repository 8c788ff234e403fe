#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace vrx::tool {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

double MedianMilliseconds(CheckedTalker& talker, unsigned words, int blocks) {
    Words buffer(words);
    std::vector<double> times;
    for (int i = 0; i < blocks; ++i) {
        const auto began = Clock::now();
        (void)talker.Pump(buffer.data(), buffer.data(), words, words);
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - began).count());
    }
    std::ranges::nth_element(times, times.begin() + blocks / 2);
    return times[static_cast<std::size_t>(blocks) / 2];
}

/// 40 ms is what the system waits for more when requests go out in parts without TCP_NODELAY.
void BlocksWithoutStalls(Trial& trial) {
    constexpr double kStall = 35;
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (const unsigned words : {64U, 1000U, 4096U}) {
        const double median = MedianMilliseconds(talker, words, 41);
        if (median > kStall)
            trial.Warn({"blocks of " + std::to_string(words) + " words pass a local server within 35 ms",
                        "half of them took longer than " + Shown(static_cast<float>(median)) + " ms",
                        "no real time: TCP_NODELAY, and one send for each packet, avoid it"});
    }
}

/// strace on one thread of this process, from its making to Count.
class CallCounter {
public:
    CallCounter() : m_file("/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(m_memory)) {
        ::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
        const std::string target = std::to_string(::getpid());
        const char* arguments[] = {"strace", "-c", "-o", m_file.c_str(), "-p", target.c_str(), nullptr};
        if (::posix_spawnp(&m_pid, "strace", nullptr, nullptr, const_cast<char**>(arguments), environ) != 0)
            throw Untried{"strace is not there"};
        const auto end = Clock::now() + milliseconds(3000);
        while (!Traced() && Clock::now() < end) std::this_thread::sleep_for(milliseconds(5));
        if (Traced()) return;
        (void)Count();
        throw Untried{"strace may not look at processes here"};
    }

    /// All calls since then. May be called once.
    unsigned long Count() {
        ::kill(m_pid, SIGINT);
        ::waitpid(m_pid, nullptr, 0);
        std::ifstream file(m_file);
        unsigned long calls = 0;
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            double percent = 0;
            double seconds = 0;
            unsigned long perCall = 0;
            unsigned long count = 0;
            const bool row = static_cast<bool>(words >> percent >> seconds >> perCall >> count);
            if (row && line.find(" total") == line.npos) calls += count;
        }
        ::close(m_memory);
        return calls;
    }

private:
    static bool Traced() {
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word;)
            if (word == "TracerPid:") return status >> word && word != "0";
        return false;
    }

    int m_memory = ::memfd_create("calls", 0);
    std::string m_file;
    pid_t m_pid = -1;
};

void SystemCalls(Trial& trial) {
    constexpr unsigned kBlocks = 200;
    constexpr double kMany = 8;
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    CallCounter counter;
    (void)MedianMilliseconds(talker, 64, kBlocks);
    const double each = static_cast<double>(counter.Count()) / kBlocks;
    if (each > kMany)
        trial.Warn({"a block takes a handful of system calls, at best a send and a receive",
                    "it takes " + Shown(static_cast<float>(each)), "a host with many tracks loses time"});
}

/// A mono file of silence.
std::string SilentWav(std::uint32_t frames) {
    const std::uint32_t head[] = {0x46464952 /* RIFF */,
                                  36 + 2 * frames,
                                  0x45564157 /* WAVE */,
                                  0x20746D66 /* fmt */,
                                  16,
                                  0x00010001 /* PCM, mono */,
                                  48000,
                                  96000,
                                  0x00100002 /* 2 bytes, 16 bits */,
                                  0x61746164 /* data */,
                                  2 * frames};
    std::string bytes(sizeof head + 2 * std::size_t{frames}, '\0');
    std::memcpy(bytes.data(), head, sizeof head);
    return bytes;
}

/// A file in memory that other programs can open.
class MemoryFile {
public:
    explicit MemoryFile(const std::string& contents = "") {
        if (::write(m_file, contents.data(), contents.size()) != static_cast<ssize_t>(contents.size()))
            throw Untried{"no memory for a file"};
        ::lseek(m_file, 0, SEEK_SET);
    }
    ~MemoryFile() { ::close(m_file); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    int Descriptor() const { return m_file; }
    std::string Path() const {
        return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(m_file);
    }
    std::string Contents() const {
        std::ifstream file(Path());
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    int m_file = ::memfd_create("cost", 0);
};

/// What one of valgrind's tools counts.
struct Counter {
    const char* tool;
    const char* option;
    const char* before; ///< stands before the number in what the tool says
    const char* name;
    double many; ///< for one block, the host's share included
};

/// How many of it the whole life of vrx takes when it pumps so many blocks of 64 words through the plug-in.
double CountedBy(const Counter& counter, Trial& trial, int port, std::uint32_t blocks) {
    constexpr milliseconds kLongest{60000};
    trial.Doing(std::string("running vrx pump in valgrind's ") + counter.tool);
    const MemoryFile input(SilentWav(64 * blocks));
    const MemoryFile log;
    const std::string arguments[] = {"valgrind",
                                     std::string("--tool=") + counter.tool,
                                     counter.option,
                                     "--vgdb=no", // it would leave pipes behind where it is killed
                                     "--log-file=" + log.Path(),
                                     std::filesystem::read_symlink("/proc/self/exe"),
                                     "pump",
                                     "-",
                                     "-",
                                     "--plugin",
                                     trial.Target().file,
                                     "--servport",
                                     std::to_string(port),
                                     "--block",
                                     "64",
                                     "--samples",
                                     "f32",
                                     "--replies",
                                     "single"};
    std::vector<char*> words;
    words.reserve(std::size(arguments) + 1);
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input.Descriptor(), STDIN_FILENO);
    pid_t pid = -1;
    const bool started = ::posix_spawnp(&pid, "valgrind", &actions, nullptr, words.data(), environ) == 0;
    ::posix_spawn_file_actions_destroy(&actions);
    if (!started) throw Untried{"valgrind is not there"};
    int status = 0;
    const auto end = Clock::now() + kLongest;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        if (Clock::now() > end) ::kill(pid, SIGKILL);
        std::this_thread::sleep_for(milliseconds(10));
    }
    const std::string said = log.Contents();
    const std::size_t at = said.find(counter.before);
    if (status != 0 || at == said.npos) throw Untried{"valgrind cannot run this plug-in, or not in time"};
    std::string digits = said.substr(at + std::strlen(counter.before), 30);
    std::erase(digits, ',');
    return std::strtod(digits.c_str(), nullptr);
}

/// Warns when a block takes more than many, as two runs of different length show.
void CountPerBlock(Trial& trial, const Counter& counter) {
    constexpr std::uint32_t kFew = 20;
    constexpr std::uint32_t kMore = 220;
    StubServer server;
    const double few = CountedBy(counter, trial, server.Port(), kFew);
    const double each = (CountedBy(counter, trial, server.Port(), kMore) - few) / (kMore - kFew);
    if (each > counter.many)
        trial.Warn({"a block of 64 words takes at most " + Shown(static_cast<float>(counter.many)) + " " +
                        counter.name + ", those of vrx pump included",
                    "it takes " + Shown(static_cast<float>(each)), "a host with many tracks loses time"});
}

void Allocations(Trial& trial) {
    CountPerBlock(trial, {"memcheck", "--leak-check=no", "total heap usage: ", "allocations", 25});
}

void Instructions(Trial& trial) {
    CountPerBlock(trial,
                  {"callgrind", "--callgrind-out-file=/dev/null", "Collected : ", "instructions", 50000});
}

constexpr Check kPluginCostChecks[] = {
    {"blocks-without-stalls", CheckTarget::kPlugin, 9, "Blocks do not wait 40 ms in the system (warns).",
     "connects", 60, BlocksWithoutStalls},
    {"system-calls", CheckTarget::kPlugin, 9,
     "A block takes few system calls, as strace counts them (warns).", "connects", 60, SystemCalls},
    {"allocations", CheckTarget::kPlugin, 9,
     "A block takes few allocations, as valgrind counts them (warns).", "connects", 150, Allocations},
    {"instructions", CheckTarget::kPlugin, 9,
     "A block takes few instructions, as valgrind counts them (warns).", "connects", 150, Instructions},
};

} // namespace

std::span<const Check> PluginCostChecks() {
    return kPluginCostChecks;
}

} // namespace vrx::tool
