#include "tools/checks/ServerBench.h"
#include "tools/checks/ServerChecks.h"

#include "host/Packet.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <deque>
#include <thread>

namespace vrx::tool {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kSecond{1000};
constexpr milliseconds kSlowNetwork{2000};
/// A server has a second for others while one client misbehaves; the rest is room for a busy machine.
constexpr milliseconds kSecondAndRoom{4000};

/// Sends a request in pieces of so many bytes, each in a segment of its own.
void SendInPieces(ServerClient& client, const std::string& request, std::size_t piece) {
    for (std::size_t at = 0; at < request.size(); at += piece) {
        client.Send(std::string_view(request).substr(at, piece));
        std::this_thread::sleep_for(
            milliseconds(1)); // they only have to be apart; right answers do not depend on it
    }
}

void InPieces(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const std::size_t words = FindBlock(trial).words;
    const char* means = "networks cut requests anywhere: hosts lose blocks on some of them";
    ServerClient client(trial);
    SendInPieces(client, ServerConnectText(target), 1);
    const ServerReply text = client.Receive();
    Expect(text.IsAnswer(), "a connect text that comes byte by byte is answered", text.Shown(), means);
    SendInPieces(client, ServerPinRequest(target), 1);
    const ServerReply pins = client.Receive();
    Expect(pins.IsAnswer(), "a request for the pins that comes byte by byte is answered", pins.Shown(),
           means);
    const std::string block = BlockRequest(target, words, words);
    client.Send(std::string_view(block).substr(0, 30));
    std::this_thread::sleep_for(kSlowNetwork);
    client.Send(std::string_view(block).substr(30));
    ExpectBlock("for a block that comes in two pieces, two seconds apart", client.Receive(), words);
    for (const std::size_t piece :
         {std::max<std::size_t>(1, block.size() / 700), std::size_t{7}, block.size() - 1}) {
        if (block.size() / piece > 1000) continue;
        SendInPieces(client, block, piece);
        ExpectBlock("for a block that comes in pieces of " + std::to_string(piece) + " bytes",
                    client.Receive(), words);
    }
}

/// Not what a talker does, but what a proxy or a slow server makes of what it does.
void TwoAtATime(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const std::size_t words = FindBlock(trial).words;
    const std::string block = BlockRequest(target, words, words);
    const std::size_t size = host::kReplyHeaderBytes + 4 * words;
    const char* means = "a request that comes together with another one is lost";
    ServerClient client(trial);
    client.Send(block + block);
    ExpectSame("two blocks sent at once are answered by packets of bytes in all:", 2 * size,
               client.Take(2 * size).size(), means);
    client.Send(ServerConnectText(target) + block);
    const ServerReply line = client.Receive();
    Expect(line.IsAnswer(), "a text that comes together with a block is answered", line.Shown(), means);
    std::string packet = line.Behind();
    packet += client.Take(size - std::min(size, packet.size()));
    Expect(packet.size() == size && packet.starts_with(host::kPacketTagBytes),
           "a block that comes behind a text is answered by a packet of " + std::to_string(size) +
               " bytes behind the text's answer",
           Shown(packet), means);
    ExpectServed(client, target, words, "after requests that came together");
}

/// Clients that end in the middle of something.
void AbruptEnds(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const std::size_t words = FindBlock(trial).words;
    const std::string block = BlockRequest(target, words, words);
    const std::string_view cuts[] = {std::string_view("conn"),
                                     std::string_view(block).substr(0, 2),
                                     std::string_view(block).substr(0, 6),
                                     std::string_view(block).substr(0, 18),
                                     std::string_view(block).substr(0, block.size() - 1),
                                     block,
                                     ""};
    for (const std::string_view cut : cuts) {
        for (const bool reset : {false, true}) {
            ServerClient client(trial);
            client.Send(cut);
            reset ? client.Reset() : client.Close();
            ExpectOthersServed(trial, words,
                               "after a client that " + std::string(reset ? "reset" : "closed") + " after " +
                                   std::to_string(cut.size()) + " bytes of a request");
        }
    }
}

/// A server that keeps the connections of clients that have gone runs out of them.
void EndsWithClient(Trial& trial) {
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    ExpectServed(client, trial.Target(), words, "after the connect text");
    client.HalfClose();
    const ServerReply last = client.Receive();
    if (last.kind == ServerReply::kSilence)
        trial.Warn({"when a client ends its side, the server closes the connection",
                    "it stays open for ten seconds",
                    "a server that keeps the connections of clients that have gone takes no more one day"});
}

/// Up to the words that a talker can collect from several receives.
void WholeReplies(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    const ServerReply reply = client.Ask(BlockRequest(target, words, host::kWholeReplyWords));
    const bool ended = reply.kind == ServerReply::kEnd || reply.kind == ServerReply::kReset;
    if (reply.Refused() || (ended && reply.bytes.empty()))
        throw Untried{"the server gives no 2,040 words for a block of " + std::to_string(words)};
    ExpectBlock("asked for 2,040 words", reply, host::kWholeReplyWords);
    ExpectServed(client, target, words, "after a reply of 2,040 words");
}

/// What stands behind the head.
std::string Samples(const ServerReply& reply) {
    return reply.bytes.substr(std::min(reply.bytes.size(), host::kReplyHeaderBytes));
}

/// The replies to so many times this request, which a server's state makes differ from each other.
std::vector<std::string> Replies(ServerClient& client, const std::string& request, int blocks) {
    std::vector<std::string> replies;
    for (int i = 0; i < blocks; ++i) {
        const ServerReply reply = client.Ask(request);
        Expect(reply.Accepted(), "each client's blocks are answered", reply.Shown(),
               "a client is not served");
        replies.push_back(Samples(reply));
    }
    return replies;
}

/// The replies that a client gets to so many times this request; none when they differ from client to client.
std::vector<std::string> SameReplies(Trial& trial, const std::string& request, int blocks) {
    const auto alone = [&] {
        ServerClient client(trial);
        return Replies(client, request, blocks);
    };
    std::vector<std::string> first = alone();
    if (first != alone()) first.clear();
    return first;
}

/// Throws Untried where the server says that it takes no more clients, which it may.
void Fill(Trial& trial, std::deque<ServerClient>& clients, int count) {
    for (int i = 0; i < count; ++i) {
        ServerClient& client = clients.emplace_back(trial, false);
        const ServerReply reply = client.Ask(ServerConnectText(trial.Target()));
        const bool told = reply.kind == ServerReply::kEnd || reply.kind == ServerReply::kReset;
        if (told && i > 0) throw Untried{"the server takes no more than " + std::to_string(i) + " clients"};
        Expect(reply.IsAnswer(),
               "client " + std::to_string(i + 1) + " of " + std::to_string(count) + " is answered",
               reply.Shown(), "only so many hosts can use the server at a time");
    }
}

/// A request for words that are all this sample.
std::string ConstantRequest(const CheckTarget& target, std::size_t words, float sample) {
    const std::vector<std::uint32_t> in(words, std::bit_cast<std::uint32_t>(sample));
    return SamplesRequest(ServerNames(target), in, static_cast<std::uint32_t>(words));
}

/// Every other client sends another sound, at the same time.
void ManyClients(Trial& trial) {
    constexpr int kClients = 24;
    constexpr std::size_t kRounds = 5;
    const std::size_t words = FindBlock(trial).words;
    const std::string requests[] = {BlockRequest(trial.Target(), words, words),
                                    ConstantRequest(trial.Target(), words, 0.25F)};
    const std::vector<std::string> alone[] = {SameReplies(trial, requests[0], int{kRounds}),
                                              SameReplies(trial, requests[1], int{kRounds})};
    std::deque<ServerClient> clients;
    Fill(trial, clients, kClients);
    for (std::size_t round = 0; round < kRounds; ++round) {
        for (std::size_t i = 0; i < clients.size(); ++i) clients[i].Send(requests[i % 2]);
        for (std::size_t i = 0; i < clients.size(); ++i) {
            const ServerReply reply = clients[i].Receive();
            const bool turnedAway =
                round == 0 && i > 0 && (reply.kind == ServerReply::kEnd || reply.kind == ServerReply::kReset);
            if (reply.Refused() || turnedAway)
                throw Untried{"the server does not take blocks of so many clients: " + reply.Shown()};
            ExpectBlock("with 24 clients at a time", reply, words);
            if (!alone[i % 2].empty())
                ExpectBytes("block " + std::to_string(round + 1) + " of each of 24 clients, samples",
                            alone[i % 2][round], Samples(reply), "one host hears what another one sends");
        }
    }
}

void SeparateState(Trial& trial) {
    constexpr int kBlocks = 6;
    const CheckTarget& target = trial.Target();
    const std::size_t words = FindBlock(trial).words;
    const std::string request = BlockRequest(target, words, words);
    const std::vector<std::string> first = SameReplies(trial, request, kBlocks);
    if (first.empty()) throw Untried{"the server gives other samples each time"};
    ServerClient one(trial, false);
    ServerClient other(trial, false);
    if (!one.Ask(ServerConnectText(target)).IsAnswer() || !other.Ask(ServerConnectText(target)).IsAnswer())
        throw Untried{"the server takes one client at a time"};
    for (int i = 0; i < kBlocks; ++i) {
        (void)other.Ask(ConstantRequest(target, words, 0.25F));
        const ServerReply reply = one.Ask(request);
        ExpectBytes("block " + std::to_string(i + 1) + " beside another client, samples",
                    first[static_cast<std::size_t>(i)], Samples(reply),
                    "one host hears what another one sends");
    }
}

/// Half a request, or replies that nobody takes: the others go on.
void SlowClients(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const std::size_t words = FindBlock(trial).words;
    const std::string block = BlockRequest(target, words, words);
    std::deque<ServerClient> slow;
    Fill(trial, slow, 3);
    slow[0].Send(std::string_view(block).substr(0, block.size() / 2));
    slow[1].Send("half a li");
    for (int i = 0; i < 20 && slow[2].Send(block, kSecond); ++i) { // nobody receives
    }
    ExpectOthersServed(trial, words, "beside clients that stop in the middle of a request", kSecondAndRoom);
    slow[0].Send(std::string_view(block).substr(block.size() / 2));
    ExpectBlock("when the rest of a slow client's request comes", slow[0].Receive(), words);
}

struct Malformed {
    const char* name;
    std::size_t at; ///< the word that is changed
    std::uint32_t word;
    bool atOnce; ///< nothing more can be missing: the client has to be refused now
};

constexpr Malformed kMalformed[] = {
    {"a length of 0", 4, 0, true},
    {"a length of 7", 4, 7, true},
    {"a length of 19", 4, 19, true},
    {"a length of 4,294,967,295", 4, 0xFFFFFFFF, false},
    {"a length of 2,147,483,648", 4, 0x80000000, false},
    {"an argument count of 0", 8, 0, true},
    {"an argument count of 1,000,000", 8, 1000000, true},
    {"an argument count of 4,294,967,295", 8, 0xFFFFFFFF, true},
    {"an argument count of 1,073,741,820", 8, 0x3FFFFFFC, true},
    {"a reply count of 4,294,967,295", 16, 0xFFFFFFFF, true},
    {"a reply count of 1,073,741,824", 16, 0x40000000, true},
    {"a reply count of 0", 16, 0, true},
};

void MalformedRequests(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const std::size_t words = FindBlock(trial).words;
    for (const Malformed& row : kMalformed) {
        const std::string when = std::string("after a packet with ") + row.name;
        std::string request = BlockRequest(target, words, words);
        std::memcpy(request.data() + row.at, &row.word, sizeof row.word);
        ServerClient client(trial);
        client.Send(request);
        ExpectOthersServed(trial, words, when, kSecondAndRoom);
        const ServerReply reply = client.Receive(row.atOnce ? 3 * kSecond : kSecond);
        if (row.atOnce)
            Expect(reply.kind != ServerReply::kSilence || !reply.bytes.empty(),
                   when + ", this client is refused: a line, a negative status, or the end", "nothing comes",
                   "a broken host waits instead of seeing what is wrong");
        else if (reply.kind == ServerReply::kSilence)
            trial.Warn({when + ", this client is refused", "the server waits for the rest of it",
                        "a broken host waits instead of seeing what is wrong"});
        client.Close();
        ExpectOthersServed(trial, words, when + " and the end of its client", kSecondAndRoom);
    }
}

void EndlessLine(Trial& trial) {
    constexpr std::size_t kPiece = 65536;
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    for (int i = 0; i < 64 && client.Quiet(milliseconds(0)); ++i)
        if (!client.Send(std::string(kPiece, 'x'), kSecond)) break;
    ExpectOthersServed(trial, words, "beside a client that sends text without an end", kSecondAndRoom);
}

void RandomRequests(Trial& trial) {
    const std::size_t words = FindBlock(trial).words;
    const LoopTime time;
    for (int round = 0; round < 40 && time.Left(); ++round) {
        ServerClient client(trial);
        std::string bytes = trial.Below(2) == 0 ? std::string(host::kPacketTagBytes) : std::string();
        const std::size_t length = 1 + trial.Below(400);
        while (bytes.size() < length) bytes += static_cast<char>(trial.Random()());
        client.Send(bytes);
        (void)client.Receive(milliseconds(20));
        trial.Below(2) == 0 ? client.Reset() : client.Close();
        ExpectOthersServed(trial, words, "after " + std::to_string(bytes.size()) + " random bytes",
                           kSecondAndRoom);
    }
}

/// Packets whose objects' path is not what it should be: answered, or the end of this client and of no other.
void OddPaths(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const std::size_t words = FindBlock(trial).words;
    const std::vector<std::uint32_t> in(words);
    const auto out = static_cast<std::uint32_t>(words);
    std::string unended = BlockRequest(target, words, words);
    for (std::size_t at = unended.size(); unended[at - 1] == '\0'; --at) unended[at - 1] = 'x';
    const std::pair<const char*, std::string> kRequests[] = {
        {"no zero byte behind the path", unended},
        {"empty names", SamplesRequest({"", "", ""}, in, out)},
        {"names of 5,000 characters",
         SamplesRequest({std::string(5000, 'l'), std::string(5000, 'i'), std::string(5000, 'o')}, in, out)},
        {"names of commas", SamplesRequest({",,,", ",,", ",,,,"}, in, out)},
        {"names of percent signs", SamplesRequest({"%s%n", "%n%n", "%s%s%s"}, in, out)},
    };
    for (const auto& [name, request] : kRequests) {
        const std::string when = std::string("after a packet with ") + name;
        ServerClient client(trial);
        const ServerReply reply = client.Ask(request);
        Expect(reply.kind != ServerReply::kSilence,
               when + ", this client gets an answer or the end of the connection", reply.Shown(),
               "a broken host waits instead of seeing what is wrong");
        client.Close();
        ExpectOthersServed(trial, words, when, kSecondAndRoom);
    }
}

constexpr Check kServerCrowdChecks[] = {
    {"in-pieces", CheckTarget::kServer, 6, "Requests may come byte by byte.", "takes-blocks", 60, InPieces},
    {"two-at-a-time", CheckTarget::kServer, 6, "Two requests may come at once.", "takes-blocks", 60,
     TwoAtATime},
    {"abrupt-ends", CheckTarget::kServer, 6, "Clients that end in the middle of a request harm nobody.",
     "takes-blocks", 60, AbruptEnds},
    {"ends-with-client", CheckTarget::kServer, 6,
     "When a client ends, the server closes its connection (warns).", "takes-blocks", 60, EndsWithClient},
    {"whole-replies", CheckTarget::kServer, 6, "Replies of 2,040 words come whole.", "takes-blocks", 60,
     WholeReplies},
    {"many-clients", CheckTarget::kServer, 7, "Twenty-four clients are served at a time.", "takes-blocks", 60,
     ManyClients},
    {"separate-state", CheckTarget::kServer, 7, "Clients do not hear each other.", "takes-blocks", 60,
     SeparateState},
    {"slow-clients", CheckTarget::kServer, 7, "Slow clients hold up nobody.", "takes-blocks", 60,
     SlowClients},
    {"malformed-requests", CheckTarget::kServer, 8,
     "A client with absurd lengths and counts is refused, and others are served within a second.",
     "takes-blocks", 150, MalformedRequests},
    {"endless-line", CheckTarget::kServer, 8, "Text without an end holds up nobody.", "takes-blocks", 60,
     EndlessLine},
    {"odd-paths", CheckTarget::kServer, 8, "Odd and unended names of objects harm nobody.", "takes-blocks",
     60, OddPaths},
    {"random-requests", CheckTarget::kServer, 8, "Random bytes harm nobody else.", "takes-blocks", 60,
     RandomRequests},
};

} // namespace

std::span<const Check> ServerCrowdChecks() {
    return kServerCrowdChecks;
}

} // namespace vrx::tool
