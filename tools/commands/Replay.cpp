#include "tools/capture/ReplayClient.h"
#include "tools/capture/ReplayServer.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Differences.h"
#include "tools/commands/Place.h"
#include "tools/program/Interrupt.h"

#include <csignal>
#include <cstdio>
#include <string>

namespace vrx::tool {

namespace {

struct ReplayOptions {
    std::string file;
    bool serve = false;
    std::string to;
    int port = 0;
    std::string timing = "recorded";
    DifferenceOptions differences;
};

int Serve(const ReplayOptions& options, Timing timing) {
    ReplayServer server(options.file, options.port, timing);
    std::printf("vrx replay: listening on 127.0.0.1:%d\n", server.Port());
    (void)std::fflush(stdout);
    const std::string difference = server.Run(Interrupted);
    if (difference.empty()) return kDone;
    throw Failure{kRunFailed, difference};
}

int ReplayTo(const ReplayOptions& options, Timing timing) {
    const Place server = ParsePlace(options.to, "--to");
    Recording recording(options.file);
    DifferenceReport report(options.differences, {options.file});
    ReplayToServer(recording, server.host, server.port, timing, Interrupted, report.Summary());
    return report.Tell("vrx replay", options.file, options.to, {&recording});
}

int RunReplay(const ReplayOptions& options) {
    CatchInterrupts();
    (void)std::signal(SIGPIPE, SIG_IGN); // a peer that has gone is a result like any other
    if (options.serve == !options.to.empty())
        throw Failure{kWrongUsage,
                      "one of --serve and --to HOST:PORT is needed: answer clients, or ask a server"};
    const DifferenceOptions& differences = options.differences;
    if (options.serve && (differences.json || differences.tolerance || !differences.report.empty()))
        throw Failure{kWrongUsage, "--json, --tolerance and --report belong to --to"};
    if (!options.serve && options.port != 0) throw Failure{kWrongUsage, "--port belongs to --serve"};
    const Timing timing = options.timing == "fast" ? Timing::kFast : Timing::kRecorded;
    return options.serve ? Serve(options, timing) : ReplayTo(options, timing);
}

constexpr char kReplayFooter[] =
    "With --serve clients get the recorded replies, in the recorded pieces and with "
    "the recorded ends of their\n"
    "connections, as often as they like. A request that differs from the recorded one "
    "gets an error line, and ends\n"
    "the replay (exit code 4). With --to the recorded requests go to a server, and "
    "its replies are compared with the\n"
    "recorded ones (exit code 4 when they differ).\n"
    "\n"
    "Examples:\n"
    "  vrx replay tuesday.pcap --serve --port 7100\n"
    "  vrx replay tuesday.pcap --to 127.0.0.1:7000 --timing fast --json";

} // namespace

void AddReplay(CLI::App& app, int& exitCode) {
    Subcommand<ReplayOptions> command(app, exitCode, "replay", "Be the server or the client of a recording",
                                      RunReplay, kReplayFooter);
    ReplayOptions& options = command.Values();
    command.Add("FILE", options.file, "", "A capture file")->required();
    command.AddFlag("--serve", options.serve, "Answer clients as the recorded server did");
    command.Add("--to", options.to, "HOST:PORT", "Ask this server what the recorded clients asked");
    command.Add("--port", options.port, "PORT", "Port to listen on [a free one]")->check(IsPort());
    command
        .AddWithDefault("--timing", options.timing, "recorded|fast", "With the recorded pauses, or at once")
        ->check(OneOf({"recorded", "fast"}));
    AddDifferenceOptions(command, options.differences);
}

} // namespace vrx::tool
