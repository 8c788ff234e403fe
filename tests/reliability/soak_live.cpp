// Plays noise through `vrx live` and a server that spoils replies and is killed and started again at random times. Every
// frame that comes back is compared with what went in: the delay must never change, and nothing but a fade of a
// millisecond may stand between processed and dry sound. Run by script/soak-live.
//
//   soak_live MINUTES [SEED]

#include "tests/support/JackRecorder.h"
#include "tests/support/JackServer.h"
#include "tests/tools/VrxRun.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Left out is what no client can tell from a right reply: a reply twice.
constexpr char kFaults[] = "reset,wrong-tag,text,endless-text,negative-status,no-answer,late=30ms,stall="
                           "100ms,cut=2,pieces=100,refuse=2s";
constexpr char kFaultRate[] = "0.0005"; // one in ten seconds
constexpr std::size_t kRate = 48000;
constexpr std::size_t kPeriod = 256;
constexpr std::size_t kLatency = 1024;
constexpr std::size_t kFade = kRate / 1000;
constexpr double kRoundSeconds = 60;

std::unique_ptr<ServeProcess> StartServer(const std::string& port, unsigned seed) {
    return std::make_unique<ServeProcess>(
        std::vector<std::string>{"--process", "invert", "--port", port, "--faults", kFaults, "--fault-rate",
                                 kFaultRate, "--seed", std::to_string(seed)});
}

long ResidentKiB(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    return 0;
}

long EntriesOf(pid_t process, const char* folder) {
    using Iterator = std::filesystem::directory_iterator;
    return std::distance(Iterator("/proc/" + std::to_string(process) + "/" + folder), Iterator());
}

struct Totals {
    std::size_t wet = 0;
    std::size_t dry = 0;
    std::size_t longestFade = 0;
    std::vector<double> soundBack; // seconds from the server's return to the first processed frame
};

/// A minute of noise, and a server that goes and comes meanwhile.
class Round {
public:
    Round(std::unique_ptr<ServeProcess>& server, std::mt19937& random) : m_server(server), m_random(random) {}

    bool Up() const { return m_recorder.Up(); }
    void Play() {
        const auto end = Clock::now() + std::chrono::duration<double>(kRoundSeconds);
        while (Clock::now() < end) {
            std::this_thread::sleep_for(milliseconds(5000 + m_random() % 20000));
            RestartServer();
        }
    }
    void AddTo(Totals& totals) const {
        const JackRecorder::Counts heard = m_recorder.Count(m_joined, m_recorder.Frames(), kLatency);
        totals.wet += heard.wet;
        totals.dry += heard.dry;
        totals.longestFade =
            std::max(totals.longestFade, m_recorder.LongestFade(m_joined, m_recorder.Frames(), kLatency));
        for (const std::size_t up : m_back) {
            const std::size_t wet = m_recorder.FirstWet(up, kLatency);
            if (wet < m_recorder.Frames()) totals.soundBack.push_back(static_cast<double>(wet - up) / kRate);
        }
    }

private:
    void RestartServer() {
        const std::string port = m_server->Port();
        m_server->Kill();
        const std::size_t killed = m_recorder.Frames();
        std::this_thread::sleep_for(milliseconds(m_random() % 3000));
        m_server = StartServer(port, static_cast<unsigned>(m_random()));
        m_back.push_back(
            std::max(m_recorder.Frames(), killed + kLatency)); // some replies are still on their way out
    }

    JackRecorder m_recorder{"vrx"};
    const std::size_t m_joined =
        m_recorder.Frames() + kLatency + 2 * kPeriod; // connections take effect with a period
    std::unique_ptr<ServeProcess>& m_server;
    std::mt19937& m_random;
    std::vector<std::size_t> m_back;
};

void PrintRow(double minute, const Totals& totals, pid_t live) {
    const double frames = static_cast<double>(totals.wet + totals.dry);
    std::printf("%6.1f  %11.0f  %8.2f  %8.2f  %12zu  %8zu  %7ld  %7ld  %11ld\n", minute, frames,
                100 * static_cast<double>(totals.wet) / frames,
                100 * static_cast<double>(totals.dry) / frames, totals.longestFade, totals.soundBack.size(),
                ResidentKiB(live), EntriesOf(live, "task"), EntriesOf(live, "fd"));
    std::fflush(stdout);
}

void PrintSoundBack(std::vector<double> seconds) {
    if (seconds.empty()) return;
    std::sort(seconds.begin(), seconds.end());
    std::printf("processed sound after the server was back: p50 %.2f s, longest %.2f s, of %zu restarts\n",
                seconds[seconds.size() / 2], seconds.back(), seconds.size());
}

int Fail(const char* what) {
    std::fprintf(stderr, "soak_live: %s\n", what);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Fail("usage: soak_live MINUTES [SEED]");
    const double minutes = std::atof(argv[1]);
    std::mt19937 random(argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1);
    if (!JackServer::Installed())
        return Fail("needs jackd and its tools (Debian: jackd2; script/setup live)");
    JackServer jack("vrx-soak-" + std::to_string(::getpid()), kPeriod);
    if (!jack.Up()) return Fail("no JACK server comes up");

    std::unique_ptr<ServeProcess> server = StartServer("0", 1);
    Subprocess live({VRX_PROGRAM, "live", "--plugin", VRX_PLUGIN, "--servport", server->Port(), "--block",
                     std::to_string(kPeriod), "--latency", std::to_string(kLatency)});
    if (live.ReadLine().find("ready") == std::string::npos) return Fail("vrx live does not start");
    std::printf(
        "minute       frames     wet %%     dry %%  longest fade  restarts  RSS KiB  threads  descriptors\n");
    Totals totals;
    const auto start = Clock::now();
    const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count() / 60; };
    while (elapsed() < minutes) {
        Round round(server, random);
        if (!round.Up()) return Fail("vrx live has gone");
        round.Play();
        round.AddTo(totals);
        PrintRow(elapsed(), totals, live.Pid());
    }
    live.Signal(SIGTERM);
    const Subprocess::Outcome end = live.Wait();
    PrintSoundBack(totals.soundBack);
    std::printf("%s", end.out.c_str());
    if (end.exitCode != 0) return Fail("vrx live did not end well");
    if (totals.longestFade > kFade) return Fail("the delay has changed, or something else came out");
    return totals.wet > 0 ? 0 : Fail("no processed sound came out");
}
