#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
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

constexpr Check kChecks[] = {
    {"blocks-without-stalls", CheckTarget::kPlugin, 9, "Blocks do not wait 40 ms in the system (warns).",
     "connects", 60, BlocksWithoutStalls},
    {"system-calls", CheckTarget::kPlugin, 9,
     "A block takes few system calls, as strace counts them (warns).", "connects", 60, SystemCalls},
};

} // namespace

std::span<const Check> PluginCostChecks() {
    return kChecks;
}

} // namespace vrx::tool
