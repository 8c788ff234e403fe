#include "tools/commands/Commands.h"
#include "tools/commands/Subcommand.h"
#include "tools/server/LoopbackServer.h"

#include "tools/server/Lv2Stage.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace vrx::tool {

namespace {

struct Arguments {
    ServerOptions server;
    std::vector<std::string> steps;
    double idleSeconds = 300;
    std::string faults;
    std::vector<std::string> allowed;
};

/// Turns the texts of the command line into what the server takes; throws Failure for a text that
/// means nothing.
ServerOptions Resolve(const Arguments& arguments) {
    ServerOptions options = arguments.server;
    options.idle = std::chrono::milliseconds(static_cast<int64_t>(arguments.idleSeconds * 1000));
    for (const std::string& text : arguments.steps) {
        ProcessStep step;
        const std::string error = ParseStep(text, options.shape, step);
        if (!error.empty()) throw Failure{kWrongUsage, "--process: " + error};
        options.steps.push_back(step);
    }
    for (const std::string& text : arguments.allowed) {
        AddressRange range;
        const std::string error = ParseAddressRange(text, range);
        if (!error.empty()) throw Failure{kWrongUsage, "--allow: " + error};
        options.allowed.push_back(range);
    }
    if (!arguments.faults.empty()) {
        const std::string error = ParseFaults(arguments.faults, options.faults);
        if (!error.empty()) throw Failure{kWrongUsage, "--faults: " + error};
    }
    return options;
}

int Serve(const Arguments& arguments) {
    if (std::ranges::count(arguments.steps, "lv2=list") > 0) {
        (void)std::fputs(DescribeLv2Plugins(arguments.server.shape.rate).c_str(), stdout);
        return kDone;
    }
    if (arguments.faults != "help") return RunLoopbackServer(Resolve(arguments));
    (void)std::fputs(DescribeFaults().c_str(), stdout);
    return kDone;
}

unsigned Cores() {
    return std::max(1U, std::thread::hardware_concurrency());
}

void AddListening(CLI::App& command, Arguments& arguments) {
    constexpr size_t kMostBytes = size_t{1} << 30;
    ServerOptions& server = arguments.server;
    command.add_option("--bind", server.bind, "IPv4 address to listen on")->capture_default_str();
    command.add_option("--port", server.port, "Port to listen on; 0: a free one")->capture_default_str();
    command
        .add_option(
            "--allow", arguments.allowed,
            "ADDRESS/BITS: only clients from there, others get nothing;\ngiven repeatedly, from any of them")
        ->allow_extra_args(false);
    command.add_flag("--quiet", server.quiet, "Print nothing but the line that names the port");
    command.add_option("--max-packet", server.largestPacket, "Largest request in bytes")
        ->capture_default_str()
        ->check(CLI::Range(size_t{24}, kMostBytes));
    command.add_option("--max-clients", server.mostClients, "Most clients at one time")
        ->capture_default_str()
        ->check(CLI::Range(1, 100000));
    command.add_option("--idle", arguments.idleSeconds, "Disconnect a client silent for so many seconds")
        ->capture_default_str()
        ->check(CLI::Range(0.01, 1e6));
    command.add_option("--threads", server.threads, "Threads that process blocks")
        ->capture_default_str()
        ->check(CLI::Range(1, 1024));
}

void AddObjects(CLI::App& command, Arguments& arguments) {
    constexpr size_t kMostWords = size_t{1} << 28;
    ServerOptions& server = arguments.server;
    command.add_option("--layout", server.rules.layout, "Only this layout may be pumped; default: any");
    command.add_option("--input", server.rules.input, "Only this input object; default: any");
    command.add_option("--output", server.rules.output, "Only this output object; default: any");
    command.add_option("--block-limit", server.rules.largestBlock, "Most words of a block, either way")
        ->capture_default_str()
        ->check(CLI::Range(size_t{1}, kMostWords));
    command
        .add_option("--pin-frames", server.pinFrames,
                    "Frames per block in the pin info words (bits 10-26); 0: not said.\n"
                    "Bits 0-9 are the channels, bit 27 is 1 for f32, both pins alike")
        ->capture_default_str()
        ->check(CLI::Range(0, 131071));
}

void AddProcessing(CLI::App& command, Arguments& arguments) {
    const std::map<std::string, host::SampleFormat> formats{{"f32", host::SampleFormat::kF32},
                                                            {"s32", host::SampleFormat::kS32}};
    StreamShape& shape = arguments.server.shape;
    command
        .add_option("--process", arguments.steps,
                    "pass, gain=DB, invert, delay=FRAMES, lowpass=HZ or an LV2 plug-in,\n"
                    "lv2=URI[;SYMBOL=VALUE...]; lv2=list lists those that are installed;\n"
                    "one that crashes takes the server and all its clients with it.\n"
                    "Given repeatedly, each works on what the one before made")
        ->allow_extra_args(false);
    command.add_option("--samples", shape.format, "What the words are: f32 (default) or s32")
        ->transform(CLI::CheckedTransformer(formats));
    command.add_option("--channels", shape.channels, "Interleaved channels of a block")
        ->capture_default_str()
        ->check(CLI::Range(1, 1023));
    command.add_option("--rate", shape.rate, "Frames per second")
        ->capture_default_str()
        ->check(CLI::Range(1.0, 1e6));
}

void AddFaults(CLI::App& command, Arguments& arguments) {
    ServerOptions& server = arguments.server;
    command.add_option("--faults", arguments.faults,
                       "Spoil replies to blocks: SCENARIO[,SCENARIO...], picked at random;\n"
                       "\"help\" lists the scenarios");
    command.add_option("--fault-rate", server.faultRate, "The chance of each such reply to be spoilt")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1.0));
    command.add_option("--fault-limit", server.faultLimit,
                       "Spoil no more replies than this in all; default: no limit");
    command
        .add_option("--seed", server.faultSeed, "The same seed spoils the same replies of each connection")
        ->capture_default_str();
}

constexpr char kServeFooter[] =
    "The first line printed is \"vrx serve: listening on ADDRESS:PORT\".\n"
    "The cycle figures of a reply are nanoseconds. SIGINT or SIGTERM stops the server\n"
    "with exit code 0, after what is under way, at most a second; 3: it could not listen.\n"
    "\n"
    "Examples:\n"
    "  vrx serve --port 7000 --process gain=-6\n"
    "  vrx serve --pin-frames 480 --faults late=20ms,reset --fault-rate 0.01";

} // namespace

void AddServe(CLI::App& app, int& exitCode) {
    Subcommand<Arguments> command(app, exitCode, "serve", "Runs a loopback server that processes blocks",
                                  Serve, kServeFooter);
    command.Values().server.threads = Cores();
    AddListening(command.Command(), command.Values());
    AddObjects(command.Command(), command.Values());
    AddProcessing(command.Command(), command.Values());
    AddFaults(command.Command(), command.Values());
}

} // namespace vrx::tool
