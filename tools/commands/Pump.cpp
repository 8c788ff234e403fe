#include "tools/audio/FilePump.h"
#include "tools/commands/Commands.h"
#include "tools/program/Interrupt.h"
#include "tools/program/Numbers.h"
#include "tools/program/OutputFile.h"
#include "tools/report/BlockCsv.h"
#include "tools/report/HtmlReport.h"
#include "tools/report/ProgressLine.h"
#include "tools/report/RunSummary.h"

#include <csignal>
#include <memory>
#include <optional>

using namespace vrx;

namespace {

constexpr char kWho[] = "vrx pump";
constexpr std::size_t kMostBlock = std::size_t{1} << 20;
constexpr std::uint64_t kMostTail = std::uint64_t{1} << 40;

struct PumpOptions {
    ConnectionOptions server;
    std::string in;
    std::string out;
    std::size_t block = 0; // 0: chosen here
    std::string samples;   // "": chosen here
    std::string bits;      // "": chosen here
    std::uint64_t tail = 0;
    unsigned retries = 3;
    bool force = false;
    bool paced = false;
    std::string report; // "": none
    std::string csv;    // "": none
    bool json = false;
};

/// Asks for the pins when an option was left open or the page is to show them. A server that does not answer
/// says nothing.
std::optional<PinValues> PinsIfNeeded(Session& session, const PumpOptions& options) {
    if (options.block != 0 && !options.samples.empty() && options.report.empty()) return {};
    PinValues pins;
    const int result = session.PinProps(pins);
    if (result >= 0) return pins;
    if (session.TransportFault() && !session.Reconnect(result)) session.Connect();
    return {};
}

std::size_t ChooseBlock(const PumpOptions& options, const PinValues& pins, const ServerSettings& server,
                        std::size_t channels) {
    const std::size_t most = MostFramesPerBlock(channels);
    if (options.block > most)
        throw Failure{kWrongUsage, "--block " + std::to_string(options.block) +
                                       " is too long: replies hold at most " + std::to_string(most) +
                                       " frames of " + Counted(channels, "channel")};
    return options.block > 0 ? options.block : PreferredBlock(pins, server, channels);
}

SampleFormat ChooseWords(const PumpOptions& options, const PinValues& pins) {
    if (options.samples == "s32") return SampleFormat::kS32;
    const bool pinsSaySomething = pins.in[0] != 0 || pins.in[1] != 0;
    const bool pinsSayInt32 = pinsSaySomething && pins.in[2] == 0;
    return options.samples.empty() && pinsSayInt32 ? SampleFormat::kS32 : SampleFormat::kF32;
}

SampleStorage ChooseFormat(const PumpOptions& options, const AudioReader& reader) {
    if (options.bits == "float") return SampleStorage::kFloat;
    const bool wants16 = options.bits.empty() ? reader.Is16Bit() : options.bits == "16";
    return wants16 ? SampleStorage::kPcm16 : SampleStorage::kPcm32;
}

void CheckSideFiles(const PumpOptions& options) {
    const bool reportTaken = !options.report.empty() && options.report == options.out;
    const bool csvTaken =
        !options.csv.empty() && (options.csv == options.out || options.csv == options.report);
    if (reportTaken || csvTaken)
        throw Failure{kWrongUsage, "OUT, --report and --csv name the same file: give each its own"};
    if (!options.report.empty()) OutputFile::Check(options.report, options.force);
    if (!options.csv.empty()) OutputFile::Check(options.csv, options.force);
}

std::string PinText(const unsigned (&values)[3]) {
    return std::to_string(values[0]) + " " + std::to_string(values[1]) + " " + std::to_string(values[2]);
}

/// The page's verdict about a run that reached its end.
std::string Verdict(const RunSummary& run) {
    const RunStatistics& statistics = run.statistics;
    if (statistics.Blocks() == 0) return "There was nothing to send.";
    const std::string blocks = Counted(statistics.Blocks(), "block");
    if (statistics.Failed() > 0)
        return std::to_string(statistics.Failed()) + " of " + blocks + " failed: silence stands for them.";
    const std::string all = (statistics.Blocks() == 1 ? "The only block" : "All " + blocks) + " came back";
    if (!run.paced) return all + ".";
    if (statistics.Missed() == 0) return all + " in time.";
    return all + ", " + std::to_string(statistics.Missed()) +
           " of them after their deadline (the longest run of these: " +
           std::to_string(statistics.LongestMissedRun()) + ").";
}

/// ended   why the run ended early; "": it did not
ReportTexts PageTexts(const PumpOptions& options, const RunSummary& run, const FileRun& file,
                      const std::optional<PinValues>& pins, const std::string& pluginFile,
                      const std::string& ended) {
    const RunStatistics& statistics = run.statistics;
    const BlockTimes times = statistics.Times();
    ReportTexts texts;
    texts.title = "vrx pump: " + options.in + " through " + run.server.Place();
    texts.verdict = ended.empty() ? Verdict(run) : "The run ended early: " + ended;
    texts.good = ended.empty() && statistics.Failed() == 0 && (!run.paced || statistics.Missed() == 0);
    texts.figures = {
        {"Blocks", std::to_string(statistics.Blocks())},
        {"Failed", std::to_string(statistics.Failed())},
        {"Sent again", std::to_string(statistics.Retried())},
        {run.paced ? "Missed deadlines" : "Over the deadline", std::to_string(statistics.Missed())},
        {"Round trip p50", Brief(times.p50) + " ms"},
        {"p99", Brief(times.p99) + " ms"},
        {"Longest", Brief(times.max) + " ms"},
        {"Times real time", Brief(TimesRealTime(run.frames, run.sampleRate, run.seconds))},
    };
    texts.facts = {
        {"Input", options.in},
        {"Output", run.output.empty() ? "nothing was written" : run.output},
        {"Server", run.server.Place()},
        {"Objects", run.server.input + " to " + run.server.output + ", layout " + run.server.layout},
        {"Input pin", pins ? PinText(pins->in) : "the server did not say"},
        {"Output pin", pins ? PinText(pins->out) : "the server did not say"},
        {"Block", std::to_string(run.blockFrames) + " frames, " + Brief(statistics.Deadline()) + " ms"},
        {"Stream", Counted(run.channels, "channel") + " at " + std::to_string(run.sampleRate) + " Hz, " +
                       (file.words == SampleFormat::kF32 ? "32-bit float words" : "32-bit integer words")},
        {"Pace", run.paced ? "each block when it was due in real time" : "as fast as the replies came"},
        {"Longest run of missed deadlines", std::to_string(statistics.LongestMissedRun())},
        {"Frames written",
         std::to_string(run.frames) + " (" + std::to_string(options.tail) + " asked for as tail)"},
        {"Time taken", Brief(run.seconds) + " s"},
        {"Retries", std::to_string(statistics.Retried()) + " blocks were sent again, each at most " +
                        std::to_string(options.retries) + " times"},
        {"Versions", "vrx " VRX_VERSION ", plug-in " + pluginFile},
    };
    return texts;
}

int RunPump(const PumpOptions& options) {
    CatchInterrupts();
    (void)std::signal(SIGPIPE, SIG_IGN); // a closed standard output is an error like any other
    const ServerSettings server = ResolveServer(options.server);

    AudioReader reader(options.in);
    const AudioFormat format{reader.Channels(), reader.SampleRate(), ChooseFormat(options, reader)};
    const std::uint64_t expectedFrames = reader.Frames() + options.tail;
    AudioWriter::Check(options.out, format, options.force, expectedFrames);
    CheckSideFiles(options);
    Session session(options.server.plugin, server);
    session.Connect();
    const std::optional<PinValues> pins = PinsIfNeeded(session, options);
    const PinValues said = pins.value_or(PinValues{});
    const FileRun run{ChooseWords(options, said), ChooseBlock(options, said, server, reader.Channels()),
                      options.tail};
    const double blockSeconds = static_cast<double>(run.blockFrames) / reader.SampleRate();
    AudioWriter writer(options.out, format, options.force);
    std::optional<BlockCsv> csv;
    if (!options.csv.empty()) csv.emplace(options.csv, options.force, blockSeconds * 1000);
    std::optional<OutputFile> page;
    if (!options.report.empty()) page.emplace(options.report, options.force);

    RunStatistics statistics(blockSeconds * 1000);
    HtmlReport picture({run.words, reader.Channels(), reader.SampleRate(), run.blockFrames, options.paced});
    std::uint64_t frames = 0;
    BlockPump pump(session, static_cast<unsigned>(run.blockFrames * reader.Channels()), options.retries,
                   options.paced ? blockSeconds : 0);
    std::optional<ProgressLine> progress(std::in_place, expectedFrames, reader.SampleRate());
    const auto blockDone = [&](const PumpedBlock& block) {
        statistics.Add(block.record);
        if (csv) csv->Add(block.record);
        if (page) picture.Add(block.record, block.in, block.out, block.frames);
        frames += block.frames;
        progress->Show(frames, pump.Elapsed());
    };
    const auto report = [&](const std::string& ended) {
        progress.reset();
        const RunSummary summary{options.in,
                                 ended.empty() ? options.out : "",
                                 server,
                                 statistics,
                                 run.blockFrames,
                                 frames,
                                 reader.Channels(),
                                 reader.SampleRate(),
                                 pump.Elapsed(),
                                 options.paced};
        session.Print(options.json ? JsonLine(summary.Json()) : summary.Line());
        if (page)
            page->Write(picture.Page(PageTexts(options, summary, run, pins, session.PluginFile(), ended),
                                     statistics));
        if (page) page->Finish();
        if (csv) csv->Finish();
    };

    try {
        PumpFile(pump, reader, writer, run, blockDone);
        writer.Finish();
    } catch (const Failure& failure) {
        report(failure.message);
        throw Failure{failure.code, failure.message + "; " + options.out + " was not written"};
    }
    report("");
    if (statistics.Failed() == 0) return kDone;
    throw Failure{kRunFailed, std::to_string(statistics.Failed()) + " of " +
                                  std::to_string(statistics.Blocks()) + " blocks failed at " +
                                  server.Place() + ", first block " +
                                  std::to_string(statistics.FirstFailed().number) + " with status " +
                                  std::to_string(statistics.FirstFailed().result) +
                                  ": silence stands for them in " + options.out};
}

constexpr char kFooter[] =
    "Without --block and --samples the server's pins decide. What they do not say: float words, and as many\n"
    "frames as let request and reply fit one Ethernet segment. The talker takes what one receive delivers,\n"
    "so a longer reply may reach it incomplete.\n"
    "A block that fails on the way is sent again; one that the server refuses becomes silence (exit code "
    "4).\n"
    "Rounding to 16 bits is to the nearest, halves to even; what lies outside the range is clipped.\n"
    "With --paced a deadline is missed when a reply comes later than a block lasts after the block was due;\n"
    "it changes nothing else, and the exit code is still 0.\n"
    "PCM .wav, and through libsndfile float .wav, .flac, .aiff, .au, .caf, .w64, .rf64, .ogg, .opus.\n"
    "\n"
    "Examples:\n"
    "  vrx pump in.wav out.wav --servport 7000\n"
    "  vrx pump in.flac out.wav --servport 7000 --server studio --block 64 --paced --report run.html";

} // namespace

void AddPump(CLI::App& app, int& exitCode) {
    const auto options = std::make_shared<PumpOptions>();
    CLI::App* command = app.add_subcommand("pump", "Run an audio file through the server");
    const auto add = [command](const char* name, auto& value, const char* type, const char* help) {
        return command->add_option(name, value, help)->type_name(type);
    };
    add("IN", options->in, "", "Audio file to read")->required();
    add("OUT", options->out, "", "Audio file to write; its ending decides the kind")->required();
    AddConnectionOptions(*command, options->server);
    add("--block", options->block, "FRAMES", "Frames per block [see below]")
        ->check(CLI::Range(std::size_t{1}, kMostBlock).description(""));
    add("--samples", options->samples, "f32|s32", "How a sample becomes a 32-bit word [see below]")
        ->check(CLI::IsMember({"f32", "s32"}).description(""));
    add("--bits", options->bits, "16|32|float", "Samples in OUT [16 if IN has 16, else 32]")
        ->check(CLI::IsMember({"16", "32", "float"}).description(""));
    add("--tail", options->tail, "FRAMES", "Silence to send after the end [0]")
        ->check(CLI::Range(std::uint64_t{0}, kMostTail).description(""));
    add("--retries", options->retries, "N", "Send a block again, after 0.5, 1, 2, 4, 5... s [3]");
    command->add_flag("--force", options->force, "Overwrite OUT and the two files below");
    command->add_flag("--paced", options->paced, "Send each block when it is due in real time");
    add("--report", options->report, "FILE", "Write a page that shows the run (HTML)");
    add("--csv", options->csv, "FILE", "Write one row a block (CSV)");
    command->add_flag("--json", options->json, "Print the summary as one JSON object");
    command->footer(kFooter);
    command->callback(
        [options, &exitCode] { exitCode = RunCommand(kWho, [&] { return RunPump(*options); }); });
}
