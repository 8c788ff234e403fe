#include "tools/checks/GuardedPages.h"
#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"

#include "host/Packet.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cfenv>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace vrx::tool {

namespace {

using enum CVRXTalker::Result;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char kWrongAudio[] = "a host plays something else than the server computed";

/// What a host hands over may lie in memory that cannot be written, and nothing may lie behind it.
void TextsUntouched(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Make();
    for (const char* args : {"server=h,servport=1", " server = h ,,x,layout=a b c"})
        ExpectSame("Configure(" + Shown(std::string_view(args)) + ") returns", false,
                   talker.Configure(GuardedPages(std::string_view(args)).Data()),
                   "a host believes that it is connected");
    const GuardedPages args(ArgumentLine(server.Port()));
    ExpectSame("Configure, given a text that cannot be written, returns", true, talker.Configure(args.Data()),
               "hosts hand over texts of their own programs, which cannot be written");
    for (const char* text : {"status", "status\n", "x"}) {
        const GuardedPages sent{std::string_view(text)};
        std::string reply;
        ExpectSame("SendMessage, given a text that cannot be written, returns", int{kReplied},
                   talker.Send(sent.Data(), reply),
                   "hosts hand over texts of their own programs, which cannot be written");
    }
}

/// The words of `in` cannot be written, and a word too far is in nobody's memory.
void BuffersToTheWord(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (const std::size_t words : {1U, 2U, 3U, 5U, 64U, 357U, 358U, 1024U}) {
        const Words sent = Numbered(words, 0x21);
        const GuardedPages in(4 * words);
        const GuardedPages out(4 * words);
        std::copy(sent.begin(), sent.end(), in.Words());
        in.Lock();
        const std::string call = "PumpAudio with buffers of exactly " + std::to_string(words) + " words";
        const auto count = static_cast<unsigned>(words);
        ExpectSame(call + " returns", 0, talker.Pump(in.Data(), out.Data(), count, count), kWrongAudio);
        ExpectWords(call + ", out", sent, Words(out.Words(), out.Words() + words), kWrongAudio);
    }
}

/// Buffers begin at any word, not only where the memory manager puts them.
void AnyAddress(Trial& trial) {
    constexpr std::size_t kWords = 67;
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (std::size_t from = 0; from < 4; ++from) {
        for (std::size_t to = 0; to < 4; ++to) {
            Words in = Numbered(kWords + 4, 0x32);
            Words out(kWords + 4);
            const std::string call = "PumpAudio with in at word " + std::to_string(from) +
                                     " and out at word " + std::to_string(to) + " of larger buffers";
            ExpectSame(call + " returns", 0, talker.Pump(in.data() + from, out.data() + to, kWords, kWords),
                       kWrongAudio);
            const auto at = [](const Words& words, std::size_t begin) {
                return Words(words.data() + begin, words.data() + begin + kWords);
            };
            ExpectWords(call + ", out", at(in, from), at(out, to), kWrongAudio);
        }
    }
}

/// Samples are words of any kind: what no float is, what is silent, what is too loud.
void AnyWords(Trial& trial) {
    constexpr std::uint32_t kOdd[] = {0x00000000, 0x80000000, 0x00000001, 0x807FFFFF, 0x7F800000,
                                      0xFF800000, 0x7F800001, 0x7FC00000, 0xFFFFFFFF, 0x3F800001,
                                      0xC0000000, 0x447A0000, 0x7F7FFFFF, 0x0A0A0A0A, host::kPacketTag};
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (const std::uint32_t sent : kOdd) {
        for (const std::uint32_t answered : kOdd) {
            const Words in(8, sent);
            GuardedWords out(8);
            server.Then(Answer::Bytes(ReplyPacket(0, 0, 0, Words(8, answered))));
            const std::string call = "PumpAudio with words of " + Hex(sent);
            ExpectSame(call + " returns", 0, talker.Pump(in.data(), out.Data(), 8, 8), kWrongAudio);
            const auto request = server.Take();
            Expect(request.has_value(), call + " sends a request", "nothing came", kWrongAudio);
            ExpectBytes(call + " sends", PumpPacket(in, 8), request->bytes, kWrongAudio);
            ExpectWords("answered with words of " + Hex(answered) + ", out", Words(8, answered), out.Copy(),
                        kWrongAudio);
        }
    }
}

/// Each call comes from a thread of its own, one after the other.
void AnyThread(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    const auto elsewhere = [](const auto& work) { std::thread(work).join(); };
    const char* means = "hosts make their talkers in one thread and pump in another";
    std::unique_ptr<CVRXTalker> talker;
    elsewhere([&] { talker = bench.MakeBare(); });
    Expect(talker != nullptr, "TalkerFactory returns a talker", "it returned null", means);
    const std::string line = ArgumentLine(server.Port());
    bool configured = false;
    trial.Doing("in Configure, in another thread than TalkerFactory");
    elsewhere([&] { configured = talker->Configure(line.c_str()); });
    ExpectSame("in another thread, Configure returns", true, configured, means);
    for (int i = 0; i < 3; ++i) {
        server.Then(Answer::Bytes(ReplyPacket(3, 0x700, 0x800, Words{7, 8})));
        Words out(2);
        int status = -1;
        trial.Doing("in PumpAudio, in another thread than Configure");
        elsewhere([&] { status = talker->PumpAudio(out.data(), out.data(), 2, 2); });
        ExpectSame("in another thread, PumpAudio returns", 3, status, means);
        ExpectWords("in another thread, out", {7, 8}, out, means);
        ExpectSame("in another thread, GetAverageCycles returns", 7.0F, talker->GetAverageCycles(), means);
    }
    std::string reply;
    int replied = 0;
    trial.Doing("in SendMessage, in another thread than Configure");
    elsewhere([&] { replied = talker->SendMessage("status", reply); });
    ExpectSame("in another thread, SendMessage returns", int{kReplied}, replied, means);
    ExpectSame("connections of calls in several threads:", 1, server.Connections(), means);
    trial.Doing("deleting a talker, in another thread");
    elsewhere([&] { talker.reset(); });
}

/// What the whole program has in common.
struct HostState {
    std::string locale = std::setlocale(LC_ALL, nullptr);
    std::string folder = std::filesystem::current_path();
    mode_t mask = Mask();
    int rounding = std::fegetround();
    bool denormals = Denormals();
    int traps = ::fegetexcept();
    std::vector<std::string> environment = Environment();

private:
    static mode_t Mask() {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        return mask;
    }
    static bool Denormals() {
        volatile float small = 1e-38F;
        small = small * 0.01F;
        return small != 0;
    }
    static std::vector<std::string> Environment() {
        std::vector<std::string> all;
        for (char** entry = environ; *entry != nullptr; ++entry) all.emplace_back(*entry);
        return all;
    }
};

/// Connects, exchanges, fails and ends, all of it once.
void LiveOnce(PluginBench& bench) {
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    Words words(4);
    PinSix pins;
    std::string reply;
    (void)talker.Pump(words.data(), words.data(), 4, 4);
    (void)talker.Pins(pins);
    (void)talker.Send("status", reply);
    server.Then(Answer::Bytes("no\n"));
    (void)talker.Pump(words.data(), words.data(), 4, 4);
    server.Then(Answer::Ending(Answer::kClose));
    (void)talker.Pump(words.data(), words.data(), 4, 4);
    server.Drop(Answer::kStopAll);
    (void)talker.Configure(ArgumentLine(server.Port()));
    talker.Delete();
}

void HostsOwn(Trial& trial) {
    const HostState before;
    PluginBench bench(trial);
    LiveOnce(bench);
    const HostState after;
    ExpectSame("the host's locale stays", before.locale, after.locale,
               "hosts read and write numbers in another way from then on");
    ExpectSame("the host's working folder stays", before.folder, after.folder,
               "hosts open their files by relative names");
    ExpectSame("the host's file mode mask stays", before.mask, after.mask,
               "the host's files get other permissions");
    ExpectSame("the floating-point rounding of the host's thread stays", before.rounding, after.rounding,
               "the host's own processing gives other results");
    ExpectSame("the thread's handling of denormal numbers stays as it was, on:", before.denormals,
               after.denormals, "the host's own processing gives other results");
    ExpectSame("the floating-point traps of the host's thread stay", before.traps, after.traps,
               "a division by zero somewhere else ends the host");
    Expect(before.environment == after.environment, "the host's environment stays", "it is another one",
           "programs that the host starts behave in another way");
}

/// Opened by the host after a connection's end, these have the numbers that the connection had.
class HostsFiles {
public:
    HostsFiles() {
        for (File& file : m_files) {
            file.descriptor = ::memfd_create("host", MFD_CLOEXEC);
            file.inode = InodeOf(file.descriptor);
        }
    }
    ~HostsFiles() {
        for (const File& file : m_files) ::close(file.descriptor);
    }
    HostsFiles(const HostsFiles&) = delete;
    HostsFiles& operator=(const HostsFiles&) = delete;

    /// Each number still stands for the same file.
    bool AreOpen() const {
        return std::ranges::all_of(m_files,
                                   [](const File& file) { return InodeOf(file.descriptor) == file.inode; });
    }

private:
    struct File {
        int descriptor = -1;
        ino_t inode = 0;
    };

    static ino_t InodeOf(int descriptor) {
        struct stat state {};
        return ::fstat(descriptor, &state) == 0 ? state.st_ino : 0;
    }

    std::array<File, 8> m_files;
};

/// A descriptor that is closed twice is somebody else's the second time.
void HostsDescriptors(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    Words words(4);
    std::string reply;
    const auto expectOpen = [](const HostsFiles& files, const char* when) {
        Expect(files.AreOpen(), std::string(when) + ", the host's own files are still open",
               "one of them was closed", "a talker that closes a descriptor twice closes a file of its host");
    };
    server.Then(Answer::Ending(Answer::kClose));
    (void)talker.Pump(words.data(), words.data(), 4, 4);
    const HostsFiles afterClose;
    (void)talker.Pump(words.data(), words.data(), 4, 4);
    expectOpen(afterClose, "after a closed connection and a block over the next one");
    server.Then(Answer::Ending(Answer::kReset));
    (void)talker.Send("status", reply);
    const HostsFiles afterReset;
    (void)talker.Configure(ArgumentLine(server.Port()));
    expectOpen(afterReset, "after a reset connection and Configure");
    server.Drop(Answer::kStopAll);
    (void)talker.Pump(words.data(), words.data(), 4, 4);
    (void)talker.Configure(ArgumentLine(server.Port()));
    const HostsFiles afterRefusal;
    talker.Delete();
    for (const HostsFiles* files : {&afterClose, &afterReset, &afterRefusal})
        expectOpen(*files, "after the talker's end");
}

/// With so many files of the host that new descriptors have numbers that select() cannot take.
void ManyDescriptors(Trial& trial) {
    constexpr int kBeyondSelect = FD_SETSIZE + 50;
    rlimit limit{};
    (void)::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 2 * FD_SETSIZE);
    (void)::setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < kBeyondSelect + 50) throw Untried{"this system allows no more descriptors"};
    PluginBench bench(trial);
    StubServer server;
    while (::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) < kBeyondSelect) { // they end with this process
    }
    CheckedTalker talker = bench.Connected(server);
    Words words(4);
    const char* means = "a host with many files, or many talkers, is damaged";
    ExpectSame("beside 1,024 files of the host, PumpAudio returns", 0,
               talker.Pump(words.data(), words.data(), 4, 4), means);
    std::string reply;
    ExpectSame("beside 1,024 files of the host, SendMessage returns", int{kReplied},
               talker.Send("status", reply), means);
}

/// What is written to standard error merely disturbs.
void StandardError(Trial& trial) {
    std::fflush(stderr);
    const auto written = [] { return ::lseek(STDERR_FILENO, 0, SEEK_CUR); };
    const off_t before = written();
    PluginBench bench(trial);
    LiveOnce(bench);
    bench.Unload();
    std::fflush(stderr);
    if (before < 0 || written() <= before) return;
    std::string text(static_cast<std::size_t>(written() - before), '\0');
    const ssize_t count = ::pread(STDERR_FILENO, text.data(), text.size(), before);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    trial.Warn({"a talker writes nothing to standard error", "it wrote " + Shown(text),
                "hosts that show what goes there show it to their users"});
}

/// Between calls the connection is quiet.
void QuietBetweenCalls(Trial& trial) {
    constexpr milliseconds kLong{2500};
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    Words words(4);
    (void)talker.Pump(words.data(), words.data(), 4, 4);
    server.Forget();
    const auto unasked = server.Take(kLong);
    Expect(!unasked, "between two calls nothing is sent",
           "this was sent: " + (unasked ? Shown(unasked->bytes) : ""),
           "a server takes it for a request, and its answer for the next call's comes back");
    ExpectSame("connections between two calls:", 1, server.Connections(),
               "servers keep a client's state by its connection");
    ExpectSame("after a pause, PumpAudio returns", 0, talker.Pump(words.data(), words.data(), 4, 4),
               "hosts pause between blocks");
}

/// The figures can be read while a block waits, by a meter for example.
void FiguresWhileWaiting(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Then(Answer::Bytes(ReplyPacket(0, 0x4200, 0x2100, {})));
    (void)talker.Pump(nullptr, nullptr, 0, 0);
    float average = 0;
    float pump = 0;
    const bool done = IsDoneMeanwhile(talker, server, [&] {
        average = talker.Average();
        pump = talker.Pumped();
    });
    Expect(done, "the figures can be read while a block waits for its reply",
           "reading them waits for the block", "a host's meters stand still");
    ExpectSame("while a block waits, GetAverageCycles returns", 66.0F, average,
               "a host shows figures of a block that has not come back");
    ExpectSame("while a block waits, GetPumpCycles returns", 33.0F, pump,
               "a host shows figures of a block that has not come back");
}

std::atomic<int> signalsSeen = 0;

/// Signals whose handler asks the system to go on (SA_RESTART) disturb nothing.
void SignalsWhileWaiting(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    struct sigaction action {};
    action.sa_handler = [](int) { ++signalsSeen; };
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGUSR1, &action, nullptr);
    server.Then({.pieces = {ReplyPacket(5, 0, 0, Words{1, 2})}, .pause = milliseconds(600)});
    const pthread_t self = ::pthread_self();
    std::atomic<bool> stop = false;
    std::thread disturber([&] {
        for (; !stop; std::this_thread::sleep_for(milliseconds(20))) ::pthread_kill(self, SIGUSR1);
    });
    Words words(2);
    const int status = talker.Pump(words.data(), words.data(), 2, 2);
    stop = true;
    disturber.join();
    ExpectSame("disturbed by signals of the host while it waits, PumpAudio returns", 5, status,
               "hosts with timers or profilers lose blocks");
    ExpectWords("disturbed by signals, out", {1, 2}, words, "hosts with timers or profilers lose blocks");
}

/// A server port less 65,536 asks for replies that are collected from several receives.
void CollectedReplies(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    const char* means =
        "hosts cannot have blocks that are longer than a segment collected (vrx pump --replies whole)";
    const auto warn = [&](const std::string& expected, const std::string& got) {
        trial.Warn({expected, got, means});
    };
    if (!talker.Configure(ArgumentLine(server.Port() - 65536)))
        return warn("a port less 65,536 connects to the port", "Configure returned false");
    server.Forget();
    const Words reply = Numbered(host::kWholeReplyWords, 0x11);
    const std::string packet = ReplyPacket(0, 0, 0, reply);
    server.Then({.pieces = {packet.substr(0, 1460), packet.substr(1460, 3000), packet.substr(4460)},
                 .pause = milliseconds(40)});
    GuardedWords out(host::kWholeReplyWords);
    const int status = talker.Pump(nullptr, out.Data(), 0, host::kWholeReplyWords);
    out.CheckGuards("PumpAudio of 2,040 words");
    if (status != 0 || out.Copy() != reply)
        warn("with a port less 65,536, a reply of 2,040 words is collected from the pieces in which it comes",
             "PumpAudio returned " + std::to_string(status) +
                 (status == 0 ? ", and out is another one" : ""));
}

constexpr Check kPluginMannersChecks[] = {
    {"texts-untouched", CheckTarget::kPlugin, 2, "Texts handed over are only read, and only to their end.",
     "connects", 20, TextsUntouched},
    {"buffers-to-the-word", CheckTarget::kPlugin, 4,
     "No word beyond in is read, none beyond out written, and in may be memory that cannot be written.",
     "connects", 20, BuffersToTheWord},
    {"any-address", CheckTarget::kPlugin, 4, "Buffers may begin at any word's address.", "connects", 20,
     AnyAddress},
    {"any-words", CheckTarget::kPlugin, 4, "Samples of any bits go out and come back as they are.",
     "connects", 20, AnyWords},
    {"any-thread", CheckTarget::kPlugin, 4, "Each call may come from another thread.", "connects", 20,
     AnyThread},
    {"collected-replies", CheckTarget::kPlugin, 4,
     "A server port less 65,536 collects replies of 2,040 words (warns).", "connects", 30, CollectedReplies},
    {"quiet-between-calls", CheckTarget::kPlugin, 5, "Between two calls nothing goes over the wire.",
     "connects", 20, QuietBetweenCalls},
    {"hosts-own", CheckTarget::kPlugin, 5,
     "The host's locale, folder, environment and floating-point settings stay as they are.", "connects", 20,
     HostsOwn},
    {"hosts-descriptors", CheckTarget::kPlugin, 5, "No descriptor of the host is closed.", "connects", 20,
     HostsDescriptors},
    {"standard-error", CheckTarget::kPlugin, 5, "Nothing is written to standard error (warns).", "connects",
     20, StandardError},
    {"many-descriptors", CheckTarget::kPlugin, 6, "Descriptors beyond 1,024 do no harm.", "connects", 20,
     ManyDescriptors},
    {"figures-while-waiting", CheckTarget::kPlugin, 7, "The figures can be read while a block waits.",
     "connects", 30, FiguresWhileWaiting},
    {"signals-while-waiting", CheckTarget::kPlugin, 8,
     "Signals whose handler lets calls go on disturb no block.", "connects", 20, SignalsWhileWaiting},
};

} // namespace

std::span<const Check> PluginMannersChecks() {
    return kPluginMannersChecks;
}

} // namespace vrx::tool
