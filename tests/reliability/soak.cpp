// Keeps many talkers pumping through a server that spoils replies and is killed and restarted at random
// times, and watches that every accepted block is right and that this process does not grow. Run by
// script/soak.
//
//   soak PLUGIN VRX MINUTES [TALKERS] [SEED]

#include "talker/CVRXTalker.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Subprocess.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Left out are the faults that deliver a tagged but incomplete or stale packet (pieces, stalls inside the
// packet, cut, duplicate): a host cannot tell such a block from a right one, by design of the protocol.
constexpr char kFaults[] =
    "reset,wrong-tag,wrong-length=7,text,negative-status,no-answer,endless-text,late=400ms";
constexpr char kFaultRate[] = "0.02";

std::atomic<bool> g_stop = false;
std::atomic<long> g_accepted = 0;
std::atomic<long> g_wrong = 0;
std::mutex g_resultsMutex;
std::map<int, long> g_results; // failed exchanges by their code

void Count(int result) {
    const std::lock_guard lock(g_resultsMutex);
    ++g_results[result];
}

/// Sleeps unless the run ends meanwhile.
void Pause(milliseconds time) {
    const auto end = Clock::now() + time;
    while (!g_stop && Clock::now() < end) std::this_thread::sleep_for(std::min(time, milliseconds(50)));
}

/// Pumps blocks of words that no other block holds; the server passes them through.
void PumpForever(CVRXTalker* (*factory)(), const std::string& args, unsigned seed) {
    std::mt19937 random(seed);
    while (!g_stop) {
        const std::unique_ptr<CVRXTalker> talker(factory());
        bool connected = talker->Configure(args.c_str());
        for (int block = 0; connected && !g_stop && block < 5000; ++block) {
            std::vector<unsigned> in(random() % 300 + 1);
            for (unsigned& word : in) word = static_cast<unsigned>(random());
            std::vector<unsigned> out(in.size());
            const auto count = static_cast<unsigned>(in.size());
            const int result = talker->PumpAudio(in.data(), out.data(), count, count);
            if (result == 0) {
                ++g_accepted;
                if (out != in) ++g_wrong;
            } else {
                Count(result);
                if (result < 0 && result != -5)
                    connected = talker->Configure(args.c_str()); // -5: the server's status
            }
            if (random() % 4 == 0)
                std::this_thread::sleep_for(milliseconds(20)); // about the pace of real blocks
        }
        if (!connected) {
            Count(-1);
            Pause(milliseconds(random() % 500));
        }
    }
}

struct Footprint {
    long residentKiB = 0;
    long threads = 0;
    long descriptors = 0;
};

Footprint Measure() {
    Footprint now;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) now.residentKiB = std::strtol(line.c_str() + 6, nullptr, 10);
        if (line.starts_with("Threads:")) now.threads = std::strtol(line.c_str() + 8, nullptr, 10);
    }
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder)) ++now.descriptors;
    closedir(folder);
    return now;
}

std::unique_ptr<Subprocess> StartServer(const std::string& vrx, const std::string& port, unsigned seed) {
    auto server = std::make_unique<Subprocess>(std::vector<std::string>{
        vrx, "serve", "--quiet", "--port", port, "--samples", "s32", "--channels", "1", "--faults", kFaults,
        "--fault-rate", kFaultRate, "--seed", std::to_string(seed)});
    if (server->ReadLine().find("listening") == std::string::npos) server.reset();
    return server;
}

void Print(FILE* report, double minute, int restarts) {
    const Footprint now = Measure();
    std::fprintf(report, "%6.1f  %10ld  %8d  %10ld  %7ld  %11ld\n", minute, g_accepted.load(), restarts,
                 now.residentKiB, now.threads, now.descriptors);
    std::fflush(report);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: soak PLUGIN VRX MINUTES [TALKERS] [SEED]\n");
        return 1;
    }
    const std::string vrx = argv[2];
    const double minutes = std::atof(argv[3]);
    const int talkers = argc > 4 ? std::atoi(argv[4]) : 50;
    const unsigned seed = argc > 5 ? static_cast<unsigned>(std::atoi(argv[5])) : 1;

    // The talkers report each failed exchange on standard output; the report goes where that was.
    FILE* const report = fdopen(dup(STDOUT_FILENO), "w");
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);

    void* library = dlopen(argv[1], RTLD_NOW);
    if (!library) {
        std::fprintf(stderr, "soak: %s\n", dlerror());
        return 1;
    }
    auto* const factory = reinterpret_cast<CVRXTalker* (*)()>(dlsym(library, "_Z13TalkerFactoryv"));

    std::mt19937 random(seed);
    const std::string port = std::to_string(RefusedPort());
    std::unique_ptr<Subprocess> server = StartServer(vrx, port, seed);
    if (!server) {
        std::fprintf(stderr, "soak: %s serve did not start\n", vrx.c_str());
        return 1;
    }
    const std::string args =
        "server=127.0.0.1,servport=" + port + ",clport=1,input=In,output=Out,layout=Main";
    std::vector<std::thread> threads;
    for (int i = 0; i < talkers; ++i)
        threads.emplace_back(PumpForever, factory, args, seed * 1000 + static_cast<unsigned>(i));

    std::fprintf(report, "minute    accepted  restarts     RSS KiB  threads  descriptors\n");
    const auto start = Clock::now();
    const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count() / 60; };
    int restarts = 0;
    double nextLine = 0;
    while (elapsed() < minutes) {
        std::this_thread::sleep_for(milliseconds(500 + random() % 8000));
        if (elapsed() >= nextLine) {
            Print(report, elapsed(), restarts);
            nextLine += minutes / 15;
        }
        server->Signal(SIGKILL);
        (void)server->Wait();
        std::this_thread::sleep_for(milliseconds(random() % 1500));
        for (server.reset(); !server;)
            server = StartServer(vrx, port, seed + static_cast<unsigned>(++restarts));
    }
    Print(report, elapsed(), restarts);
    g_stop = true;
    for (std::thread& thread : threads) thread.join();
    Print(report, elapsed(), restarts);

    std::fprintf(report,
                 "blocks accepted %ld, of them wrong %ld; failed exchanges by code:", g_accepted.load(),
                 g_wrong.load());
    for (const auto& [code, count] : g_results) std::fprintf(report, " %d: %ld", code, count);
    std::fprintf(report, "\n");
    std::fclose(report);
    return g_wrong == 0 && g_accepted > 0 ? 0 : 1;
}
