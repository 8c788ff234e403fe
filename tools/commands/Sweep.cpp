#include "host/BlockPump.h"
#include "host/BlockSize.h"
#include "tools/commands/Client.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/Interrupt.h"
#include "tools/program/Numbers.h"
#include "tools/report/RunSummary.h"
#include "tools/report/SweepResult.h"

#include <vector>

namespace vrx::tool {

namespace {

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
SweepRow TryBlock(Client& client, std::size_t frames, const SweepOptions& options) {
    const std::size_t words = frames * options.channels;
    const std::vector<std::uint32_t> in(words);
    std::vector<std::uint32_t> out(words);
    const double period = static_cast<double>(frames) / options.rate;
    SweepRow row;
    row.frames = frames;
    row.deadline = period * 1000;
    host::Session& session = client.Session();
    host::RunStatistics statistics(row.deadline);
    host::SteadyRunClock clock(Interrupted);
    host::BlockPump pump(session, clock, static_cast<unsigned>(words), 0, period);
    do {
        host::BlockRecord block;
        const host::Sent sent = pump.Send(in.data(), out.data(), block);
        if (sent == host::Sent::kStopped) throw Failure{kInterrupted, "interrupted"};
        if (sent == host::Sent::kLost) {
            row.lost = session.Describe(block.result);
            client.Reconnect(block.result);
            break;
        }
        statistics.Add(block);
    } while (pump.Elapsed() < options.seconds);
    row.blocks = statistics.Blocks();
    row.failed = statistics.Failed();
    row.missed = statistics.Missed();
    row.longestMissedRun = statistics.LongestMissedRun();
    row.sinceDue = statistics.TimesSinceDue();
    return row;
}

std::string Json(const SweepOptions& options, const host::ServerSettings& server,
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
    if (options.to > host::MostFramesPerBlock(options.channels))
        throw Failure{kWrongUsage, "--to " + std::to_string(options.to) +
                                       " is too long: replies hold at most " +
                                       std::to_string(host::MostFramesPerBlock(options.channels)) +
                                       " frames of " + Counted(options.channels, "channel")};
    Client client(options.server);
    client.Connect();
    const host::ServerSettings& server = client.Server();

    if (!options.json) client.Print(SweepHeading());
    std::vector<SweepRow> rows;
    for (std::size_t frames = options.from; frames <= options.to; frames *= 2) {
        rows.push_back(TryBlock(client, frames, options));
        if (!options.json) client.Print(SweepLine(rows.back()));
    }
    const std::size_t safe = SmallestSafeBlock(rows);
    if (options.json) client.Print(Json(options, server, rows));
    if (safe == 0)
        throw Failure{kRunFailed, "no safe block up to " + std::to_string(rows.back().frames) +
                                      " frames at " + server.Place() +
                                      ": try larger ones with --to, or a faster server"};
    if (!options.json) client.Print("smallest safe block: " + std::to_string(safe) + " frames\n");
    return kDone;
}

constexpr char kSweepFooter[] =
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
    Subcommand<SweepOptions> command(app, exitCode, "sweep", "Find the smallest block that keeps up",
                                     RunSweep, kSweepFooter);
    SweepOptions& options = command.Values();
    AddConnectionOptions(command.Command(), options.server);
    const CLI::Validator isBlock = InRange<std::size_t>(1, host::kMostWords);
    command.AddWithDefault("--from", options.from, "FRAMES", "The first block size")->check(isBlock);
    command.AddWithDefault("--to", options.to, "FRAMES", "The last one, at most")->check(isBlock);
    command.AddWithDefault("--channels", options.channels, "N", "Channels of a block")
        ->check(InRange(1, 1023));
    command.AddWithDefault("--rate", options.rate, "HZ", "Frames per second")->check(InRange(1, 1000000));
    command.AddWithDefault("--seconds", options.seconds, "S", "How long each size is tried")
        ->check(InRange(0.01, 86400.0));
    command.AddJson(options.json);
}

} // namespace vrx::tool
