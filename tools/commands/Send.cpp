#include "host/Session.h"
#include "tools/commands/Commands.h"
#include "tools/program/Interrupt.h"

#include <memory>
#include <string>
#include <vector>

using namespace vrx;

namespace {

constexpr char kWho[] = "vrx send";

struct SendOptions {
    ConnectionOptions server;
    std::vector<std::string> texts;
};

/// The channel hands over a binary packet as a reply text, too.
bool IsPacket(const std::string& reply) {
    return reply.starts_with(std::string_view("\x03\x00\xFF\x07", 4));
}

int RunSend(const SendOptions& options) {
    ExitOnInterrupt(kWho);
    for (const std::string& text : options.texts)
        if (text.empty() || text.find('\n') != std::string::npos)
            throw Failure{kWrongUsage,
                          "TEXT must be one line that is not empty, because each gets one reply"};
    const ServerSettings server = ResolveServer(options.server);
    Session session(options.server.plugin, server);
    session.Connect();

    for (const std::string& text : options.texts) {
        std::string reply;
        const int result = session.SendMessage(text.c_str(), reply);
        if (result < 0)
            throw Failure{kRunFailed, "no reply to '" + text + "' from " + server.Place() + " (" +
                                          session.Describe(result) + "): check the server and the command"};
        session.Print(IsPacket(reply) ? "(a packet of " + std::to_string(reply.size()) + " bytes)\n"
                                      : reply + "\n");
    }
    return kDone;
}

constexpr char kFooter[] = "Waits for each reply without limit; Ctrl-C ends it (exit code 5).\n"
                           "\n"
                           "Examples:\n"
                           "  vrx send --servport 7000 help\n"
                           "  vrx send --servport 7000 --server studio \"gain -6\" status";

} // namespace

void AddSend(CLI::App& app, int& exitCode) {
    const auto options = std::make_shared<SendOptions>();
    CLI::App* command = app.add_subcommand("send", "Send text commands and print the replies");
    command->add_option("TEXT", options->texts, "Commands, one argument each; one reply line each")
        ->required();
    AddConnectionOptions(*command, options->server);
    command->footer(kFooter);
    command->callback(
        [options, &exitCode] { exitCode = RunCommand(kWho, [&] { return RunSend(*options); }); });
}
