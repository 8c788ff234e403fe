#include "tools/capture/Recorder.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Place.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/Interrupt.h"
#include "tools/program/Numbers.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>

namespace vrx::tool {

namespace {

struct RecordOptions {
    std::string to;
    std::string file;
    int port = 0;
    double seconds = 0; // 0: without end
    bool mute = false;
    bool force = false;
};

int RunRecord(const RecordOptions& options) {
    using Clock = std::chrono::steady_clock;
    CatchInterrupts();
    (void)std::signal(SIGPIPE, SIG_IGN); // whoever reads our output may have gone
    const Place server = ParsePlace(options.to, "--to");
    Recorder recorder({server.host, server.port, options.file, options.port, options.force, options.mute,
                       [](const std::string& text) { PrintError("vrx record", text); }});
    std::printf("vrx record: listening on 127.0.0.1:%d\n", recorder.Port());
    (void)std::fflush(stdout);

    const auto end = Clock::now() + std::chrono::duration<double>(options.seconds);
    recorder.Run([&] { return Interrupted() || (options.seconds > 0 && Clock::now() >= end); });
    const RecorderFigures& figures = recorder.Figures();
    std::printf("vrx record: %s, %llu bytes of requests, %llu bytes of replies -> %s (%llu bytes)\n",
                Counted(figures.clients, "client").c_str(),
                static_cast<unsigned long long>(figures.requestBytes),
                static_cast<unsigned long long>(figures.replyBytes), options.file.c_str(),
                static_cast<unsigned long long>(figures.fileBytes));
    return recorder.Error().empty() ? kDone : kFileFailed;
}

constexpr char kRecordFooter[] =
    "Clients connect to the port of the first line instead of the server's. "
    "Everything is handed on as it comes,\n"
    "ends and resets included, and FILE holds it as a capture (pcap) that Wireshark "
    "opens, whole up to the last\n"
    "reply at any time. Ctrl-C ends it.\n"
    "\n"
    "Examples:\n"
    "  vrx record --to studio:7000 tuesday.pcap --port 7100\n"
    "  vrx pump in.wav out.wav --servport 7100";

} // namespace

void AddRecord(CLI::App& app, int& exitCode) {
    Subcommand<RecordOptions> command(
        app, exitCode, "record", "Record what goes between clients and a server", RunRecord, kRecordFooter);
    RecordOptions& options = command.Values();
    command.Add("FILE", options.file, "", "Capture file to write")->required();
    command.Add("--to", options.to, "HOST:PORT", "The server")->required();
    command.Add("--port", options.port, "PORT", "Port to listen on [a free one]")->check(IsPort());
    command.Add("--seconds", options.seconds, "S", "End after so long [on Ctrl-C]")
        ->check(InRange(0.001, 1e9));
    command.AddFlag("--mute", options.mute, "Write zeroes for samples");
    command.AddFlag("--force", options.force, "Overwrite FILE");
}

} // namespace vrx::tool
