#include "tools/commands/Client.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/Interrupt.h"
#include "tools/report/RunSummary.h"

namespace vrx::tool {

namespace {

struct PinsOptions {
    ConnectionOptions server;
    bool json = false;
};

std::string Line(const char* pin, const std::string& name, const unsigned (&values)[3]) {
    return std::string(pin) + " " + name + ": " + host::PinText(values) + "\n";
}

std::string Json(const host::ServerSettings& server, const host::PinValues& pins) {
    return JsonLine({
        {"server", server.host},
        {"port", server.port},
        {"input", {{"name", server.input}, {"values", pins.in}}},
        {"output", {{"name", server.output}, {"values", pins.out}}},
    });
}

int RunPins(const PinsOptions& options) {
    ExitOnInterrupt("vrx pins");
    Client client(options.server);
    client.Connect();
    const host::ServerSettings& server = client.Server();

    host::PinValues pins;
    const int result = client.Session().PinProps(pins);
    if (result < 0 && client.Session().TransportFault())
        throw Failure{kRunFailed, "no pin properties from " + server.Place() + " (" +
                                      client.Session().Describe(result) +
                                      "): check that the server has such pins"};
    if (result < 0)
        throw Failure{kRunFailed, server.Place() + " refused the pin properties of '" + server.input +
                                      "' and '" + server.output + "' with status " + std::to_string(result) +
                                      ": check --input and --output"};
    client.Print(options.json
                     ? Json(server, pins)
                     : Line("input", server.input, pins.in) + Line("output", server.output, pins.out));
    return kDone;
}

constexpr char kPinsFooter[] =
    "Prints a line for the input pin and one for the output pin: its name and its three values. For vrx "
    "serve\n"
    "these are frames per block, channels (0: not said), and 1 for float words or 0 for integer words.\n"
    "\n"
    "Examples:\n"
    "  vrx pins --servport 7000\n"
    "  vrx pins --servport 7000 --server studio --input Mic --output Monitor --json";

} // namespace

void AddPins(CLI::App& app, int& exitCode) {
    Subcommand<PinsOptions> command(app, exitCode, "pins", "Show the properties of the server's pins",
                                    RunPins, kPinsFooter);
    AddConnectionOptions(command.Command(), command.Values().server);
    command.AddJson(command.Values().json);
}

} // namespace vrx::tool
