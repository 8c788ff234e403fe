#include "tools/checks/PluginBench.h"
#include "tools/checks/ServerBench.h"
#include "tools/checks/ServerChecks.h"

#include "host/Packet.h"

#include <cstring>

namespace vrx::tool {

namespace {

using std::chrono::milliseconds;

constexpr char kStuck[] = "a talker that asks for it waits ten seconds and loses its connection";

void ExpectAnswered(ServerClient& client, const std::string& request, const std::string& what) {
    const ServerReply reply = client.Ask(request);
    Expect(reply.IsAnswer(), what + " is answered with a line or a packet", reply.Shown(), kStuck);
    Expect(reply.Alone() && client.Quiet(kQuiet), what + " is answered once",
           "more came after " + reply.Shown(), "a talker takes it for the answer to its next request");
}

void UnknownNames(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    for (const std::size_t extra : {0U, 1U, 2U, 3U}) {
        const std::string name = "nobody-knows-this" + std::string(extra, 'x');
        const std::vector<std::uint32_t> in(words);
        const auto out = static_cast<std::uint32_t>(words);
        const ObjectNames cases[] = {{name, target.input, target.output},
                                     {target.layout, name, target.output},
                                     {target.layout, target.input, name}};
        for (const ObjectNames& names : cases) {
            ExpectAnswered(client, SamplesRequest(names, in, out),
                           "a block for " + names.layout + ", " + names.input + " and " + names.output);
            ExpectAnswered(client, PinRequest(names),
                           "a request for the pins " + names.input + " and " + names.output);
        }
    }
    ExpectServed(client, target, words, "after requests for unknown objects");
}

void UnknownText(Trial& trial) {
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    for (const std::string& text :
         {std::string("no such command\n"), std::string("x\n"), std::string("gain = 3, or so\n"),
          std::string("gr\xC3\xBC\xC3\x9F\n"), std::string("%s%n%x\n"), std::string(1500, 'y') + "\n"}) {
        ExpectAnswered(client, text, "the text " + Shown(text));
        ExpectServed(client, trial.Target(), words, "after the text " + Shown(text));
    }
}

/// More than a line's buffer holds: answered once, or the end of the connection.
void LongText(Trial& trial) {
    const std::size_t words = FindBlock(trial).words;
    for (const std::size_t length : {3000U, 10000U, 70000U}) {
        const std::string what = "a text of " + std::to_string(length) + " characters";
        ServerClient client(trial);
        const ServerReply reply = client.Ask(std::string(length, 'y') + "\n");
        Expect(reply.kind != ServerReply::kSilence, what + " is answered, or ends the connection",
               reply.Shown(), kStuck);
        if (!reply.IsAnswer()) continue;
        Expect(reply.Alone() && !client.MoreComes(kQuiet), what + " is answered once",
               "more came after " + reply.Shown(), "a talker takes it for the answer to its next request");
    }
    ServerClient client(trial);
    ExpectServed(client, trial.Target(), words, "after long texts");
}

void UnknownCommand(Trial& trial) {
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    for (const std::uint32_t command : {0x3BU, 0U, 0xFFFFFFFFU}) {
        std::string request = BlockRequest(trial.Target(), words, words);
        std::memcpy(request.data() + 12, &command, sizeof command);
        ExpectAnswered(client, request, "a packet with the command " + Hex(command));
        ExpectServed(client, trial.Target(), words, "after a packet with the command " + Hex(command));
    }
}

void TextAndBlocks(Trial& trial) {
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    for (int i = 0; i < 10; ++i) {
        const ServerReply text = client.Ask("status\n");
        Expect(text.IsAnswer(), "text between blocks is answered", text.Shown(), kStuck);
        Expect(text.Alone() && client.Quiet(kQuiet), "text between blocks is answered by one line",
               "more came: " + Shown(text.bytes), "a talker takes it for the answer to its next request");
        ExpectBlock("after text", client.Ask(BlockRequest(trial.Target(), words, words)), words);
    }
}

/// What nobody asked for waits for the talker's next request and is taken for its answer.
void QuietWhenIdle(Trial& trial) {
    constexpr milliseconds kLong{2500};
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    ExpectBlock("for a block", client.Ask(BlockRequest(trial.Target(), words, words)), words);
    Expect(!client.MoreComes(kLong),
           "between two requests nothing comes, but perhaps the end of the connection",
           "something came that nobody asked for", "a talker takes it for the answer to its next request");
}

/// Hosts ask once, and configure their talkers again later.
void PinsStay(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    const ServerReply before = client.Ask(ServerPinRequest(target));
    if (!before.Accepted()) throw Untried{"the server does not describe these pins: " + before.Shown()};
    for (int i = 0; i < 3; ++i)
        ExpectBlock("after the pins", client.Ask(BlockRequest(target, words, words)), words);
    const ServerReply after = client.Ask(ServerPinRequest(target));
    ExpectBlock("asked for the pins after blocks", after, 2);
    for (const std::size_t at : {host::kReplyHeaderBytes, host::kReplyHeaderBytes + 4})
        ExpectSame("after blocks, the pin word at byte " + std::to_string(at) + " is", Hex(before.Word(at)),
                   Hex(after.Word(at)), "hosts size their blocks by what they asked once");
}

/// A talker that lost its connection sends the next block at once, without a connect text.
void BlockWithoutConnect(Trial& trial) {
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial, false);
    const ServerReply reply = client.Ask(BlockRequest(trial.Target(), words, words));
    Expect(reply.kind != ServerReply::kSilence, "a connection whose first request is a block gets an answer",
           reply.Shown(), kStuck);
    if (!reply.Accepted())
        trial.Warn(
            {"a connection whose first request is a block is served", reply.Shown(),
             "a talker that lost its connection sends its next block without a connect text, and the host "
             "has to configure it again"});
}

void Reconnects(Trial& trial) {
    const std::size_t words = FindBlock(trial).words;
    const LoopTime time;
    for (int i = 1; i <= 20 && time.Left(); ++i) {
        ServerClient client(trial);
        const ServerReply reply = client.Ask(BlockRequest(trial.Target(), words, words));
        Expect(reply.Accepted(), "connection " + std::to_string(i) + " one after the other takes a block",
               reply.Shown(), "hosts that come again are not served");
    }
}

/// What a host sees: the same exchanges through a talker.
void ThroughTalker(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const BlockShape shape = FindBlock(trial);
    const std::size_t words = SegmentWords(trial, shape).value_or(shape.words);
    std::string error;
    const auto plugin = host::Plugin::Load("", error);
    if (!plugin) throw Untried{error};
    CapturedOutput output;
    const std::unique_ptr<CVRXTalker> talker = plugin->CreateTalker();
    TalkerNames names{target.input, target.output, target.layout, 0, target.ConnectHost()};
    trial.Doing("in Configure of a talker");
    Expect(talker->Configure(ArgumentLine(target.ConnectPort(), names).c_str()), "a talker connects",
           output.TakeLines(), "hosts cannot use this server");
    unsigned pins[6];
    trial.Doing("in PinProps of a talker");
    const int pinStatus = talker->PinProps(pins[0], pins[1], pins[2], pins[3], pins[4], pins[5]);
    if (pinStatus == CVRXTalker::kNotAPacket) (void)output.TakeLines();
    Words in(words);
    Words out(words);
    const LoopTime time;
    for (int i = 1; i <= 50 && time.Left(); ++i) {
        trial.Doing("in PumpAudio of a talker");
        const int status = talker->PumpAudio(in.data(), out.data(), static_cast<unsigned>(words),
                                             static_cast<unsigned>(words));
        const std::string printed = output.TakeLines();
        Expect(status >= 0 && printed.empty(), "block " + std::to_string(i) + " passes through a talker",
               "result " + std::to_string(status) + " and " + Shown(printed), "hosts cannot use this server");
        if (i % 10 != 0) continue;
        std::string reply;
        trial.Doing("in SendMessage of a talker");
        const int sent = talker->SendMessage("status", reply);
        ExpectSame("SendMessage of a talker returns", 1, sent, "hosts cannot use this server");
    }
}

constexpr Check kServerStrangeChecks[] = {
    {"unknown-names", CheckTarget::kServer, 5,
     "Requests for objects that nobody knows are answered, and the connection stands.", "takes-blocks", 60,
     UnknownNames},
    {"unknown-text", CheckTarget::kServer, 5, "Any line of text is answered, and the connection stands.",
     "takes-blocks", 60, UnknownText},
    {"long-text", CheckTarget::kServer, 5,
     "Long lines of text are answered once each, or end their connection.", "takes-blocks", 60, LongText},
    {"unknown-command", CheckTarget::kServer, 5,
     "A packet with another command is answered, and the connection "
     "stands.",
     "takes-blocks", 60, UnknownCommand},
    {"text-and-blocks", CheckTarget::kServer, 5, "Text and blocks take turns on one connection.",
     "takes-blocks", 60, TextAndBlocks},
    {"quiet-when-idle", CheckTarget::kServer, 5, "Nothing comes that nobody asked for.", "takes-blocks", 60,
     QuietWhenIdle},
    {"pins-stay", CheckTarget::kServer, 5, "The pins are the same after blocks.", "takes-blocks", 60,
     PinsStay},
    {"block-without-connect", CheckTarget::kServer, 5,
     "A reconnecting talker's block is answered without a connect text; being refused warns.", "takes-blocks",
     60, BlockWithoutConnect},
    {"reconnects", CheckTarget::kServer, 5, "Twenty connections after each other are served.", "takes-blocks",
     60, Reconnects},
    {"through-talker", CheckTarget::kServer, 5, "A talker connects, pumps and sends text.", "takes-blocks",
     60, ThroughTalker},
};

} // namespace

std::span<const Check> ServerStrangeChecks() {
    return kServerStrangeChecks;
}

} // namespace vrx::tool
