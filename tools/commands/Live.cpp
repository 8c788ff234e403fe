#include "host/BlockSize.h"
#include "live/Bridge.h"
#include "live/Latency.h"
#include "live/TimeHistogram.h"
#include "tools/commands/Client.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Subcommand.h"
#include "tools/jack/JackClient.h"
#include "tools/jack/LivePlayer.h"
#include "tools/jack/LiveSummary.h"
#include "tools/program/Interrupt.h"
#include "tools/program/Numbers.h"
#include "tools/program/OutputFile.h"
#include "tools/report/BlockCsv.h"
#include "tools/report/HtmlReport.h"
#include "tools/report/RunSummary.h"

#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <readerwriterqueue/readerwritercircularbuffer.h>
#include <unistd.h>

namespace vrx::tool {

namespace {

constexpr double kMeasureSeconds = 1;
constexpr double kLook = 0.05; // seconds between two looks at what has happened

struct LiveOptions {
    ConnectionOptions server;
    std::size_t channels = 2;
    std::size_t block = 0;   // 0: chosen here
    std::size_t latency = 0; // 0: measured
    std::string late = "dry";
    std::string name = "vrx";
    bool connect = false;
    double seconds = 0; // 0: until it is interrupted
    bool json = false;
    std::string report; // "": none
    std::string csv;    // "": none
    bool force = false;
};

std::string Milliseconds(std::size_t frames, const live::Shape& shape) {
    return Fixed(static_cast<double>(frames) / shape.sampleRate * 1000, 1) + " ms";
}

/// "2 channels at 48000 Hz, period 256, block 256, latency 768 frames (16.0 ms)"
std::string Describe(const live::Shape& shape) {
    return Counted(shape.channels, "channel") + " at " + Fixed(shape.sampleRate, 0) + " Hz, period " +
           std::to_string(shape.periodFrames) + ", block " + std::to_string(shape.blockFrames) +
           ", latency " + std::to_string(shape.latencyFrames) + " frames (" +
           Milliseconds(shape.latencyFrames, shape) + ")";
}

void Note(const std::string& text) {
    PrintError("vrx live", text);
}

/// The measures of a run: what the options and the server's pins say, and for the rest what suits JACK and the server.
class Measures {
public:
    /// Asks the server, and measures it where that is needed.
    Measures(const LiveOptions& options, Client& client, const JackClient& jack) : m_options(options) {
        m_shape.channels = options.channels;
        m_shape.late = options.late == "dry" ? live::Late::kDry : live::Late::kSilence;
        m_shape.sampleRate = jack.SampleRate();
        m_shape.periodFrames = jack.PeriodFrames();
        const host::PinValues pins = AskPins(client);
        m_words = host::PreferredWords(pins);
        m_fixedBlock = options.block > 0 ? options.block : pins.in[0];
        if (m_fixedBlock > host::MostFramesPerBlock(options.channels))
            throw Failure{kWrongUsage, "blocks of " + std::to_string(m_fixedBlock) +
                                           " frames are too long: replies hold at most " +
                                           std::to_string(host::MostFramesPerBlock(options.channels)) +
                                           " frames of " + Counted(options.channels, "channel")};
        host::SteadyRunClock clock(Interrupted);
        m_shape.blockFrames =
            m_fixedBlock > 0 ? m_fixedBlock : live::SuitingBlock(client.Session(), clock, m_shape);
        if (options.latency > 0)
            TakeLatency();
        else
            MeasureLatency(client, clock);
    }

    const live::Shape& Shape() const { return m_shape; }
    host::SampleFormat Words() const { return m_words; }

    /// True when JACK's period or rate has changed, and with it these.
    bool Follow(const JackClient& jack) {
        if (jack.PeriodFrames() == m_shape.periodFrames && jack.SampleRate() == m_shape.sampleRate)
            return false;
        m_shape.periodFrames = jack.PeriodFrames();
        m_shape.sampleRate = jack.SampleRate();
        if (m_fixedBlock == 0)
            m_shape.blockFrames = live::SuitingBlock(m_shape.periodFrames, m_shape.channels);
        m_shape.latencyFrames =
            live::RoundedLatency(m_shape.latencyFrames, m_shape.blockFrames, m_shape.periodFrames);
        return true;
    }

private:
    static host::PinValues AskPins(Client& client) {
        host::PinValues pins;
        const int result = client.Session().PinProps(pins);
        if (result >= 0) return pins;
        if (client.Session().TransportFault()) client.Reconnect(result);
        return {}; // a server that does not answer says nothing
    }

    void TakeLatency() {
        m_shape.latencyFrames =
            live::RoundedLatency(m_options.latency, m_shape.blockFrames, m_shape.periodFrames);
        if (m_shape.latencyFrames != m_options.latency)
            Note("--latency " + std::to_string(m_options.latency) + " becomes " +
                 std::to_string(m_shape.latencyFrames) + ": whole blocks of " +
                 std::to_string(m_shape.blockFrames) + " frames beyond what a period needs");
    }

    void MeasureLatency(Client& client, host::RunClock& clock) {
        const live::Measured measured =
            live::MeasureServer(client.Session(), clock, m_shape, kMeasureSeconds);
        m_shape.latencyFrames = live::SafeLatency(m_shape, measured.times);
        if (!measured.keepsUp && !Interrupted())
            Note("the server takes longer for a block of " + Milliseconds(m_shape.blockFrames, m_shape) +
                 " than it lasts: most blocks will be late; try a longer --block or fewer --channels");
    }

    const LiveOptions& m_options;
    live::Shape m_shape;
    host::SampleFormat m_words = host::SampleFormat::kF32;
    std::size_t m_fixedBlock = 0; // 0: suits the period
};

/// An exchange, as the worker hands it to the thread that writes about it.
struct ExchangedBlock {
    host::BlockRecord record;
    Envelope::Column in;
    Envelope::Column out;
};

/// Far more than the worker exchanges between two looks.
using ExchangedBlocks = moodycamel::BlockingReaderWriterCircularBuffer<ExchangedBlock>;
constexpr std::size_t kMostExchanged = 8192;

Envelope::Column Range(const std::uint32_t* words, std::size_t count, host::SampleFormat kind) {
    Envelope::Column range{0, 0};
    for (std::size_t i = 0; i < count; ++i) {
        const double sample = host::SampleFromWord(words[i], kind);
        if (sample < range.low) range.low = sample; // false for what is no number
        if (sample > range.high) range.high = sample;
    }
    return range;
}

/// What is kept about a run while it goes on; its memory does not grow.
class LiveRecord {
public:
    LiveRecord(const LiveOptions& options, const Measures& measures)
        : m_statistics(Deadline(measures.Shape())),
          m_picture({measures.Words(), static_cast<unsigned>(options.channels),
                     static_cast<int>(measures.Shape().sampleRate), measures.Shape().blockFrames, false}) {
        if (!options.csv.empty()) m_csv.emplace(options.csv, options.force, Deadline(measures.Shape()));
        if (!options.report.empty()) m_page.emplace(options.report, options.force);
    }

    /// What the worker may tell of; also after this object is gone.
    std::shared_ptr<ExchangedBlocks> Queue() const { return m_exchanged; }

    /// Takes in what has been exchanged meanwhile.
    void Collect() {
        for (ExchangedBlock block; m_exchanged->try_dequeue(block);) {
            m_roundTrips.Add(block.record.milliseconds);
            if (m_csv) m_csv->Add(block.record);
            if (!m_page) continue;
            m_statistics.Add(block.record);
            m_picture.Add(block.record, block.in, block.out);
        }
    }

    const live::TimeHistogram& RoundTrips() const { return m_roundTrips; }

    void Finish(const LiveSummary& summary) {
        if (m_page) m_page->Write(m_picture.Page(LivePageTexts(summary), m_statistics));
        if (m_page) m_page->Finish();
        if (m_csv) m_csv->Finish();
    }

private:
    /// Milliseconds from when a block is complete to its turn, at least.
    static double Deadline(const live::Shape& shape) {
        const std::size_t least = live::LeastLatency(shape.blockFrames, shape.periodFrames);
        return static_cast<double>(shape.periodFrames + shape.latencyFrames - least) / shape.sampleRate *
               1000;
    }

    std::shared_ptr<ExchangedBlocks> m_exchanged = std::make_shared<ExchangedBlocks>(kMostExchanged);
    live::TimeHistogram m_roundTrips;
    host::RunStatistics m_statistics;
    HtmlReport m_picture;
    std::optional<BlockCsv> m_csv;
    std::optional<OutputFile> m_page;
};

/// A bridge to the client's server.
std::unique_ptr<live::Bridge> MakeBridge(const Client& client, const Measures& measures,
                                         const JackClient& jack,
                                         const std::shared_ptr<ExchangedBlocks>& exchanged) {
    const std::string place = client.Server().Place();
    const bool dry = measures.Shape().late == live::Late::kDry;
    live::BridgeParts parts;
    parts.session = client.NewSession();
    parts.words = measures.Words();
    parts.priority = jack.WorkerPriority();
    parts.outage = [place, dry](const std::string& why) {
        Note(place + " is away: " + why + (dry ? "; the dry input" : "; silence") +
             " stands in until it is back");
    };
    const std::size_t words = measures.Shape().blockFrames * measures.Shape().channels;
    parts.exchanged = [exchanged, words, kind = measures.Words()](const host::BlockRecord& record,
                                                                  const std::uint32_t* in,
                                                                  const std::uint32_t* out) {
        (void)exchanged->try_enqueue({record, Range(in, words, kind), Range(out, words, kind)});
    };
    return std::make_unique<live::Bridge>(measures.Shape(), std::move(parts));
}

/// The line on a terminal that shows how the run is doing; nothing elsewhere.
class StatusLine {
public:
    ~StatusLine() {
        if (m_shown) (void)std::fputs("\r\033[K", stderr);
    }
    void Show(const live::Bridge::Counts& counts, double load, double roundTrip) const {
        if (!m_shown) return;
        (void)std::fprintf(stderr,
                           "\rload %.0f %%, late %llu of %llu, reconnects %llu, round trip p99 %s ms%s\033[K",
                           load * 100, static_cast<unsigned long long>(counts.late),
                           static_cast<unsigned long long>(counts.blocks),
                           static_cast<unsigned long long>(counts.reconnects), Brief(roundTrip).c_str(),
                           counts.outage ? ", the server is away" : "");
    }

private:
    bool m_shown = ::isatty(STDERR_FILENO) == 1;
};

int RunLive(const LiveOptions& options) {
    CatchInterrupts();
    (void)std::signal(SIGPIPE, SIG_IGN); // a closed standard output is an error like any other
    (void)ResolveServer(options.server);
    for (const std::string& path : {options.report, options.csv})
        if (!path.empty()) OutputFile::Check(path, options.force);
    // For good: a talker that is let go may print its lines to the last.
    static Client& client = *new Client(options.server);
    LivePlayer player(options.channels); // JACK calls it to the last
    JackClient jack(options.name, options.channels);
    client.Connect();
    Measures measures(options, client, jack);
    client.Session().Disconnect(); // a server may take one client at a time

    LiveRecord record(options, measures);
    const auto play = [&] {
        player.Stop();
        player.Play(MakeBridge(client, measures, jack, record.Queue()));
        jack.SetLatency(measures.Shape().latencyFrames);
    };
    play();
    jack.Activate(player);
    jack.SetLatency(measures.Shape().latencyFrames);
    if (options.connect) jack.ConnectToPhysical();
    const std::string ready = "ready: " + Describe(measures.Shape());
    if (options.json)
        Note(ready);
    else
        client.Print("vrx live: " + ready + "\n");

    const auto load = [&] {
        return player.Times().Percentile(99) /
               (static_cast<double>(measures.Shape().periodFrames) / measures.Shape().sampleRate * 1000);
    };
    std::optional<StatusLine> status(std::in_place);
    host::SteadyRunClock clock([&] { return Interrupted() || !jack.Ended().empty(); });
    while (!Interrupted() && jack.Ended().empty() &&
           (options.seconds <= 0 || clock.Now() < options.seconds)) {
        const double next = clock.Now() + kLook;
        clock.SleepUntil(options.seconds > 0 ? std::min(next, options.seconds) : next);
        record.Collect();
        client.DropLines();
        status->Show(player.Count(), load(), record.RoundTrips().Percentile(99));
        if (!measures.Follow(jack)) continue;
        play();
        Note("JACK has changed: " + Describe(measures.Shape()));
    }
    status.reset();
    player.Stop();
    record.Collect();

    const LiveSummary summary{.name = jack.Name(),
                              .server = client.Server(),
                              .shape = measures.Shape(),
                              .counts = player.Count(),
                              .xruns = jack.Xruns(),
                              .roundTrips = record.RoundTrips(),
                              .process = player.Times(),
                              .seconds = clock.Now(),
                              .ended = jack.Ended(),
                              .version = VRX_VERSION};
    client.Print(options.json ? JsonLine(summary.Json()) : summary.Text());
    record.Finish(summary);
    if (!jack.Ended().empty()) throw Failure{kRunFailed, jack.Ended()};
    return kDone;
}

constexpr char kLiveFooter[] =
    "Starts no JACK server: start one, or run this under PipeWire as \"pw-jack vrx live ...\". What goes in "
    "comes\n"
    "out after the latency, to the frame, whatever the server does. A block that is not back in time is "
    "replaced\n"
    "by the dry input or silence. Without --block the server's pins decide, else a block is a period where "
    "a\n"
    "whole reply holds it, or longer where the server is slow. Without --latency the server is measured for "
    "a\n"
    "second. Other latencies than whole blocks beyond what a period needs are rounded up.\n"
    "SIGINT and SIGTERM end it with exit code 0, the end of the JACK server with 4.\n"
    "\n"
    "Examples:\n"
    "  vrx live --servport 7000 --connect\n"
    "  vrx live --servport 7000 --server studio --block 256 --latency 768 --late silence --report live.html";

} // namespace

void AddLive(CLI::App& app, int& exitCode) {
    Subcommand<LiveOptions> command(app, exitCode, "live", "Run live sound through the server (JACK)",
                                    RunLive, kLiveFooter);
    LiveOptions& options = command.Values();
    AddConnectionOptions(command.Command(), options.server);
    command.AddWithDefault("--channels", options.channels, "N", "Inputs, and as many outputs")
        ->check(InRange(std::size_t{1}, live::kMostChannels));
    command.Add("--block", options.block, "FRAMES", "Frames per block [see below]")
        ->check(InRange(std::size_t{1}, host::kMostWords));
    command.Add("--latency", options.latency, "FRAMES", "Delay from in to out [measured]")
        ->check(InRange(std::size_t{1}, std::size_t{1} << 22));
    command.AddWithDefault("--late", options.late, "dry|silence", "What stands in for a late block")
        ->check(OneOf({"dry", "silence"}));
    command.AddWithDefault("--name", options.name, "NAME", "The client's name in JACK");
    command.AddFlag("--connect", options.connect, "Join the ports to the physical ones");
    command.Add("--seconds", options.seconds, "S", "End after so long [when interrupted]")
        ->check(InRange(0.001, 1e9));
    command.AddJson(options.json);
    command.Add("--report", options.report, "FILE", "Write a page that shows the run (HTML)");
    command.Add("--csv", options.csv, "FILE", "Write one row a block (CSV)");
    command.AddFlag("--force", options.force, "Overwrite these two files");
}

} // namespace vrx::tool
