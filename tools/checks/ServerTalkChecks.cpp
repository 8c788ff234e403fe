#include "tools/checks/ServerBench.h"
#include "tools/checks/ServerChecks.h"

#include "host/Packet.h"

#include <utility>

namespace vrx::tool {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLongQuiet{200};

/// The talker takes what comes first after a request for its reply.
void ExpectNothingMore(ServerClient& client, const std::string& when) {
    if (client.Quiet(kLongQuiet)) return;
    const ServerReply more = client.Receive(milliseconds(500));
    throw Mismatch{{when + ", nothing comes until the next request", more.Shown(),
                    "a talker takes it for the answer to its next request"}};
}

void Listens(Trial& trial) {
    ServerClient client(trial, false);
    ExpectNothingMore(client, "after connecting");
}

void AnswersConnect(Trial& trial) {
    ServerClient client(trial, false);
    const ServerReply reply = client.Ask(ServerConnectText(trial.Target()));
    Expect(reply.IsAnswer(), "the connect text is answered within ten seconds, by a line with its line feed",
           reply.Shown(), "talkers wait ten seconds and give up");
    Expect(reply.Alone(), "one line answers the connect text", "more than one: " + Shown(reply.bytes),
           "a talker takes the rest for the answer to its next request");
    ExpectNothingMore(client, "after the answer to the connect text");
}

void ConnectsAgain(Trial& trial) {
    ServerClient client(trial);
    for (const char* port : {"0", "7001", "65535"}) {
        const std::string text = "connect," + trial.Target().host + "," + port + "\n";
        const ServerReply reply = client.Ask(text);
        Expect(reply.IsAnswer(), "a further connect text is answered: " + Shown(text), reply.Shown(),
               "a host cannot change its talker's settings");
        ExpectNothingMore(client, "after a further connect text");
    }
}

/// Throws Untried where the server refuses to describe its pins, which it may.
ServerReply AskPins(ServerClient& client, const CheckTarget& target) {
    ServerReply reply = client.Ask(ServerPinRequest(target));
    if (reply.Refused()) throw Untried{"the server does not describe these pins: " + reply.Shown()};
    return reply;
}

void Pins(Trial& trial) {
    ServerClient client(trial);
    ExpectBlock("asked for the pins", AskPins(client, trial.Target()), 2);
    ExpectNothingMore(client, "after the pins");
}

void PinsRepeat(Trial& trial) {
    ServerReply first;
    ServerReply again;
    {
        ServerClient client(trial);
        first = AskPins(client, trial.Target());
        again = AskPins(client, trial.Target());
    }
    ServerClient other(trial); // once the first one is gone: a server may take one client at a time
    const ServerReply elsewhere = AskPins(other, trial.Target());
    for (const ServerReply* reply : {&std::as_const(again), &elsewhere})
        for (const std::size_t at : {host::kReplyHeaderBytes, host::kReplyHeaderBytes + 4})
            ExpectSame("asked again, the pin word at byte " + std::to_string(at) + " is", Hex(first.Word(at)),
                       Hex(reply->Word(at)), "hosts size their blocks by what they asked once");
}

constexpr Check kServerTalkChecks[] = {
    {"listens", CheckTarget::kServer, 1, "The server takes a connection and waits for the first request.", "",
     30, Listens},
    {"answers-connect", CheckTarget::kServer, 1, "The connect text is answered with one line.", "listens", 30,
     AnswersConnect},
    {"connects-again", CheckTarget::kServer, 1, "The connect text may come again on the same connection.",
     "answers-connect", 60, ConnectsAgain},
    {"pins", CheckTarget::kServer, 2, "The pins' reply is a well-formed packet of two words.",
     "answers-connect", 30, Pins},
    {"pins-repeat", CheckTarget::kServer, 2, "The pins are the same each time, for every client.",
     "answers-connect", 60, PinsRepeat},
};

} // namespace

std::span<const Check> ServerTalkChecks() {
    return kServerTalkChecks;
}

} // namespace vrx::tool
