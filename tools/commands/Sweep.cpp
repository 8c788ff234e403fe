#include "host/Session.h"
#include "tools/audio/FilePump.h"
#include "tools/commands/Commands.h"
#include "tools/program/Interrupt.h"
#include "tools/program/Numbers.h"
#include "tools/report/RunSummary.h"
#include "tools/report/SweepResult.h"

#include <memory>
#include <vector>

using namespace vrx;

namespace {

constexpr char kWho[] = "vrx sweep";

struct SweepOptions {
    ConnectionOptions server;
    std::size_t from = 16;
    std::size_t to = 2048;
    unsigned channels = 2;
    int rate = 48000;
    double seconds = 2;
    bool json = false;
};

/// Sends silence in blocks of one size until the time is up or a block does not get through.
SweepRow TryBlock(Session& session, std::size_t frames, const SweepOptions& options) {
    const std::size_t words = frames * options.channels;
    const std::vector<std::uint32_t> in(words);
    std::vector<std::uint32_t> out(words);
    const double period = static_cast<double>(frames) / options.rate;
    SweepRow row;
    row.frames = frames;
    row.deadline = period * 1000;
    RunStatistics statistics(row.deadline);
    BlockPump pump(session, static_cast<unsigned>(words), 0, period);
    try {
        do {
            statistics.Add(pump.Send(in.data(), out.data()));
        } while (pump.Elapsed() < options.seconds);
    } catch (const LostBlock& lost) {
        row.lost = session.Describe(lost.result);
        if (!session.Reconnect(lost.result)) session.Connect();
    }
    row.blocks = statistics.Blocks();
    row.failed = statistics.Failed();
    row.missed = statistics.Missed();
    row.longestMissedRun = statistics.LongestMissedRun();
    row.sinceDue = statistics.TimesSinceDue();
    return row;
}

std::string Json(const SweepOptions& options, const ServerSettings& server,
                 const std::vector<SweepRow>& rows) {
    const std::size_t safe = SmallestSafeBlock(rows);
    nlohmann::json object = {{"server", server.host},
                             {"port", server.port},
                             {"channels", options.channels},
                             {"sample_rate", options.rate},
                             {"smallest_safe_block", safe > 0 ? nlohmann::json(safe) : nlohmann::json()},
                             {"blocks", nlohmann::json::array()}};
    for (const SweepRow& row : rows) object["blocks"].push_back(SweepJson(row));
    return JsonLine(object);
}

int RunSweep(const SweepOptions& options) {
    CatchInterrupts();
    if (options.to < options.from)
        throw Failure{kWrongUsage, "--to is below --from: there is no block size to try"};
    if (options.to > MostFramesPerBlock(options.channels))
        throw Failure{kWrongUsage, "--to " + std::to_string(options.to) +
                                       " is too long: replies hold at most " +
                                       std::to_string(MostFramesPerBlock(options.channels)) + " frames of " +
                                       Counted(options.channels, "channel")};
    const ServerSettings server = ResolveServer(options.server);
    Session session(options.server.plugin, server);
    session.Connect();

    if (!options.json) session.Print(SweepHeading());
    std::vector<SweepRow> rows;
    for (std::size_t frames = options.from; frames <= options.to; frames *= 2) {
        rows.push_back(TryBlock(session, frames, options));
        if (!options.json) session.Print(SweepLine(rows.back()));
    }
    const std::size_t safe = SmallestSafeBlock(rows);
    if (options.json) session.Print(Json(options, server, rows));
    if (safe == 0)
        throw Failure{kRunFailed, "no safe block up to " + std::to_string(rows.back().frames) +
                                      " frames at " + server.Place() +
                                      ": try larger ones with --to, or a faster server"};
    if (!options.json) session.Print("smallest safe block: " + std::to_string(safe) + " frames\n");
    return kDone;
}

constexpr char kFooter[] =
    "Sends silence, each block when it is due in real time, in blocks of --from frames, then twice as many, "
    "up\n"
    "to --to. A size is safe when every reply came before the next block was due and no larger size missed\n"
    "that. Exit code 4: none is.\n"
    "\n"
    "Examples:\n"
    "  vrx sweep --servport 7000\n"
    "  vrx sweep --servport 7000 --server studio --from 32 --to 512 --seconds 30 --json";

} // namespace

void AddSweep(CLI::App& app, int& exitCode) {
    const auto options = std::make_shared<SweepOptions>();
    CLI::App* command = app.add_subcommand("sweep", "Find the smallest block that keeps up");
    const auto add = [command](const char* name, auto& value, const char* type, const char* help) {
        return command->add_option(name, value, help)->type_name(type);
    };
    AddConnectionOptions(*command, options->server);
    add("--from", options->from, "FRAMES", "The first block size [16]")
        ->check(CLI::Range(1, 262137).description(""));
    add("--to", options->to, "FRAMES", "The last one, at most [2048]")
        ->check(CLI::Range(1, 262137).description(""));
    add("--channels", options->channels, "N", "Channels of a block [2]")
        ->check(CLI::Range(1, 1023).description(""));
    add("--rate", options->rate, "HZ", "Frames per second [48000]")
        ->check(CLI::Range(1, 1000000).description(""));
    add("--seconds", options->seconds, "S", "How long each size is tried [2]")
        ->check(CLI::Range(0.01, 86400.0).description(""));
    command->add_flag("--json", options->json, "Print one JSON object");
    command->footer(kFooter);
    command->callback(
        [options, &exitCode] { exitCode = RunCommand(kWho, [&] { return RunSweep(*options); }); });
}
