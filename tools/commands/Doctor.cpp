#include "host/BlockSize.h"
#include "tools/checks/Checkup.h"
#include "tools/commands/Client.h"
#include "tools/commands/Commands.h"
#include "tools/commands/RecordOption.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/Interrupt.h"
#include "tools/program/Terminal.h"

#include <algorithm>
#include <string>
#include <unistd.h>

namespace vrx::tool {

namespace {

struct DoctorOptions {
    ConnectionOptions server;
    CheckupOptions checkup;
};

int RunDoctor(const DoctorOptions& options) {
    ExitOnInterrupt("vrx doctor");
    CheckupOptions checkup = options.checkup;
    const std::size_t most = host::MostFramesPerBlock(std::max<std::size_t>(1, checkup.channels));
    if (checkup.block > most)
        throw Failure{kWrongUsage, "--block " + std::to_string(checkup.block) +
                                       " is too long: replies hold at most " + std::to_string(most) +
                                       " frames"};
    checkup.colors = ColorsWanted(STDOUT_FILENO); // asked before the client takes standard output
    Client client(options.server);
    return Checkup(checkup, client.Session(), client.PluginFile(),
                   [&client](std::string_view text) { client.Print(text); })
        .Run();
}

constexpr char kDoctorFooter[] =
    "One line a step: its name, ok, note or FAIL, its time, what was found. After a "
    "failure: what it means and\n"
    "what to try. Exit codes: 0 no step failed, 3 no connection (look-up, reach, "
    "connect, command), 4 later.\n"
    "\n"
    "Examples:\n"
    "  vrx doctor 127.0.0.1 7000\n"
    "  vrx doctor studio 7000 --block 480 --channels 2 --rate 48000 --json";

} // namespace

void AddDoctor(CLI::App& app, int& exitCode) {
    Subcommand<DoctorOptions> command(app, exitCode, "doctor", "Find out why a server does not answer",
                                      RunDoctor, kDoctorFooter);
    DoctorOptions& options = command.Values();
    CheckupOptions& checkup = options.checkup;
    command.Add("HOST", options.server.server, "", "Host name or IPv4 address")->required();
    command.Add("PORT", options.server.servport, "", "TCP port of the server")->required()->check(IsPort());
    command.Add("--block", checkup.block, "FRAMES", "Frames per block [as the pins say, else one segment]")
        ->check(InRange<std::size_t>(1, host::kMostWords));
    command.Add("--channels", checkup.channels, "N", "Channels of a block [as the pins say, else 2]")
        ->check(InRange(1, 1023));
    command.AddWithDefault("--rate", checkup.rate, "HZ", "Frames per second, for how long a block lasts")
        ->check(InRange(1, 1000000));
    AddObjectOptions(command.Command(), options.server);
    AddRecordOption(command.Command(), options.server.record);
    command.AddJson(checkup.json);
}

} // namespace vrx::tool
