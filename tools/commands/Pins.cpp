#include "host/Session.h"
#include "tools/commands/Commands.h"
#include "tools/program/Interrupt.h"

#include <memory>
#include <nlohmann/json.hpp>

using namespace vrx;

namespace {

constexpr char kWho[] = "vrx pins";

struct PinsOptions {
    ConnectionOptions server;
    bool json = false;
};

std::string Line(const char* pin, const std::string& name, const unsigned (&values)[3]) {
    return std::string(pin) + " " + name + ": " + std::to_string(values[0]) + " " +
           std::to_string(values[1]) + " " + std::to_string(values[2]) + "\n";
}

std::string Json(const ServerSettings& server, const PinValues& pins) {
    const nlohmann::json object = {
        {"server", server.host},
        {"port", server.port},
        {"input", {{"name", server.input}, {"values", pins.in}}},
        {"output", {{"name", server.output}, {"values", pins.out}}},
    };
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

int RunPins(const PinsOptions& options) {
    ExitOnInterrupt(kWho);
    const ServerSettings server = ResolveServer(options.server);
    Session session(options.server.plugin, server);
    session.Connect();

    PinValues pins;
    const int result = session.PinProps(pins);
    if (result < 0 && session.TransportFault())
        throw Failure{kRunFailed, "no pin properties from " + server.Place() + " (" +
                                      session.Describe(result) + "): check that the server has such pins"};
    if (result < 0)
        throw Failure{kRunFailed, server.Place() + " refused the pin properties of '" + server.input +
                                      "' and '" + server.output + "' with status " + std::to_string(result) +
                                      ": check --input and --output"};
    session.Print(options.json
                      ? Json(server, pins)
                      : Line("input", server.input, pins.in) + Line("output", server.output, pins.out));
    return kDone;
}

constexpr char kFooter[] =
    "Prints a line for the input pin and one for the output pin: its name and its three values. For vrx "
    "serve\n"
    "these are frames per block, channels (0: not said), and 1 for float words or 0 for integer words.\n"
    "\n"
    "Examples:\n"
    "  vrx pins --servport 7000\n"
    "  vrx pins --servport 7000 --server studio --input Mic --output Monitor --json";

} // namespace

void AddPins(CLI::App& app, int& exitCode) {
    const auto options = std::make_shared<PinsOptions>();
    CLI::App* command = app.add_subcommand("pins", "Show the properties of the server's pins");
    AddConnectionOptions(*command, options->server);
    command->add_flag("--json", options->json, "Print one JSON object");
    command->footer(kFooter);
    command->callback(
        [options, &exitCode] { exitCode = RunCommand(kWho, [&] { return RunPins(*options); }); });
}
