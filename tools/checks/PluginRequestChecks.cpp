#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"

#include <arpa/inet.h>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>

namespace vrx::tool {

namespace {

using std::chrono::milliseconds;

constexpr char kServerCannotRead[] = "the server cannot read this request, or does something else";

/// The next request of the server; throws Mismatch when none comes.
StubServer::Request Next(StubServer& server, const std::string& after) {
    auto request = server.Take();
    Expect(request.has_value(), after + " sends a request", after + " sent nothing", kServerCannotRead);
    return std::move(*request);
}

void ExpectNothingMore(StubServer& server, const std::string& after) {
    const auto more = server.Take(milliseconds(100));
    Expect(!more, "one request for " + after, "another one: " + (more ? Shown(more->bytes) : std::string()),
           kServerCannotRead);
}

bool LocalhostIsKnown() {
    const hostent* found = ::gethostbyname("localhost");
    in_addr loopback{htonl(INADDR_LOOPBACK)};
    return found != nullptr && found->h_addrtype == AF_INET && found->h_addr_list[0] != nullptr &&
           std::memcmp(found->h_addr_list[0], &loopback, sizeof loopback) == 0;
}

void ConnectBytes(Trial& trial) {
    PluginBench bench(trial);
    TalkerNames cases[] = {{}, {"In", "Out", "Main", 0}, {"In", "Out", "Main", 65535}, {}};
    cases[3].host = "localhost";
    for (const TalkerNames& names : cases) {
        if (names.host == "localhost" && !LocalhostIsKnown()) continue;
        StubServer server;
        CheckedTalker talker = bench.Make();
        (void)talker.Configure(ArgumentLine(server.Port(), names));
        ExpectBytes("Configure sends", ConnectText(names), Next(server, "Configure").bytes,
                    kServerCannotRead);
        ExpectNothingMore(server, "Configure");
    }
}

void ConnectAgain(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    const TalkerNames other{"Mic", "Ear", "Side", 7002};
    ExpectSame("a second Configure returns", true, talker.Configure(ArgumentLine(server.Port(), other)),
               "hosts change the names of objects so");
    const auto connect = Next(server, "a second Configure");
    ExpectBytes("a second Configure sends", ConnectText(other), connect.bytes, kServerCannotRead);
    ExpectSame("connections after a second Configure:", 1, server.Connections(),
               "the server loses the client's state, and other clients their turn");
    GuardedWords out(2);
    const Words in = Numbered(2, 3);
    (void)talker.Pump(in.data(), out.Data(), 2, 2);
    ExpectBytes("PumpAudio after a second Configure sends", PumpPacket(in, 2, other),
                Next(server, "PumpAudio").bytes, "the new names do not reach the server");
    PinSix pins;
    (void)talker.Pins(pins);
    ExpectBytes("PinProps after a second Configure sends", PinPacket(other), Next(server, "PinProps").bytes,
                "the new names do not reach the server");
}

/// An open connection stays, whatever server a later Configure names.
void OpenConnectionStays(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    StubServer other;
    CheckedTalker talker = bench.Connected(server);
    ExpectSame("a second Configure with another port returns", true,
               talker.Configure(ArgumentLine(other.Port())), "hosts that change other settings rely on it");
    const auto connect = Next(server, "a second Configure with another port");
    ExpectBytes("over the open connection a second Configure sends", ConnectText(), connect.bytes,
                "hosts rely on an open connection to stay with its server");
    ExpectSame("connections to the other server:", 0, other.Connections(),
               "hosts rely on an open connection to stay with its server");
}

void PumpBytes(PluginBench& bench, StubServer& server, CheckedTalker& talker, std::size_t inCount,
               std::size_t outCount, const TalkerNames& names = {}) {
    (void)bench;
    const std::string call =
        "PumpAudio with " + std::to_string(inCount) + " words in and " + std::to_string(outCount) + " out";
    Words in = Numbered(inCount, 0x5A);
    const Words before = in;
    GuardedWords out(outCount);
    server.Forget();
    (void)talker.Pump(inCount > 0 ? in.data() : nullptr, out.Data(), static_cast<unsigned>(inCount),
                      static_cast<unsigned>(outCount));
    ExpectBytes(call + " sends", PumpPacket(before, static_cast<std::uint32_t>(outCount), names),
                Next(server, call).bytes, kServerCannotRead);
    ExpectNothingMore(server, call);
}

void BlockBytes(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (const std::size_t words : {0U, 1U, 2U, 3U, 357U, 358U, 359U, 1024U, 4096U})
        PumpBytes(bench, server, talker, words, words);
}

void BlockCounts(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    constexpr std::pair<std::size_t, std::size_t> kCounts[] = {
        {0, 5}, {5, 0}, {1, 4096}, {4096, 1}, {7, 300}};
    for (const auto& [in, out] : kCounts) PumpBytes(bench, server, talker, in, out);
}

void LargeBlockBytes(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (const std::size_t words : {5000U, 65536U, 262137U}) PumpBytes(bench, server, talker, words, 1);
    for (const std::size_t words : {70000U, 262137U}) {
        server.Then(Answer::Bytes(ReplyPacket(0, 0, 0, Words{1})));
        PumpBytes(bench, server, talker, 1, words);
    }
}

/// The path's length modulo 4 takes every value, for both kinds of request.
void PathPadding(Trial& trial) {
    PluginBench bench(trial);
    for (std::size_t extra = 0; extra < 9; ++extra) {
        const TalkerNames names{"In" + std::string(extra / 2, 'i'), "Out" + std::string((extra + 1) / 2, 'o'),
                                std::string(1 + extra / 3, 'M')};
        StubServer server;
        CheckedTalker talker = bench.Connected(server, names);
        PumpBytes(bench, server, talker, 2, 2, names);
        PinSix pins;
        (void)talker.Pins(pins);
        ExpectBytes("PinProps with the names " + names.input + " and " + names.output + " sends",
                    PinPacket(names), Next(server, "PinProps").bytes, kServerCannotRead);
    }
}

void LongNames(Trial& trial) {
    PluginBench bench(trial);
    for (const std::size_t length : {200U, 1000U, 5000U}) {
        const TalkerNames names{std::string(length, 'i'), std::string(length + 1, 'o'),
                                std::string(length + 2, 'l')};
        StubServer server;
        CheckedTalker talker = bench.Connected(server, names);
        PumpBytes(bench, server, talker, 2, 2, names);
    }
}

void PinBytes(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    PinSix pins;
    (void)talker.Pins(pins);
    ExpectBytes("PinProps sends", PinPacket(), Next(server, "PinProps").bytes, kServerCannotRead);
    ExpectNothingMore(server, "PinProps");
}

struct Text {
    const char* name;
    std::string sent;
    std::string onTheWire;
};

void TextBytes(Trial& trial) {
    std::string longText(2500, 'x');
    for (std::size_t i = 0; i < longText.size(); ++i) longText[i] = static_cast<char>('a' + i % 26);
    const Text kTexts[] = {
        {"a word", "status", "status\n"},
        {"one character", "x", "x\n"},
        {"a line feed at the end", "status\n", "status\n"},
        {"a line feed alone", "\n", "\n"},
        {"two line feeds at the end", "status\n\n", "status\n\n"},
        {"a line feed inside", "two\nlines", "two\nlines\n"},
        {"a carriage return", "status\r\n", "status\r\n"},
        {"a carriage return at the end", "status\r", "status\r\n"},
        {"blanks at both ends", "  gain 3 ", "  gain 3 \n"},
        {"bytes beyond ASCII", "gr\xC3\xBC\xC3\x9F\xFF", "gr\xC3\xBC\xC3\x9F\xFF\n"},
        {"percent signs", "%s%d%n 100%%", "%s%d%n 100%%\n"},
        {"1,023 characters", longText.substr(0, 1023), longText.substr(0, 1023) + "\n"},
        {"1,024 characters", longText.substr(0, 1024), longText.substr(0, 1024) + "\n"},
        {"2,500 characters", longText, longText + "\n"},
        {"70,000 characters", std::string(70000, 'z'), std::string(70000, 'z') + "\n"},
    };
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (const Text& text : kTexts) {
        Answer answer = Answer::Bytes("ok\n");
        answer.readAtLeast = text.onTheWire.size();
        server.Then(answer);
        std::string reply;
        (void)talker.Send(text.sent.c_str(), reply);
        ExpectBytes(std::string("SendMessage of ") + text.name + " sends", text.onTheWire,
                    Next(server, "SendMessage").bytes, "the server sees another command");
        ExpectNothingMore(server, "SendMessage");
    }
}

void EmptyText(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (const char* text : {"", static_cast<const char*>(nullptr)}) {
        Answer unasked = Answer::Bytes("news\n");
        unasked.unasked = true;
        server.Then(unasked);
        std::string reply = "before";
        const std::string call = text == nullptr ? "SendMessage(null)" : "SendMessage(\"\")";
        const char* means = "hosts take up what a server says by itself in this way";
        ExpectSame(call + " returns", 1, talker.Send(text, reply), means);
        ExpectBytes(call + " sends", "", Next(server, call).bytes, means);
        ExpectSame(call + " gets the reply", std::string("news"), reply, means);
    }
}

void OneConnection(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (int i = 0; i < 20; ++i) {
        GuardedWords out(8);
        const Words in = Numbered(8, 1);
        PinSix pins;
        std::string reply;
        (void)talker.Pump(in.data(), out.Data(), 8, 8);
        (void)talker.Pins(pins);
        (void)talker.Send("status", reply);
    }
    ExpectSame("connections for sixty requests:", 1, server.Connections(),
               "servers keep a client's state by its connection");
}

constexpr Check kPluginRequestChecks[] = {
    {"connect-bytes", CheckTarget::kPlugin, 3, "Configure sends \"connect,HOST,CLPORT\" and a line feed.",
     "connects", 20, ConnectBytes},
    {"connect-again", CheckTarget::kPlugin, 3,
     "A second Configure uses the same connection and the new names.", "connects", 20, ConnectAgain},
    {"open-connection-stays", CheckTarget::kPlugin, 3,
     "An open connection stays with its server when Configure names another.", "connects", 20,
     OpenConnectionStays},
    {"block-bytes", CheckTarget::kPlugin, 3, "PumpAudio's packet is right for blocks of 0 to 4,096 words.",
     "connects", 30, BlockBytes},
    {"block-counts", CheckTarget::kPlugin, 3,
     "PumpAudio's packet is right when more goes in than out, or less.", "connects", 20, BlockCounts},
    {"large-block-bytes", CheckTarget::kPlugin, 3, "PumpAudio's packet is right for blocks of up to 1 MiB.",
     "connects", 30, LargeBlockBytes},
    {"path-padding", CheckTarget::kPlugin, 3,
     "The objects' path is ended and padded by one to four zeroes, for every length.", "connects", 30,
     PathPadding},
    {"long-names", CheckTarget::kPlugin, 3, "Names of thousands of characters go out whole.", "connects", 20,
     LongNames},
    {"pin-bytes", CheckTarget::kPlugin, 3, "PinProps' packet is right.", "connects", 20, PinBytes},
    {"text-bytes", CheckTarget::kPlugin, 3,
     "SendMessage sends the text and one line feed unless it ends in one.", "connects", 40, TextBytes},
    {"empty-text", CheckTarget::kPlugin, 3,
     "SendMessage of \"\" or null sends nothing and waits for a reply.", "connects", 20, EmptyText},
    {"one-connection", CheckTarget::kPlugin, 3, "All requests go over one connection.", "connects", 20,
     OneConnection},
};

} // namespace

std::span<const Check> PluginRequestChecks() {
    return kPluginRequestChecks;
}

} // namespace vrx::tool
