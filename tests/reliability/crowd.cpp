// Puts a crowd of clients on `vrx serve`. Half of them are no good: they send random bytes, do not read what they
// asked for, or stop in the middle of a request. Watches that the others are served right and that the server's
// memory stays within what its limits promise. Run by script/crowd.
//
//   crowd PLUGIN VRX SECONDS

#include "talker/CVRXTalker.h"
#include "tests/support/RawClient.h"
#include "tests/support/Subprocess.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kClients = 200; // half of them good

/// What the server may hold: for each client a request, its reply and the room of the two sockets, and itself.
constexpr long kBoundKiB = kClients * (1088 + 1024 + 512) + 65536;

std::atomic<bool> g_stop = false;
std::atomic<long> g_served = 0;
std::atomic<long> g_wrong = 0;
std::atomic<long> g_failed = 0;
std::atomic<long> g_badConnections = 0;

void PumpForever(CVRXTalker* (*factory)(), const std::string& args, unsigned seed) {
    std::mt19937 random(seed);
    const std::unique_ptr<CVRXTalker> talker(factory());
    bool connected = talker->Configure(args.c_str());
    while (!g_stop) {
        if (!connected) { // the crowd may have taken every place
            ++g_failed;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            connected = talker->Configure(args.c_str());
            continue;
        }
        std::vector<unsigned> in(random() % 300 + 1);
        for (unsigned& word : in) word = static_cast<unsigned>(random());
        std::vector<unsigned> out(in.size());
        const auto count = static_cast<unsigned>(in.size());
        connected = talker->PumpAudio(in.data(), out.data(), count, count) == 0;
        if (!connected) continue;
        ++g_served;
        if (out != in) ++g_wrong;
    }
}

/// Begins like a packet now and then, so that the bytes get past the first look.
std::string Rubbish(std::mt19937& random) {
    std::string bytes(random() % 3000 + 1, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    if (random() % 2 == 0) bytes.insert(0, "\x03\x00\xFF\x07", 4);
    return bytes;
}

void SendRubbish(const RawClient& client, std::mt19937& random) {
    for (unsigned sends = random() % 8 + 1; sends > 0 && !g_stop; --sends) client.Send(Rubbish(random));
}

std::string BigRequest() {
    constexpr uint32_t kWords = 200000;
    const uint32_t head[] = {0x07FF0003, 20 + 4 * kWords + 28, kWords + 1, 0x3A, kWords + 3};
    std::string packet(20 + 4 * kWords, '\x11');
    std::memcpy(packet.data(), head, sizeof head);
    return packet + std::string("L,I.samples[0],O.samples[0]\0", 28);
}

/// Asks for more and more, and reads a little of it now and then.
void ReadSlowly(const RawClient& client, std::mt19937& random) {
    const std::string request = BigRequest();
    size_t at = 0;
    for (auto reads = random() % 200 + 1; reads > 0 && !g_stop; --reads) {
        at = (at + client.SendWithoutWaiting(std::string_view(request).substr(at))) % request.size();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (at == 0 || reads % 50 == 0) client.Receive(1000);
    }
}

/// Says nothing more in the middle of a request, and goes.
void StopHalfway(const RawClient& client, std::mt19937& random) {
    const std::string request = BigRequest();
    client.Send(std::string_view(request).substr(0, random() % request.size()));
    for (auto waits = random() % 100; waits > 0 && !g_stop; --waits)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

using Misdeed = void (*)(const RawClient&, std::mt19937&);

void MisbehaveForever(Misdeed misdeed, uint16_t port, unsigned seed) {
    std::mt19937 random(seed);
    while (!g_stop) {
        try {
            const RawClient client(port);
            ++g_badConnections;
            misdeed(client, random);
        } catch (const std::runtime_error&) {
            std::this_thread::yield(); // no place in the queue: once more
        }
    }
}

long ResidentKiB(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    return 0;
}

/// Prints a line now and then until the time is up, by the clock however busy the machine is. Returns the most
/// memory that the server held.
long WatchFor(std::chrono::seconds length, pid_t server, FILE* report) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    const auto step = std::max(std::chrono::seconds(10), length / 20);
    auto nextLine = step;
    long most = 0;
    std::fprintf(report, "second  served   wrong  bad connections      server's RSS KiB\n");
    for (bool over = false; !over;) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        const long resident = ResidentKiB(server);
        most = std::max(most, resident);
        const auto passed = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start);
        over = passed >= length;
        if (passed < nextLine && !over) continue;
        while (nextLine <= passed) nextLine += step;
        std::fprintf(report, "%6lld  %-8ld %-6ld %-20ld %ld\n", static_cast<long long>(passed.count()),
                     g_served.load(), g_wrong.load(), g_badConnections.load(), resident);
        std::fflush(report);
    }
    return most;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: crowd PLUGIN VRX SECONDS\n");
        return 1;
    }
    const int seconds = std::atoi(argv[3]);
    FILE* const report = fdopen(dup(STDOUT_FILENO), "w"); // the talkers' own lines go nowhere
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);

    void* library = dlopen(argv[1], RTLD_NOW);
    if (!library) {
        std::fprintf(stderr, "crowd: %s\n", dlerror());
        return 1;
    }
    auto* const factory = reinterpret_cast<CVRXTalker* (*)()>(dlsym(library, "_Z13TalkerFactoryv"));
    Subprocess server({argv[2], "serve", "--quiet", "--samples", "s32", "--channels", "1"});
    const std::string listening = server.ReadLine();
    const std::string port = listening.substr(listening.rfind(':') + 1);
    const std::string args =
        "server=127.0.0.1,servport=" + port + ",clport=1,input=In,output=Out,layout=Main";

    std::vector<std::thread> clients;
    for (unsigned i = 0; i < kClients / 2; ++i) {
        clients.emplace_back(PumpForever, factory, args, i);
        constexpr Misdeed kMisdeeds[] = {SendRubbish, SendRubbish, ReadSlowly, StopHalfway};
        clients.emplace_back(MisbehaveForever, kMisdeeds[i % 4],
                             static_cast<uint16_t>(std::atoi(port.c_str())), 1000 + i);
    }
    const long most = WatchFor(std::chrono::seconds(seconds), server.Pid(), report);
    g_stop = true;
    for (std::thread& client : clients) client.join();
    server.Signal(SIGTERM);
    const Subprocess::Outcome end = server.Wait();
    std::fprintf(report,
                 "served %ld blocks, %ld wrong, %ld failed and tried again; the server held at most %ld KiB "
                 "of the %ld that "
                 "its limits allow, and ended with exit code %d\n",
                 g_served.load(), g_wrong.load(), g_failed.load(), most, kBoundKiB, end.exitCode);
    std::fclose(report);
    return g_wrong == 0 && g_served > 0 && end.exitCode == 0 && most <= kBoundKiB ? 0 : 1;
}
