#include "host/BlockPump.h"
#include "host/BlockSize.h"
#include "tools/audio/FilePump.h"
#include "tools/commands/Client.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/Interrupt.h"
#include "tools/program/Numbers.h"
#include "tools/program/OutputFile.h"
#include "tools/program/SameFile.h"
#include "tools/report/BlockCsv.h"
#include "tools/report/HtmlReport.h"
#include "tools/report/ProgressLine.h"
#include "tools/report/PumpPage.h"
#include "tools/report/RunSummary.h"

#include <csignal>
#include <cstdio>
#include <optional>
#include <unistd.h>

namespace vrx::tool {

namespace {

constexpr std::size_t kMostBlock = std::size_t{1} << 20;
constexpr std::uint64_t kMostTail = std::uint64_t{1} << 40;

struct PumpOptions {
    ConnectionOptions server;
    std::string in;
    std::string out;
    std::size_t block = 0; // 0: chosen here
    std::string samples;   // "": chosen here
    std::string replies = "auto";
    std::string bits; // "": chosen here
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
std::optional<host::PinValues> PinsIfNeeded(Client& client, const PumpOptions& options) {
    if (options.block != 0 && !options.samples.empty() && options.report.empty()) return {};
    host::PinValues pins;
    const int result = client.Session().PinProps(pins);
    if (result >= 0) return pins;
    if (client.Session().TransportFault() && !client.Session().Reconnect(result)) client.Connect();
    return {};
}

std::size_t ChooseBlock(const PumpOptions& options, const host::PinValues& pins,
                        const host::ServerSettings& server, std::size_t channels) {
    const std::size_t most = host::MostFramesPerBlock(channels);
    if (options.block > most)
        throw Failure{kWrongUsage, "--block " + std::to_string(options.block) +
                                       " is too long: replies hold at most " + std::to_string(most) +
                                       " frames of " + Counted(channels, "channel")};
    return options.block > 0 ? options.block : host::PreferredBlock(pins, server, channels);
}

host::SampleFormat ChooseWords(const PumpOptions& options, const host::PinValues& pins) {
    if (options.samples.empty()) return host::PreferredWords(pins);
    return options.samples == "s32" ? host::SampleFormat::kS32 : host::SampleFormat::kF32;
}

SampleStorage ChooseStorage(const PumpOptions& options, const AudioReader& reader) {
    if (options.bits == "float") return SampleStorage::kFloat;
    const bool wants16 = options.bits.empty() ? reader.Is16Bit() : options.bits == "16";
    return wants16 ? SampleStorage::kPcm16 : SampleStorage::kPcm32;
}

bool Streams(const std::string& path) {
    return path == kStandardStream;
}

/// Nothing that the run needs or leaves may take the place of something else of it.
void CheckFiles(const PumpOptions& options) {
    RefuseSameFiles({{"IN", options.in, STDIN_FILENO},
                     {"OUT", options.out, STDOUT_FILENO},
                     {"--report", options.report},
                     {"--csv", options.csv}});
    if (Streams(options.in) && ::isatty(STDIN_FILENO) == 1)
        throw Failure{kWrongUsage, "IN is a terminal: pipe audio into it, or name a file"};
    if (Streams(options.out) && ::isatty(STDOUT_FILENO) == 1)
        throw Failure{kWrongUsage, "OUT is a terminal: pipe it into a program, or name a file"};
    if (!options.report.empty()) OutputFile::Check(options.report, options.force);
    if (!options.csv.empty()) OutputFile::Check(options.csv, options.force);
}

host::Replies ChooseReplies(const PumpOptions& options, const host::ServerSettings& server,
                            std::size_t words) {
    if (options.replies == "single") return host::Replies::kSingle;
    // A port that --args gives below 0 already says how replies are taken.
    if (options.replies == "auto")
        return server.port > 0 ? host::SuitingReplies(words) : host::Replies::kSingle;
    if (words > host::kWholeReplyWords)
        throw Failure{kWrongUsage, "--replies whole: a whole reply holds " +
                                       std::to_string(host::kWholeReplyWords) + " words, and a block has " +
                                       std::to_string(words) + ": choose a smaller --block"};
    return host::Replies::kWhole;
}

/// What goes on in one run: the input and how it is to be stored, the stream, and what the server said.
struct Stream {
    AudioReader reader;
    AudioFormat format;
    std::optional<host::PinValues> pins;
    FileRun file;
    host::Replies replies = host::Replies::kSingle;

    std::uint64_t ExpectedFrames() const { return reader.Frames() + file.tail; }
    double BlockSeconds() const { return static_cast<double>(file.blockFrames) / reader.SampleRate(); }
    unsigned BlockWords() const { return static_cast<unsigned>(file.blockFrames * reader.Channels()); }
};

/// Opens the input and checks that everything may be written, before the network is touched.
Stream OpenInput(const PumpOptions& options) {
    CheckFiles(options);
    Stream stream{AudioReader(options.in), {}, {}, {}, {}};
    const AudioReader& reader = stream.reader;
    stream.format = {reader.Channels(), reader.SampleRate(), ChooseStorage(options, reader)};
    stream.file.tail = options.tail;
    AudioWriter::Check(options.out, stream.format, options.force, stream.ExpectedFrames());
    return stream;
}

void AskServer(Client& client, const PumpOptions& options, Stream& stream) {
    client.Connect();
    stream.pins = PinsIfNeeded(client, options);
    const host::PinValues said = stream.pins.value_or(host::PinValues{});
    stream.file.words = ChooseWords(options, said);
    stream.file.blockFrames = ChooseBlock(options, said, client.Server(), stream.reader.Channels());
    stream.replies = ChooseReplies(options, client.Server(), stream.BlockWords());
    client.Session().TakeReplies(stream.replies);
}

/// What is noted of each block, and what is told of all of them.
class RunRecord {
public:
    RunRecord(const PumpOptions& options, const Stream& stream)
        : m_options(options), m_stream(stream), m_statistics(stream.BlockSeconds() * 1000),
          m_picture({stream.file.words, stream.reader.Channels(), stream.reader.SampleRate(),
                     stream.file.blockFrames, options.paced}),
          m_progress(std::in_place, stream.ExpectedFrames(), stream.reader.SampleRate()) {
        if (!options.csv.empty()) m_csv.emplace(options.csv, options.force, m_statistics.Deadline());
        if (!options.report.empty()) m_page.emplace(options.report, options.force);
    }

    void Add(const PumpedBlock& block, double elapsed) {
        m_statistics.Add(block.record);
        if (m_csv) m_csv->Add(block.record);
        if (m_page) m_picture.Add(block.record, block.in, block.out, block.frames);
        m_frames += block.frames;
        m_progress->Show(m_frames, elapsed);
    }

    /// ended   why the run ended early; "": it did not
    void Finish(const Client& client, double elapsed, const std::string& ended) {
        m_progress.reset();
        const RunSummary summary{m_options.in,
                                 ended.empty() ? m_options.out : "",
                                 client.Server(),
                                 m_statistics,
                                 m_stream.file.blockFrames,
                                 m_frames,
                                 m_stream.reader.Channels(),
                                 m_stream.reader.SampleRate(),
                                 elapsed,
                                 m_options.paced,
                                 m_stream.replies};
        Print(client, m_options.json ? JsonLine(summary.Json()) : summary.Text());
        if (m_page) WritePage(client, summary, ended);
        if (m_csv) m_csv->Finish();
    }

    const host::RunStatistics& Statistics() const { return m_statistics; }

private:
    /// Where the audio does not go.
    void Print(const Client& client, const std::string& text) const {
        if (!Streams(m_options.out)) return client.Print(text);
        (void)std::fputs(text.c_str(), stderr);
    }

    void WritePage(const Client& client, const RunSummary& summary, const std::string& ended) {
        const PumpPage page{.run = summary,
                            .input = m_options.in,
                            .pins = m_stream.pins,
                            .words = m_stream.file.words,
                            .tail = m_options.tail,
                            .retries = m_options.retries,
                            .pluginFile = client.PluginFile(),
                            .version = VRX_VERSION,
                            .ended = ended};
        m_page->Write(m_picture.Page(PumpPageTexts(page), m_statistics));
        m_page->Finish();
    }

    const PumpOptions& m_options;
    const Stream& m_stream;
    host::RunStatistics m_statistics;
    HtmlReport m_picture;
    std::optional<ProgressLine> m_progress; // gone before anything else is printed
    std::optional<BlockCsv> m_csv;
    std::optional<OutputFile> m_page;
    std::uint64_t m_frames = 0;
};

/// Throws Failure unless everything came back; what ended the run is then its message.
void PumpAll(Client& client, host::BlockPump& pump, const PumpOptions& options, Stream& stream,
             AudioWriter& writer, RunRecord& record) {
    const PumpedFile pumped = PumpFile(pump, Interrupted, stream.reader, writer, stream.file,
                                       [&](const PumpedBlock& block) { record.Add(block, pump.Elapsed()); });
    if (pumped.end == host::Sent::kStopped) throw Failure{kInterrupted, "interrupted"};
    if (pumped.end == host::Sent::kLost)
        throw Failure{kRunFailed, "block " + std::to_string(pumped.last.number) + " failed at " +
                                      client.Server().Place() + " after " + std::to_string(options.retries) +
                                      " retries (" + client.Session().Describe(pumped.last.result) +
                                      "): check the server, or allow more --retries"};
    writer.Finish();
}

int RunPump(const PumpOptions& options) {
    CatchInterrupts();
    (void)std::signal(SIGPIPE, SIG_IGN); // a closed standard output is an error like any other
    (void)ResolveServer(options.server); // wrong usage comes before a missing file
    Stream stream = OpenInput(options);
    ConnectionOptions connection = options.server;
    connection.overwriteRecord = options.force;
    Client client(connection);
    AskServer(client, options, stream);
    AudioWriter writer = Streams(options.out) ? AudioWriter(client.Output().Real(), stream.format)
                                              : AudioWriter(options.out, stream.format, options.force);
    RunRecord record(options, stream);
    host::SteadyRunClock clock(Interrupted);
    host::BlockPump pump(client.Session(), clock, stream.BlockWords(), options.retries,
                         options.paced ? stream.BlockSeconds() : 0);
    try {
        PumpAll(client, pump, options, stream, writer, record);
    } catch (const Failure& failure) {
        record.Finish(client, pump.Elapsed(), failure.message);
        throw Failure{failure.code,
                      failure.message + (Streams(options.out) ? "; standard output ends here"
                                                              : "; " + options.out + " was not written")};
    }
    record.Finish(client, pump.Elapsed(), "");

    const host::RunStatistics& statistics = record.Statistics();
    if (statistics.Failed() == 0) return kDone;
    throw Failure{kRunFailed, std::to_string(statistics.Failed()) + " of " +
                                  std::to_string(statistics.Blocks()) + " blocks failed at " +
                                  client.Server().Place() + ", first block " +
                                  std::to_string(statistics.FirstFailed().number) + " with status " +
                                  std::to_string(statistics.FirstFailed().result) +
                                  ": silence stands for them in " + options.out};
}

constexpr char kPumpFooter[] =
    "Without --block and --samples the server's pins decide. What they do not say: float words, and as many\n"
    "frames as let request and reply fit one Ethernet segment. A single reply is what one receive delivers, "
    "so\n"
    "a longer one may be incomplete; a whole reply is collected, in blocks of up to 2040 words. auto: whole\n"
    "where a reply does not fit one segment and a whole one can hold it.\n"
    "- is standard input or output, as WAV of unknown length; what else is printed goes to standard error.\n"
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
    Subcommand<PumpOptions> command(app, exitCode, "pump", "Run an audio file through the server", RunPump,
                                    kPumpFooter);
    PumpOptions& options = command.Values();
    command.Add("IN", options.in, "", "Audio file to read; -: standard input")->required();
    command
        .Add("OUT", options.out, "", "Audio file to write; its ending decides the kind; -: standard output")
        ->required();
    AddConnectionOptions(command.Command(), options.server);
    command.Add("--block", options.block, "FRAMES", "Frames per block [see below]")
        ->check(InRange(std::size_t{1}, kMostBlock));
    command.Add("--samples", options.samples, "f32|s32", "How a sample becomes a 32-bit word [see below]")
        ->check(OneOf({"f32", "s32"}));
    command
        .AddWithDefault("--replies", options.replies, "single|whole|auto", "How replies are taken, see below")
        ->check(OneOf({"single", "whole", "auto"}));
    command.Add("--bits", options.bits, "16|32|float", "Samples in OUT [16 if IN has 16, else 32]")
        ->check(OneOf({"16", "32", "float"}));
    command.AddWithDefault("--tail", options.tail, "FRAMES", "Silence to send after the end")
        ->check(InRange(std::uint64_t{0}, kMostTail));
    command.AddWithDefault("--retries", options.retries, "N",
                           "Send a block again, after 0.5, 1, 2, 4, 5... s");
    command.AddFlag("--force", options.force, "Overwrite OUT and the two files below");
    command.AddFlag("--paced", options.paced, "Send each block when it is due in real time");
    command.Add("--report", options.report, "FILE", "Write a page that shows the run (HTML)");
    command.Add("--csv", options.csv, "FILE", "Write one row a block (CSV)");
    command.AddFlag("--json", options.json, "Print the summary as one JSON object");
}

} // namespace vrx::tool
