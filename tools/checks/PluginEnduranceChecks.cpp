#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"
#include "tools/checks/ProcessState.h"

#include "host/Packet.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <thread>

namespace vrx::tool {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Runs `work` in so many threads at a time and waits for all; it is given the thread's number.
template <class Work>
void InThreads(int count, const Work& work) {
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) threads.emplace_back([&work, i] { work(i); });
    for (std::thread& thread : threads) thread.join();
}

/// Talkers that connect, pump, ask and are deleted, in several threads, since deleting one may take a moment. Returns
/// how many there were.
std::size_t Live(PluginBench& bench, const StubServer& server, int threads, int lifetimes) {
    const std::string line = ArgumentLine(server.Port());
    std::atomic<std::size_t> lived = 0;
    const LoopTime time;
    InThreads(threads, [&](int) {
        Words words(64);
        for (int i = 0; i < lifetimes && time.Left(); ++i, ++lived) {
            const std::unique_ptr<CVRXTalker> talker = bench.MakeBare();
            (void)talker->Configure(line.c_str());
            for (int block = 0; block < 3; ++block)
                (void)talker->PumpAudio(words.data(), words.data(), 64, 64);
            PinSix pins;
            (void)talker->PinProps(pins[0], pins[1], pins[2], pins[3], pins[4], pins[5]);
            std::string reply;
            (void)talker->SendMessage("status", reply);
        }
    });
    return lived;
}

template <class Count>
bool SettlesAt(const Count& count, std::size_t most) {
    const auto end = Clock::now() + milliseconds(8000);
    while (count() > most && Clock::now() < end) std::this_thread::sleep_for(milliseconds(10));
    return count() <= most;
}

/// What something that is done again and again leaves in memory.
struct Leftover {
    std::size_t times = 0; ///< in all
    std::size_t each = 0;  ///< bytes each time; 0: no more than `most`
};

/// Three rounds of the same, each of which returns how many times it did it. What leaks grows in each of them; the
/// system's stores and this program's own grow in one or the other.
template <class Round>
Leftover LeftBy(const Round& round, std::size_t most, std::size_t noise) {
    Leftover left;
    std::size_t least = SIZE_MAX;
    for (int i = 0; i < 3; ++i) {
        const std::size_t before = ResidentBytes();
        const std::size_t times = round();
        const std::size_t after = ResidentBytes();
        const std::size_t grown = after - std::min(before, after);
        least = std::min(least, grown < most * times + noise ? 0 : grown / std::max<std::size_t>(times, 1));
        left.times += times;
    }
    if (MemoryIsMeasurable()) left.each = least;
    return left;
}

void Lifetimes(Trial& trial) {
    constexpr int kThreads = 20;
    constexpr int kEach = 45;
    constexpr std::size_t kMostGrowth = 4000; // bytes for each talker
    constexpr std::size_t kNoise = 512 << 10;
    PluginBench bench(trial);
    StubServer server;
    trial.Doing("a hundred talkers come and go");
    Live(bench, server, kThreads, 5);
    server.Forget();
    const std::size_t descriptors = OpenDescriptors().size();
    const std::size_t threads = Threads();
    trial.Doing("nine hundred talkers come and go");
    const auto live = [&] {
        const std::size_t lived = Live(bench, server, kThreads, kEach / 3);
        server.Forget();
        return lived;
    };
    const Leftover left = LeftBy(live, kMostGrowth, kNoise);
    const std::string many = std::to_string(left.times);
    (void)server.WaitForOpen(0);
    Expect(SettlesAt([] { return OpenDescriptors().size(); }, descriptors),
           many + " talkers leave no descriptor behind",
           std::to_string(OpenDescriptors().size() - descriptors) + " more than before",
           "a host that runs for days can open no more files");
    Expect(SettlesAt([] { return Threads(); }, threads), many + " talkers leave no thread behind",
           std::to_string(Threads() - threads) + " more than before", "a host runs out of threads");
    Expect(left.each == 0, many + " talkers leave no memory behind",
           "each left " + std::to_string(left.each) + " bytes",
           "a host that runs for days runs out of memory");
}

/// A call that is made again and again.
struct Repeated {
    const char* name;
    std::function<void(CheckedTalker&)> call;
};

void LongLife(Trial& trial) {
    constexpr std::size_t kCalls = 6000;    // of each kind
    constexpr std::size_t kMostGrowth = 24; // bytes for each
    constexpr std::size_t kNoise = 48 << 10;
    PluginBench bench(trial);
    StubServer server;
    server.Always([](const StubServer::Request& request) {
        if (request.bytes.ends_with('\n')) return Answer::Bytes("ok\n");
        const bool refused = request.bytes.size() < PinPacket().size();
        return Answer::Bytes(refused ? "no\n" : ReplyPacket(0, 0x100, 0x100, Words(64)));
    });
    CheckedTalker talker = bench.Connected(server);
    Words words(64);
    const std::string line = ArgumentLine(server.Port());
    const Repeated kKinds[] = {
        {"blocks", [&](CheckedTalker& t) { (void)t.Pump(words.data(), words.data(), 64, 64); }},
        {"refused blocks", [&](CheckedTalker& t) { (void)t.Pump(nullptr, words.data(), 0, 64); }},
        {"pin queries",
         [](CheckedTalker& t) {
             PinSix pins;
             (void)t.Pins(pins);
         }},
        {"texts",
         [](CheckedTalker& t) {
             std::string reply;
             (void)t.Send("what is the matter with this server", reply);
         }},
        {"Configures", [&](CheckedTalker& t) { (void)t.Configure(line); }},
    };
    const std::size_t descriptors = OpenDescriptors().size();
    for (const Repeated& kind : kKinds) {
        const auto run = [&](std::size_t calls) {
            std::size_t made = 0;
            for (const LoopTime time(std::chrono::seconds(4)); made < calls && time.Left(); ++made) {
                kind.call(talker);
                if (made % 200 == 0) server.Forget();
                if (made % 200 == 0) (void)bench.Printed();
            }
            server.Forget();
            return made;
        };
        run(kCalls / 5);
        const Leftover left = LeftBy([&] { return run(kCalls / 3); }, kMostGrowth, kNoise);
        const std::string many = std::to_string(left.times) + " " + kind.name;
        ExpectSame("connections after " + many + ":", 1, server.Connections(),
                   "servers keep a client's state by its connection");
        ExpectSame("descriptors after " + many + ":", descriptors, OpenDescriptors().size(),
                   "a host that runs for days can open no more files");
        Expect(left.each == 0, many + " leave no memory behind",
               "each left " + std::to_string(left.each) + " bytes",
               "a host that runs for days runs out of memory");
    }
}

void ManyConfigures(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    const std::size_t descriptors = OpenDescriptors().size();
    const std::size_t threads = Threads();
    for (int i = 0; i < 300; ++i) {
        ExpectSame("Configure again and again returns", true, talker.Configure(ArgumentLine(server.Port())),
                   "a host cannot change its talker's settings");
        server.Forget();
    }
    ExpectSame("connections:", 1, server.Connections(), "servers keep a client's state by its connection");
    ExpectSame("descriptors:", descriptors, OpenDescriptors().size(), "a host can open no more files");
    ExpectSame("threads:", threads, Threads(), "a host runs out of threads");
}

/// Nothing of the library may run once it is gone.
void Unloading(Trial& trial) {
    for (int i = 0; i < 5; ++i) {
        PluginBench bench(trial);
        StubServer server;
        {
            CheckedTalker talker = bench.Connected(server);
            CheckedTalker unused = bench.Make();
            Words words(8);
            (void)talker.Pump(words.data(), words.data(), 8, 8);
        }
        bench.Unload();
        trial.Doing("after unloading, with nothing left of the plug-in");
        std::this_thread::sleep_for(milliseconds(250)); // what is left of it has time to crash
    }
}

void QuickDelete(Trial& trial) {
    constexpr double kQuick = 1;
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    const auto began = Clock::now();
    talker.Delete();
    const double took = std::chrono::duration<double>(Clock::now() - began).count();
    if (took > kQuick)
        trial.Warn({"deleting a talker takes less than a second",
                    "it took " + Shown(static_cast<float>(took)) + " s", "a host stands still for so long"});
}

/// The word that tells a request's sender: its first data word.
std::uint32_t SenderOf(const std::string& request) {
    std::uint32_t word = 0;
    if (request.size() >= 24) std::memcpy(&word, request.data() + host::kRequestHeaderBytes, sizeof word);
    return word;
}

constexpr char kOtherText[] = "a text from the other thread";

/// What shows that requests have got into each other; "" for nothing.
std::string WhyMixed(const StubServer::Request& request) {
    if (!request.alone) return "two requests at once";
    const bool text = request.bytes == std::string(kOtherText) + "\n";
    const bool pins = request.bytes == PinPacket();
    if (text || pins || request.bytes == PumpPacket(Words(300, SenderOf(request.bytes)), 300)) return "";
    return "a request of " + Shown(request.bytes);
}

/// Several threads on one talker: whole requests, one after the other.
void OneTalkerManyThreads(Trial& trial) {
    constexpr int kThreads = 4;
    constexpr int kEach = 60;
    constexpr int kMostQuiet = 16; // half seconds
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Always([](const StubServer::Request& request) {
        Answer answer = request.bytes.starts_with(host::kPacketTagBytes)
                            ? Answer::Bytes(ReplyPacket(0, 0, 0, Words(300, SenderOf(request.bytes))))
                            : Answer::Bytes("ok\n");
        answer.listen = milliseconds(2);
        return answer;
    });
    trial.Doing("PumpAudio, PinProps and SendMessage in several threads");
    std::atomic<int> running = kThreads;
    std::atomic<bool> stop = false;
    // What the calls return is not looked at: a reply is read when the next exchange may already have begun.
    std::thread callers([&] {
        InThreads(kThreads, [&](int number) {
            Words in(300, static_cast<std::uint32_t>(number) + 1);
            Words out(300);
            for (int i = 0; i < kEach && !stop; ++i) {
                std::string reply;
                PinSix pins;
                if (number == 0)
                    (void)talker.Bare().SendMessage(kOtherText, reply);
                else if (number == 1)
                    (void)talker.Bare().PinProps(pins[0], pins[1], pins[2], pins[3], pins[4], pins[5]);
                else
                    (void)talker.Bare().PumpAudio(in.data(), out.data(), 300, 300);
            }
            --running;
        });
    });
    std::string wrong;
    for (int quiet = 0; running > 0;) {
        const auto request = server.Take(milliseconds(500));
        quiet = request ? 0 : quiet + 1;
        if (request && wrong.empty()) wrong = WhyMixed(*request);
        if (quiet > kMostQuiet && wrong.empty()) wrong = "callers that wait without end";
        if (wrong.empty()) continue;
        stop = true;
        server.Drop(Answer::kClose); // whoever waits has to come back
    }
    callers.join();
    const char* means = "requests of a host's threads mix, and the server understands none of them";
    Expect(wrong.empty(), "each request is whole, and is sent after the reply to the one before", wrong,
           means);
    ExpectSame("connections:", 1, server.Connections(), means);
}

void ManyTalkers(Trial& trial) {
    constexpr int kTalkers = 24;
    constexpr int kBlocks = 60;
    PluginBench bench(trial);
    StubServer server;
    server.Always([](const StubServer::Request& request) {
        if (!request.bytes.starts_with(host::kPacketTagBytes)) return Answer::Bytes("ok\n");
        const std::uint32_t sender = SenderOf(request.bytes);
        return Answer::Bytes(ReplyPacket(sender, sender << 8, sender << 9, Words(64, sender)));
    });
    trial.Doing("PumpAudio of many talkers, each in its thread");
    std::atomic<int> wrong = 0;
    const std::string line = ArgumentLine(server.Port());
    InThreads(kTalkers, [&](int number) {
        const auto mark = static_cast<std::uint32_t>(number) + 1;
        const std::unique_ptr<CVRXTalker> talker = bench.MakeBare();
        if (!talker->Configure(line.c_str())) ++wrong;
        Words in(64, mark);
        for (int i = 0; i < kBlocks; ++i) {
            Words out(64);
            const int status = talker->PumpAudio(in.data(), out.data(), 64, 64);
            if (status != static_cast<int>(mark) || out != in ||
                talker->GetAverageCycles() != static_cast<float>(mark) ||
                talker->GetPumpCycles() != static_cast<float>(2 * mark))
                ++wrong;
        }
    });
    ExpectSame("blocks of 24 talkers at a time that came back wrong:", 0, wrong.load(),
               "a host with several tracks hears one in the other");
}

/// A talker that waits holds up nobody else's.
void IndependentTalkers(Trial& trial) {
    PluginBench bench(trial);
    StubServer mute;
    StubServer server;
    CheckedTalker waiting = bench.Connected(mute);
    CheckedTalker talker = bench.Connected(server);
    const bool done = IsDoneMeanwhile(waiting, mute, [&] {
        Words words(4);
        for (int i = 0; i < 10; ++i) (void)talker.Pump(words.data(), words.data(), 4, 4);
        CheckedTalker fresh = bench.Connected(server);
        fresh.Delete();
    });
    Expect(done, "while one talker waits for its server, another one's blocks pass, and a third one connects",
           "they wait for the first one's block", "one slow server stops all tracks of a host");
}

constexpr Check kPluginEnduranceChecks[] = {
    {"lifetimes", CheckTarget::kPlugin, 6, "A thousand talkers leave no descriptors, threads or memory.",
     "connects", 90, Lifetimes},
    {"long-life", CheckTarget::kPlugin, 6, "Six thousand calls of each kind leave no descriptors or memory.",
     "connects", 150, LongLife},
    {"many-configures", CheckTarget::kPlugin, 6, "Three hundred Configures of one talker leave nothing.",
     "connects", 60, ManyConfigures},
    {"unloading", CheckTarget::kPlugin, 6, "After the last talker the library can be unloaded.", "connects",
     30, Unloading},
    {"quick-delete", CheckTarget::kPlugin, 6, "Deleting a talker takes less than a second (warns).",
     "connects", 30, QuickDelete},
    {"one-talker-many-threads", CheckTarget::kPlugin, 7, "Requests of several threads never mix on the wire.",
     "connects", 60, OneTalkerManyThreads},
    {"many-talkers", CheckTarget::kPlugin, 7, "Talkers in threads of their own do not disturb each other.",
     "connects", 60, ManyTalkers},
    {"independent-talkers", CheckTarget::kPlugin, 7, "A talker that waits holds up no other.", "connects", 30,
     IndependentTalkers},
};

} // namespace

std::span<const Check> PluginEnduranceChecks() {
    return kPluginEnduranceChecks;
}

} // namespace vrx::tool
