#include "tools/audio/FilePump.h"
#include "tools/checks/Checkup.h"
#include "tools/commands/Commands.h"
#include "tools/program/Interrupt.h"
#include "tools/program/Terminal.h"

#include <algorithm>
#include <memory>
#include <unistd.h>

using namespace vrx;

namespace {

constexpr char kWho[] = "vrx doctor";

int RunDoctor(const DoctorOptions& options) {
    ExitOnInterrupt(kWho);
    const ServerSettings server = ResolveServer(options.server);
    const std::size_t channels = std::max<std::size_t>(1, options.channels);
    if (options.block > MostFramesPerBlock(channels))
        throw Failure{kWrongUsage, "--block " + std::to_string(options.block) +
                                       " is too long: replies hold at most " +
                                       std::to_string(MostFramesPerBlock(channels)) + " frames"};
    return Checkup(options, server, ColorsWanted(STDOUT_FILENO)).Run();
}

constexpr char kFooter[] = "One line a step: its name, ok, note or FAIL, its time, what was found. After a "
                           "failure: what it means and\n"
                           "what to try. Exit codes: 0 no step failed, 3 no connection (look-up, reach, "
                           "connect, command), 4 later.\n"
                           "\n"
                           "Examples:\n"
                           "  vrx doctor 127.0.0.1 7000\n"
                           "  vrx doctor studio 7000 --block 480 --channels 2 --rate 48000 --json";

} // namespace

void AddDoctor(CLI::App& app, int& exitCode) {
    const auto options = std::make_shared<DoctorOptions>();
    CLI::App* command = app.add_subcommand("doctor", "Find out why a server does not answer");
    const auto add = [command](const char* name, auto& value, const char* type, const char* help) {
        return command->add_option(name, value, help)->type_name(type);
    };
    add("HOST", options->server.server, "", "Host name or IPv4 address")->required();
    add("PORT", options->server.servport, "", "TCP port of the server")
        ->required()
        ->check(CLI::Range(1, 65535).description(""));
    add("--block", options->block, "FRAMES", "Frames per block [as the pins say, else one segment]")
        ->check(CLI::Range(1, 262137).description(""));
    add("--channels", options->channels, "N", "Channels of a block [as the pins say, else 2]")
        ->check(CLI::Range(1, 1023).description(""));
    add("--rate", options->rate, "HZ", "Frames per second, for how long a block lasts [48000]")
        ->check(CLI::Range(1, 1000000).description(""));
    AddObjectOptions(*command, options->server);
    command->add_flag("--json", options->json, "Print one JSON object");
    command->footer(kFooter);
    command->callback(
        [options, &exitCode] { exitCode = RunCommand(kWho, [&] { return RunDoctor(*options); }); });
}
