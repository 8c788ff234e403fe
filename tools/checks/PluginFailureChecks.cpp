#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"
#include "tools/checks/ProcessState.h"

#include "host/Packet.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <future>
#include <thread>

namespace vrx::tool {

namespace {

using enum CVRXTalker::Result;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char kByCode[] = "hosts decide by this result what to do next";

std::string FailedLine(const char* operation, int result) {
    return std::string("CVRXTalker::") + operation + ": SendBinaryMessage failed with " +
           std::to_string(result);
}

std::string NoPacketLine(const char* operation) {
    return std::string("CVRXTalker::") + operation + ": SendBinaryMessage did not reply with packet";
}

std::string ConnectFailedLine(int result, const TalkerNames& names = {}) {
    char code[16];
    (void)std::snprintf(code, sizeof code, "0x%08x", static_cast<unsigned>(result));
    std::string text = ConnectText(names);
    text.pop_back();
    return "CVRXTalker::Connect: SendTcpMessage() of '" + text + "' failed with hr=" + code;
}

/// A connected talker that has pumped one good block, so that there is something a failure could spoil.
class FailureBench {
public:
    explicit FailureBench(Trial& trial) : bench(trial), talker(bench.Connected(server)) {
        server.Then(Answer::Bytes(ReplyPacket(0, 0x4200, 0x2100, Words{1})));
        GuardedWords out(1);
        (void)talker.Pump(nullptr, out.Data(), 0, 1);
        server.Forget();
        (void)bench.Printed();
    }

    /// A block has to fail in this way, and leave everything alone.
    void ExpectPumpFails(const std::string& when, int result, const std::string& line) {
        GuardedWords out(16);
        const Words in = Numbered(16, 4);
        ExpectSame(when + ", PumpAudio returns", result, talker.Pump(in.data(), out.Data(), 16, 16), kByCode);
        bench.ExpectPrinted(when + ", PumpAudio", line);
        out.CheckGuards("a failing PumpAudio");
        Expect(out.IsUntouched(), when + ", out is left alone", "PumpAudio wrote to out",
               "hosts play the block that they had; here they play rubbish");
        ExpectFigures(when);
    }

    void ExpectPinsFail(const std::string& when, int result, const std::string& line) {
        constexpr PinSix kBefore = {91, 92, 93, 94, 95, 96};
        PinSix pins = kBefore;
        ExpectSame(when + ", PinProps returns", result, talker.Pins(pins), kByCode);
        bench.ExpectPrinted(when + ", PinProps", line);
        Expect(pins == kBefore, when + ", the pin values are left alone", "PinProps wrote to them",
               "hosts take what is no answer for the server's pins");
    }

    void ExpectFigures(const std::string& when) {
        const char* means = "hosts show figures of a block that never came back";
        ExpectSame(when + ", GetAverageCycles stays at", 66.0F, talker.Average(), means);
        ExpectSame(when + ", GetPumpCycles stays at", 33.0F, talker.Pumped(), means);
    }

    /// A block has to pass, as connection number `connection`, whose first request it may be.
    void ExpectPumpWorks(const std::string& when, int connection) {
        const char* means = "hosts send the block again and rely on the talker to reconnect as documented";
        server.Forget();
        const Words in = Numbered(4, 8);
        GuardedWords out(4);
        ExpectSame(when + ", PumpAudio returns", 0, talker.Pump(in.data(), out.Data(), 4, 4), means);
        const auto request = server.Take();
        Expect(request.has_value(), when + ", PumpAudio sends a packet", "nothing came", means);
        ExpectBytes(when + ", PumpAudio sends", PumpPacket(in, 4), request->bytes, means);
        ExpectSame(when + ", the block goes over connection", connection, request->connection, means);
    }

    PluginBench bench;
    StubServer server;
    CheckedTalker talker;
};

void ExpectConfigureFails(PluginBench& bench, CheckedTalker& talker, const std::string& when, int port,
                          int result, const TalkerNames& names = {}) {
    ExpectSame(when + ", Configure returns", false, talker.Configure(ArgumentLine(port, names)),
               "hosts believe that they are connected");
    bench.ExpectPrinted(when + ", Configure", ConnectFailedLine(result, names));
    ExpectSame(when + " and Configure failed, PumpAudio returns", int{kNoConnection},
               talker.Pump(nullptr, nullptr, 0, 0), kByCode);
    bench.ExpectPrinted(when + " and Configure failed, PumpAudio", "CVRXTalker::PumpAudio: m_tcpio is NULL");
}

void Refused(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    server.Drop(Answer::kStopAll);
    CheckedTalker talker = bench.Make();
    ExpectConfigureFails(bench, talker, "when nothing listens", server.Port(), kNoConnection);
    (void)talker.Configure(ArgumentLine(server.Port()));
    (void)talker.Configure(ArgumentLine(server.Port()));
    bench.ExpectPrinted("Configure twice, when nothing listens,",
                        ConnectFailedLine(kNoConnection) + "\n" + ConnectFailedLine(kNoConnection));
    server.ListenAgain();
    ExpectSame("when the server is there again, Configure returns", true,
               talker.Configure(ArgumentLine(server.Port())), "a host has to make a new talker");
}

/// A label of more than 63 characters is refused by every resolver without asking anybody.
void UnknownHost(Trial& trial) {
    PluginBench bench(trial);
    TalkerNames names;
    names.host = std::string(70, 'n') + ".invalid";
    CheckedTalker talker = bench.Make();
    ExpectConfigureFails(bench, talker, "with a name that nobody knows", 7000, kNoConnection, names);
}

void ConnectClosed(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Make();
    server.Then(Answer::Ending(Answer::kClose));
    ExpectConfigureFails(bench, talker, "when the server closes instead of answering", server.Port(),
                         kPeerClosed);
    server.Then({.pieces = {"half a line"}, .end = Answer::kClose});
    ExpectConfigureFails(bench, talker, "when the server closes in the middle of its answer", server.Port(),
                         kPeerClosed);
}

void ConnectReset(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Make();
    server.Then(Answer::Ending(Answer::kReset));
    ExpectConfigureFails(bench, talker, "when the server resets instead of answering", server.Port(),
                         kReceiveFailed);
}

void PeerClosed(Trial& trial) {
    FailureBench on(trial);
    const std::string when = "when the server closes instead of answering";
    on.server.Then(Answer::Ending(Answer::kClose));
    on.ExpectPumpFails(when, kPeerClosed, FailedLine("PumpAudio", kPeerClosed));
    on.ExpectPumpWorks("after the server closed", 2);
    on.server.Then(Answer::Ending(Answer::kClose));
    on.ExpectPinsFail(when, kPeerClosed, FailedLine("PinProps", kPeerClosed));
    on.ExpectPumpWorks("after the server closed", 3);
}

void ClosedBetweenBlocks(Trial& trial) {
    FailureBench on(trial);
    on.server.Drop(Answer::kHalfClose);
    on.ExpectPumpFails("when the server has closed before the block", kPeerClosed,
                       FailedLine("PumpAudio", kPeerClosed));
    on.ExpectPumpWorks("after the server closed", 2);
}

void Reset(Trial& trial) {
    FailureBench on(trial);
    const std::string when = "when the server resets instead of answering";
    on.server.Then(Answer::Ending(Answer::kReset));
    on.ExpectPumpFails(when, kReceiveFailed, FailedLine("PumpAudio", kReceiveFailed));
    on.ExpectPumpWorks("after a reset", 2);
    on.server.Then(Answer::Ending(Answer::kReset));
    on.ExpectPinsFail(when, kReceiveFailed, FailedLine("PinProps", kReceiveFailed));
    on.ExpectPumpWorks("after a reset", 3);
}

/// Only text brings a connection back whose sending failed.
void DeadConnection(Trial& trial) {
    FailureBench on(trial);
    on.server.Drop(Answer::kReset);
    for (int i = 0; i < 3; ++i)
        on.ExpectPumpFails("on a connection that the server has reset", kSendFailed,
                           FailedLine("PumpAudio", kSendFailed));
    on.ExpectPinsFail("on a connection that the server has reset", kSendFailed,
                      FailedLine("PinProps", kSendFailed));
    (void)on.talker.Pump(nullptr, nullptr, 0, 0);
    PinSix pins;
    (void)on.talker.Pins(pins);
    on.bench.ExpectPrinted("one call after the other on such a connection",
                           FailedLine("PumpAudio", kSendFailed) + "\n" + FailedLine("PinProps", kSendFailed));
    ExpectSame("connections after these:", 1, on.server.Connections(),
               "hosts tell a dropped connection by -9997 until they configure the talker again");
    ExpectSame("then Configure returns", true, on.talker.Configure(ArgumentLine(on.server.Port())),
               "Configure is the way to recover");
    on.ExpectPumpWorks("after that Configure", 2);
}

void TextOverDeadConnection(Trial& trial) {
    FailureBench on(trial);
    on.server.Drop(Answer::kReset);
    std::string reply;
    const char* means = "text reconnects by itself and is sent again";
    ExpectSame("on a connection that the server has reset, SendMessage returns", int{kReplied},
               on.talker.Send("status", reply), means);
    ExpectSame("and delivers", std::string("ok"), reply, means);
    const auto request = on.server.Take();
    Expect(request.has_value(), "the text arrives over a new connection", "nothing came", means);
    ExpectBytes("over the new connection SendMessage sends", "status\n", request->bytes, means);
    ExpectSame("connections:", 2, on.server.Connections(), means);
    on.bench.ExpectPrinted("that SendMessage", "");
    on.ExpectPumpWorks("after that SendMessage", 2);
}

void MessageFails(Trial& trial) {
    FailureBench on(trial);
    std::string reply = "before";
    on.server.Then({.pieces = {"half a li"}, .end = Answer::kClose});
    ExpectSame("when the server closes in the middle of its answer, SendMessage returns", int{kPeerClosed},
               on.talker.Send("status", reply), kByCode);
    ExpectSame("and the reply is", std::string(), reply, "hosts take a half line for an answer");
    on.bench.ExpectPrinted("a failing SendMessage", "");
    ExpectSame("after that SendMessage returns", int{kReplied}, on.talker.Send("status", reply),
               "the next call reconnects by itself");
    ExpectSame("and delivers", std::string("ok"), reply, "the next call reconnects by itself");
    on.server.Then(Answer::Ending(Answer::kReset));
    ExpectSame("when the server resets instead of answering, SendMessage returns", int{kReceiveFailed},
               on.talker.Send("status", reply), kByCode);
    on.bench.ExpectPrinted("a failing SendMessage", "");
    on.server.Then(Answer::Ending(Answer::kStopAll));
    (void)on.talker.Send("status", reply);
    reply = "before";
    ExpectSame("when the server is gone, SendMessage returns", int{kNoConnection},
               on.talker.Send("status", reply), kByCode);
    on.bench.ExpectPrinted("a failing SendMessage", "");
}

void ReconnectRefused(Trial& trial) {
    FailureBench on(trial);
    on.server.Drop(Answer::kStopAll);
    on.ExpectPumpFails("when the server has closed before the block", kPeerClosed,
                       FailedLine("PumpAudio", kPeerClosed));
    on.ExpectPumpFails("when the server is gone", kSendFailed, FailedLine("PumpAudio", kSendFailed));
    on.ExpectPinsFail("when the server is gone", kSendFailed, FailedLine("PinProps", kSendFailed));
    on.server.ListenAgain();
    on.ExpectPumpWorks("when the server is there again", 2);
}

void NotAPacket(Trial& trial) {
    FailureBench on(trial);
    std::vector<std::string> answers = {"error: no such layout\n", "no line feed", "\n", "%s%n%s\n"};
    for (std::size_t at = 0; at < host::kPacketTagBytes.size(); ++at) {
        answers.push_back(ReplyPacket(0, 0, 0, Numbered(16, 1)));
        answers.back()[at] ^= 4;
    }
    on.server.Then(Answer::Bytes("no\n"));
    (void)on.talker.Pump(nullptr, nullptr, 0, 0);
    on.server.Then(Answer::Bytes("no\n"));
    PinSix pins;
    (void)on.talker.Pins(pins);
    on.bench.ExpectPrinted("one call after the other, answered with text",
                           NoPacketLine("PumpAudio") + "\n" + NoPacketLine("PinProps"));
    for (const std::string& answer : answers) {
        const std::string when = "answered with " + Shown(std::string_view(answer).substr(0, 24));
        on.server.Then(Answer::Bytes(answer));
        on.ExpectPumpFails(when, kNotAPacket, NoPacketLine("PumpAudio"));
        on.server.Then(Answer::Bytes(answer));
        on.ExpectPinsFail(when, kNotAPacket, NoPacketLine("PinProps"));
    }
    on.ExpectPumpWorks("after answers that are no packets", 1);
}

/// A failed Configure takes the connection away, and the next one that succeeds brings one back.
void ReconfigureFails(Trial& trial) {
    FailureBench on(trial);
    on.server.Drop(Answer::kReset);
    on.server.Drop(Answer::kStopAll);
    ExpectConfigureFails(on.bench, on.talker, "on a connected talker whose server is gone", on.server.Port(),
                         kNoConnection);
    on.ExpectPinsFail("after a Configure that failed", kNoConnection,
                      "CVRXTalker::PinProps: m_tcpio is NULL");
    std::string reply;
    ExpectSame("after a Configure that failed, SendMessage returns", int{kNoConnection},
               on.talker.Send("status", reply), kByCode);
    on.bench.ExpectPrinted("after a Configure that failed, SendMessage",
                           "CVRXTalker::SendMessage: m_tcpio is NULL");
    on.ExpectFigures("after a Configure that failed");
    on.server.ListenAgain();
    (void)on.talker.Pump(nullptr, nullptr, 0, 0);
    ExpectSame("connections made without a Configure:", 1, on.server.Connections(),
               "a talker whose Configure failed has no connection until the next one succeeds");
    (void)on.bench.Printed();
    ExpectSame("when the server is there again, Configure returns", true,
               on.talker.Configure(ArgumentLine(on.server.Port())), "a host has to make a new talker");
    on.ExpectPumpWorks("after that Configure", 2);
}

/// Calls in threads of their own, since each waits for ten seconds.
struct Waiting {
    const char* call;
    std::function<int(CVRXTalker&)> run;
    bool configured;
    int expected;
    std::string line;
};

/// How long this machine takes for ten seconds that are counted in a hundred sleeps, as talkers may count them.
double TenSecondsHere() {
    const auto began = Clock::now();
    for (int i = 0; i < 100; ++i) std::this_thread::sleep_for(milliseconds(100));
    return std::chrono::duration<double>(Clock::now() - began).count();
}

void TenSeconds(Trial& trial) {
    constexpr double kLeast = 9;
    constexpr double kMost = 12;
    constexpr double kTooLate = 14;
    constexpr double kUneven = 2; // a busy machine is late, not equally late for each, and not each time
    static GuardedWords out(4);
    static PinSix pins = {91, 92, 93, 94, 95, 96};
    PluginBench bench(trial);
    std::array<StubServer, 3> servers;
    const std::string line = ArgumentLine(servers[2].Port());
    const Waiting kCalls[] = {
        {"PumpAudio", [](CVRXTalker& t) { return t.PumpAudio(out.Data(), out.Data(), 4, 4); }, true,
         kTimedOut, FailedLine("PumpAudio", kTimedOut)},
        {"PinProps",
         [](CVRXTalker& t) { return t.PinProps(pins[0], pins[1], pins[2], pins[3], pins[4], pins[5]); }, true,
         kTimedOut, FailedLine("PinProps", kTimedOut)},
        {"Configure", [&line](CVRXTalker& t) { return int{t.Configure(line.c_str())}; }, false, 0,
         ConnectFailedLine(kTimedOut)},
    };
    std::vector<CheckedTalker> talkers;
    for (std::size_t i = 0; i < servers.size(); ++i)
        talkers.push_back(kCalls[i].configured ? bench.Connected(servers[i]) : bench.Make());
    trial.Doing("in PumpAudio, PinProps and Configure, with a server that does not answer");
    struct Ended {
        int result;
        double seconds;
    };
    double most = 0;
    const auto callAll = [&] {
        std::vector<std::future<Ended>> ends;
        for (std::size_t i = 0; i < servers.size(); ++i) {
            servers[i].Then(Answer::Silence());
            ends.push_back(std::async(std::launch::async, [&, i] {
                const auto began = Clock::now();
                const int result = kCalls[i].run(talkers[i].Bare());
                return Ended{result, std::chrono::duration<double>(Clock::now() - began).count()};
            }));
        }
        const double here = TenSecondsHere();
        most = kMost + kUneven * (here - 10);
        std::vector<Ended> ended;
        ended.reserve(ends.size());
        for (auto& end : ends) ended.push_back(end.get());
        if (here > kTooLate)
            throw Untried{"this machine is so busy that ten seconds take " + Shown(static_cast<float>(here)) +
                          " s"};
        return ended;
    };
    int rounds = 1;
    std::vector<Ended> ended = callAll();
    const auto late = [&most](const Ended& end) { return end.seconds >= most; };
    if (std::ranges::any_of(ended, late)) {
        ended = callAll();
        ++rounds;
    }
    const std::string printed = "\n" + bench.Printed() + "\n";
    for (std::size_t i = 0; i < servers.size(); ++i) {
        const Waiting& call = kCalls[i];
        const std::string when = std::string("without an answer, ") + call.call;
        ExpectSame(when + " returns", call.expected, ended[i].result, kByCode);
        Expect(ended[i].seconds > kLeast && ended[i].seconds < most,
               when + " gives up after ten seconds (9 to 12 count)",
               "it gave up after " + Shown(static_cast<float>(ended[i].seconds)) + " s",
               "hosts wait longer than promised, or lose slow servers");
        Expect(printed.find("\n" + call.line + "\n") != printed.npos, when + " prints " + Shown(call.line),
               "what was printed: " + Shown(printed), "users look this line up");
        Expect(servers[i].WaitForOpen(0), when + " closes the connection", "it stays open",
               "a late reply is taken for the next block's");
    }
    Expect(out.IsUntouched(), "without an answer, out is left alone", "PumpAudio wrote to out",
           "hosts play rubbish");
    Words words(2);
    ExpectSame("after that the next PumpAudio returns", 0, talkers[0].Pump(words.data(), words.data(), 2, 2),
               "the next call reconnects by itself");
    ExpectSame("connections:", rounds + 1, servers[0].Connections(), "the next call reconnects by itself");
}

/// Text has no limit: a server may work for long.
void MessagesWait(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Then({.pieces = {"done\n"}, .pause = milliseconds(12500)});
    std::string reply;
    const char* means = "commands that take long fail";
    ExpectSame("answered after 12.5 s, SendMessage returns", int{kReplied}, talker.Send("calibrate", reply),
               means);
    ExpectSame("and delivers", std::string("done"), reply, means);
    ExpectSame("connections:", 1, server.Connections(), means);
}

void SlowAnswers(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Then({.pieces = {ReplyPacket(5, 0, 0, Words{1, 2})}, .pause = milliseconds(7500)});
    Words words(2);
    ExpectSame("answered after 7.5 s, PumpAudio returns", 5, talker.Pump(words.data(), words.data(), 2, 2),
               "servers have ten seconds to answer");
    ExpectWords("out", {1, 2}, words, "servers have ten seconds to answer");
}

void SilentSuccess(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Make();
    (void)talker.Configure(ArgumentLine(server.Port()));
    bench.ExpectPrinted("a Configure that succeeds", "");
    Words words(8);
    for (int i = 0; i < 20; ++i) (void)talker.Pump(words.data(), words.data(), 8, 8);
    bench.ExpectPrinted("a PumpAudio that succeeds", "");
    PinSix pins;
    (void)talker.Pins(pins);
    bench.ExpectPrinted("a PinProps that succeeds", "");
    std::string reply;
    (void)talker.Send("status", reply);
    bench.ExpectPrinted("a SendMessage that succeeds", "");
    (void)talker.Configure(ArgumentLine(server.Port()));
    bench.ExpectPrinted("a second Configure that succeeds", "");
    talker.Delete();
    bench.ExpectPrinted("deleting a talker", "");
    bench.Unload();
    bench.ExpectPrinted("unloading the plug-in", "");
}

/// The host's signals are the host's.
void Signals(Trial& trial) {
    constexpr int kLast = 64;
    const auto actions = [] {
        std::array<struct sigaction, kLast + 1> all{};
        for (int i = 1; i <= kLast; ++i) ::sigaction(i, nullptr, &all.at(static_cast<std::size_t>(i)));
        return all;
    };
    const auto before = actions();
    sigset_t maskBefore;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &maskBefore);
    FailureBench on(trial);
    on.server.Drop(Answer::kReset);
    Words words(4);
    for (int i = 0; i < 3; ++i) (void)on.talker.Pump(words.data(), words.data(), 4, 4);
    std::string reply;
    (void)on.talker.Send("status", reply);
    const auto after = actions();
    sigset_t maskAfter;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &maskAfter);
    for (int i = 1; i <= kLast; ++i) {
        const auto at = static_cast<std::size_t>(i);
        Expect(before.at(at).sa_handler == after.at(at).sa_handler, "the host's signal handlers stay",
               "the handler of signal " + std::to_string(i) + " is another one",
               "the host loses its own handler, for Ctrl-C for example");
        Expect(sigismember(&maskBefore, i) == sigismember(&maskAfter, i), "the host's signal mask stays",
               "signal " + std::to_string(i) + " is blocked otherwise than before",
               "the host no longer gets its signals");
    }
}

/// What a talker took, it gives back: over good ends and bad ones.
void LeavesNothing(Trial& trial) {
    PluginBench bench(trial);
    std::thread([] {}).join(); // a sanitizer starts a thread of its own beside the first one
    const std::vector<std::string> before = OpenDescriptors();
    const std::size_t threadsBefore = Threads();
    for (int i = 0; i < 6; ++i) {
        StubServer server;
        CheckedTalker talker = bench.Connected(server);
        Words words(4);
        (void)talker.Pump(words.data(), words.data(), 4, 4);
        server.Then(Answer::Ending(i % 2 == 0 ? Answer::kClose : Answer::kReset));
        (void)talker.Pump(words.data(), words.data(), 4, 4);
        (void)talker.Pump(words.data(), words.data(), 4, 4);
        server.Drop(i % 3 == 0 ? Answer::kReset : Answer::kClose);
        (void)talker.Pump(words.data(), words.data(), 4, 4);
        (void)talker.Pump(words.data(), words.data(), 4, 4);
        (void)talker.Configure(ArgumentLine(server.Port()));
        server.Drop(Answer::kStopAll);
        (void)talker.Pump(words.data(), words.data(), 4, 4);
        (void)talker.Configure(ArgumentLine(server.Port()));
        talker.Delete();
    }
    const auto end = Clock::now() + milliseconds(8000);
    while ((Threads() > threadsBefore || OpenDescriptors().size() > before.size()) && Clock::now() < end)
        std::this_thread::sleep_for(milliseconds(10));
    const std::vector<std::string> after = OpenDescriptors();
    Expect(after.size() <= before.size(), "all descriptors are closed when the talkers are deleted",
           std::to_string(after.size() - before.size()) + " are left, the last one is " + after.back(),
           "a host that runs for days can open no more files");
    Expect(Threads() <= threadsBefore, "all threads have ended when the talkers are deleted",
           std::to_string(Threads() - threadsBefore) + " more threads than before",
           "a host that unloads the plug-in crashes, one that keeps it runs out of threads");
}

constexpr Check kPluginFailureChecks[] = {
    {"refused", CheckTarget::kPlugin, 5, "Configure fails in its way when nothing listens, and works later.",
     "connects", 20, Refused},
    {"unknown-host", CheckTarget::kPlugin, 5,
     "Configure fails in its way when the server's name is not known.", "connects", 30, UnknownHost},
    {"connect-closed", CheckTarget::kPlugin, 5,
     "Configure fails with -9995 when the server closes instead of answering.", "connects", 20,
     ConnectClosed},
    {"connect-reset", CheckTarget::kPlugin, 5,
     "Configure fails with -9996 when the server resets instead of answering.", "connects", 20, ConnectReset},
    {"peer-closed", CheckTarget::kPlugin, 5,
     "-9995, its line and nothing written when the server closes; the next block reconnects.", "connects", 20,
     PeerClosed},
    {"closed-between-blocks", CheckTarget::kPlugin, 5,
     "-9995 when the server has closed since the last block; the next one reconnects.", "connects", 20,
     ClosedBetweenBlocks},
    {"reset", CheckTarget::kPlugin, 5,
     "-9996, its line and nothing written when the server resets; the next block reconnects.", "connects", 20,
     Reset},
    {"dead-connection", CheckTarget::kPlugin, 5,
     "-9997 again and again on a connection that was reset, no signal, until Configure replaces it.",
     "connects", 20, DeadConnection},
    {"text-over-dead-connection", CheckTarget::kPlugin, 5,
     "SendMessage replaces a connection that was reset.", "connects", 20, TextOverDeadConnection},
    {"message-fails", CheckTarget::kPlugin, 5,
     "SendMessage fails by its code alone, and the next one reconnects.", "connects", 20, MessageFails},
    {"reconnect-refused", CheckTarget::kPlugin, 5,
     "-9997 while the server is gone; when it is back, blocks pass by themselves.", "connects", 20,
     ReconnectRefused},
    {"not-a-packet", CheckTarget::kPlugin, 5,
     "-1000, its line and nothing written for any other answer; the connection stands.", "connects", 20,
     NotAPacket},
    {"reconfigure-fails", CheckTarget::kPlugin, 5,
     "A Configure that fails leaves a connected talker without a connection, until one succeeds.", "connects",
     20, ReconfigureFails},
    {"ten-seconds", CheckTarget::kPlugin, 5,
     "PumpAudio, PinProps and Configure give up after ten seconds and close the connection.", "connects", 60,
     TenSeconds},
    {"slow-answers", CheckTarget::kPlugin, 5, "An answer after seven and a half seconds still counts.",
     "connects", 30, SlowAnswers},
    {"messages-wait", CheckTarget::kPlugin, 5, "SendMessage waits longer than ten seconds.", "connects", 30,
     MessagesWait},
    {"silent-success", CheckTarget::kPlugin, 5, "What succeeds prints nothing.", "connects", 20,
     SilentSuccess},
    {"signals", CheckTarget::kPlugin, 5, "The host's signal handlers and its mask stay as they are.",
     "connects", 20, Signals},
    {"leaves-nothing", CheckTarget::kPlugin, 5, "Deleted talkers leave no descriptor and no thread behind.",
     "connects", 40, LeavesNothing},
};

} // namespace

std::span<const Check> PluginFailureChecks() {
    return kPluginFailureChecks;
}

} // namespace vrx::tool
