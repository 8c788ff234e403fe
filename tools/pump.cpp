#include "tools/Commands.h"
#include "tools/Interrupt.h"
#include "tools/Pumping.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <unistd.h>

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
    bool json = false;
};

std::string Fixed(double value, int decimals) {
    char text[400];
    (void)std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

/// The line on a terminal that shows how far a run has come; silent elsewhere.
class ProgressLine {
public:
    ProgressLine(std::uint64_t frames, int sampleRate)
        : m_shown(::isatty(STDERR_FILENO) == 1), m_frames(frames), m_sampleRate(sampleRate) {}
    ~ProgressLine() {
        if (m_shown) (void)std::fputs("\r\033[K", stderr);
    }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void Show(std::uint64_t done, double seconds) {
        constexpr double kInterval = 0.1;
        if (!m_shown || seconds < m_next) return;
        m_next = seconds + kInterval;
        const double speed = TimesRealTime(done, m_sampleRate, seconds);
        if (m_frames < done || m_frames == 0 || done == 0) { // the header did not say how long the input is
            (void)std::fprintf(stderr, "\r%.1f s, %.1f times real time\033[K", seconds, speed);
            return;
        }
        const double part = static_cast<double>(done) / static_cast<double>(m_frames);
        const auto left = std::lround(seconds / part - seconds);
        (void)std::fprintf(stderr, "\r%3.0f %%, %.1f times real time, %ld:%02ld left\033[K", 100 * part,
                           speed, left / 60, left % 60);
    }

private:
    bool m_shown;
    std::uint64_t m_frames;
    int m_sampleRate;
    double m_next = 0;
};

/// What the summary tells, as a line and as JSON.
struct Summary {
    const PumpOptions& options;
    const ServerSettings& server;
    const RunStatistics& statistics;
    std::size_t blockFrames;
    std::uint64_t frames; // in the output
    unsigned channels;
    int sampleRate;
    double seconds;
    bool written; // the output has its name

    std::string Line() const {
        const BlockTimes times = statistics.Times();
        const BlockRecord& last = statistics.Last();
        return options.in + ": " + std::to_string(statistics.Blocks()) + " blocks of " +
               std::to_string(blockFrames) + " frames through " + server.Place() + ", " +
               std::to_string(frames) + " frames, " + std::to_string(statistics.Failed()) + " failed, " +
               std::to_string(statistics.Retried()) + " retried, " +
               Fixed(TimesRealTime(frames, sampleRate, seconds), 1) + " times real time, p50 " +
               Fixed(times.p50, 3) + " ms, p95 " + Fixed(times.p95, 3) + " ms, p99 " + Fixed(times.p99, 3) +
               " ms, max " + Fixed(times.max, 3) + " ms, cycles " + Fixed(double{last.averageCycles}, 0) +
               " average " + Fixed(double{last.pumpCycles}, 0) + " pump -> " +
               (written ? options.out : "nothing written") + "\n";
    }

    std::string Json() const {
        const BlockTimes times = statistics.Times();
        const BlockRecord& last = statistics.Last();
        const nlohmann::json object = {
            {"input", options.in},
            {"output", written ? nlohmann::json(options.out) : nlohmann::json()},
            {"server", server.host},
            {"port", server.port},
            {"blocks", statistics.Blocks()},
            {"block_frames", blockFrames},
            {"frames", frames},
            {"channels", channels},
            {"sample_rate", sampleRate},
            {"failed", statistics.Failed()},
            {"retried", statistics.Retried()},
            {"realtime_factor", TimesRealTime(frames, sampleRate, seconds)},
            {"milliseconds",
             {{"p50", times.p50}, {"p95", times.p95}, {"p99", times.p99}, {"max", times.max}}},
            {"cycles", {{"average", last.averageCycles}, {"pump", last.pumpCycles}}},
        };
        // File names are bytes: what is no UTF-8 in them is replaced.
        return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    }
};

/// Asks for the pins only when an option was left open. A server that does not answer says nothing.
PinValues PinsIfNeeded(Session& session, const PumpOptions& options) {
    PinValues pins;
    if (options.block != 0 && !options.samples.empty()) return pins;
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
                                       " frames of " + std::to_string(channels) + " channels"};
    if (options.block > 0) return options.block;
    if (pins.in[0] > 0 && pins.in[0] <= most) return pins.in[0];
    return FramesPerSegment(server, channels);
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

int RunPump(const PumpOptions& options) {
    CatchInterrupts();
    (void)std::signal(SIGPIPE, SIG_IGN); // a closed standard output is an error like any other
    const ServerSettings server = ResolveServer(options.server);

    AudioReader reader(options.in);
    const AudioFormat format{reader.Channels(), reader.SampleRate(), ChooseFormat(options, reader)};
    const std::uint64_t expectedFrames = reader.Frames() + options.tail;
    AudioWriter::Check(options.out, format, options.force, expectedFrames);
    Session session(options.server.plugin, server);
    session.Connect();
    const PinValues pins = PinsIfNeeded(session, options);
    const FileRun run{ChooseWords(options, pins), ChooseBlock(options, pins, server, reader.Channels()),
                      options.tail};
    AudioWriter writer(options.out, format, options.force);

    RunStatistics statistics;
    std::uint64_t frames = 0;
    BlockPump pump(session, static_cast<unsigned>(run.blockFrames * reader.Channels()), options.retries);
    std::optional<ProgressLine> progress(std::in_place, expectedFrames, reader.SampleRate());
    const auto blockDone = [&](const BlockRecord& block, std::size_t blockFrames) {
        statistics.Add(block);
        frames += blockFrames;
        progress->Show(frames, pump.Elapsed());
    };
    const auto report = [&](bool written) {
        progress.reset();
        const Summary summary{options,
                              server,
                              statistics,
                              run.blockFrames,
                              frames,
                              reader.Channels(),
                              reader.SampleRate(),
                              pump.Elapsed(),
                              written};
        session.Print(options.json ? summary.Json() : summary.Line());
    };

    try {
        PumpFile(pump, reader, writer, run, blockDone);
        writer.Finish();
    } catch (const Failure& failure) {
        report(false);
        throw Failure{failure.code, failure.message + "; " + options.out + " was not written"};
    }
    report(true);
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
    "PCM .wav, and through libsndfile float .wav, .flac, .aiff, .au, .caf, .w64, .rf64, .ogg, .opus.\n"
    "\n"
    "Examples:\n"
    "  vrx pump in.wav out.wav --servport 7000\n"
    "  vrx pump in.flac out.wav --servport 7000 --server studio --block 64 --tail 48000 --json";

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
    command->add_flag("--force", options->force, "Overwrite OUT");
    command->add_flag("--json", options->json, "Print the summary as one JSON object");
    command->footer(kFooter);
    command->callback(
        [options, &exitCode] { exitCode = RunCommand(kWho, [&] { return RunPump(*options); }); });
}
