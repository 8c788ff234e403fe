#include "host/Packet.h"
#include "tools/commands/Client.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/Interrupt.h"

#include <string>
#include <vector>

namespace vrx::tool {

namespace {

struct SendOptions {
    ConnectionOptions server;
    std::vector<std::string> texts;
};

/// The channel hands over a binary packet as a reply text, too.
bool IsPacket(const std::string& reply) {
    return reply.starts_with(host::kPacketTagBytes);
}

int RunSend(const SendOptions& options) {
    ExitOnInterrupt("vrx send");
    for (const std::string& text : options.texts)
        if (text.empty() || text.find('\n') != std::string::npos)
            throw Failure{kWrongUsage,
                          "TEXT must be one line that is not empty, because each gets one reply"};
    Client client(options.server);
    client.Connect();

    for (const std::string& text : options.texts) {
        std::string reply;
        const int result = client.Session().SendMessage(text.c_str(), reply);
        if (result < 0)
            throw Failure{kRunFailed, "no reply to '" + text + "' from " + client.Server().Place() + " (" +
                                          client.Session().Describe(result) +
                                          "): check the server and the command"};
        if (IsPacket(reply)) reply = "(a packet of " + std::to_string(reply.size()) + " bytes)";
        client.Print((client.Output().IsTerminal() ? WithoutControls(reply) : reply) + "\n");
    }
    return kDone;
}

constexpr char kSendFooter[] = "Waits for each reply without limit; Ctrl-C ends it (exit code 5).\n"
                               "\n"
                               "Examples:\n"
                               "  vrx send --servport 7000 help\n"
                               "  vrx send --servport 7000 --server studio \"gain -6\" status";

} // namespace

void AddSend(CLI::App& app, int& exitCode) {
    Subcommand<SendOptions> command(app, exitCode, "send", "Send text commands and print the replies",
                                    RunSend, kSendFooter);
    SendOptions& options = command.Values();
    command.Command()
        .add_option("TEXT", options.texts, "Commands, one argument each; one reply line each")
        ->required();
    AddConnectionOptions(command.Command(), options.server);
}

} // namespace vrx::tool
