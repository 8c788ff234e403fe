#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"

#include "host/Packet.h"

#include <climits>
#include <cstring>

namespace vrx::tool {

namespace {

using std::chrono::milliseconds;

constexpr char kLostAudio[] = "a host plays something else than the server computed";

void Status(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    std::uint32_t figure = 0;
    for (const int status : {0, 1, -1, -5, 7, -1000, -9995, -9997, -9999, INT_MAX, INT_MIN}) {
        const auto word = static_cast<std::uint32_t>(status);
        ++figure;
        const std::string when = "for a reply with the status " + std::to_string(status) + ", ";
        const char* means = "hosts get the server's status as it is, whatever its sign";
        server.Then(Answer::Bytes(ReplyPacket(word, figure << 8, figure << 9, Words{11, 12})));
        GuardedWords out(2);
        const Words in = Numbered(2, 1);
        ExpectSame(when + "PumpAudio returns", status, talker.Pump(in.data(), out.Data(), 2, 2), means);
        ExpectWords(when + "out", {11, 12}, out.Copy(),
                    "an accepted reply is written to out, whatever its status");
        const auto shown = static_cast<float>(figure);
        const char* meansFigures = "the figures are those of the last accepted reply, whatever its status";
        ExpectSame(when + "GetAverageCycles returns", shown, talker.Average(), meansFigures);
        ExpectSame(when + "GetPumpCycles returns", 2 * shown, talker.Pumped(), meansFigures);

        server.Then(Answer::Bytes(ReplyPacket(word, 0, 0, Words{0x400, 0x800})));
        PinSix pins = {};
        ExpectSame(when + "PinProps returns", status, talker.Pins(pins), means);
        Expect(pins[0] == 1 && pins[3] == 2, when + "PinProps delivers the pins' values",
               "it did not write them", "an accepted reply is delivered, whatever its status");
        bench.ExpectPrinted("an accepted reply", "");
    }
}

struct Figure {
    std::uint32_t word;
    float shown;
};

void CycleFigures(Trial& trial) {
    constexpr Figure kFigures[] = {
        {0x00001000, 16.0F},         {0x00012380, 291.0F},        {0x000000FF, 0.0F},
        {0x00000100, 1.0F},          {0x7FFFFFFF, 8388607.0F},    {0xFFFFFF00, 4294967296.0F},
        {0x80000000, 4286578688.0F}, {0xFFFFFFFF, 4294967296.0F}, {0xFFFF0000, 4294967040.0F},
        {0x00000000, 0.0F},
    };
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (const Figure& figure : kFigures) {
        GuardedWords out(1);
        const std::uint32_t in = 1;
        const std::string when = "for a cycle word of " + Hex(figure.word) + ", ";
        const char* means =
            "hosts show another load than the server reported: cycle words have 8 fractional bits, "
            "which are dropped, and negative ones show near 2^32";
        server.Then(Answer::Bytes(ReplyPacket(0, figure.word, 0x0003B200, Words{5})));
        (void)talker.Pump(&in, out.Data(), 1, 1);
        ExpectSame(when + "GetAverageCycles returns", figure.shown, talker.Average(), means);
        ExpectSame("for a pump cycle word of 0x0003b200, GetPumpCycles returns", 946.0F, talker.Pumped(),
                   means);
        server.Then(Answer::Bytes(ReplyPacket(0, 0x00071100, figure.word, Words{5})));
        (void)talker.Pump(&in, out.Data(), 1, 1);
        ExpectSame(when + "GetPumpCycles returns", figure.shown, talker.Pumped(), means);
        ExpectSame("for an average cycle word of 0x00071100, GetAverageCycles returns", 1809.0F,
                   talker.Average(), means);
    }
}

void FiguresStayWithBlocks(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Then(Answer::Bytes(ReplyPacket(0, 0x1000, 0x2000, {})));
    (void)talker.Pump(nullptr, nullptr, 0, 0);
    server.Then(Answer::Bytes(ReplyPacket(0, 0x5000, 0x6000, Words{0, 0})));
    PinSix pins;
    (void)talker.Pins(pins);
    std::string reply;
    (void)talker.Send("status", reply);
    (void)talker.Configure(ArgumentLine(server.Port()));
    const char* means = "only blocks change the figures: a host shows what another request cost";
    ExpectSame("after PinProps, SendMessage and Configure, GetAverageCycles returns", 16.0F, talker.Average(),
               means);
    ExpectSame("after PinProps, SendMessage and Configure, GetPumpCycles returns", 32.0F, talker.Pumped(),
               means);
    ExpectSame("read again, GetAverageCycles returns", 16.0F, talker.Average(), means);
    ExpectSame("read again, GetPumpCycles returns", 32.0F, talker.Pumped(), means);
}

/// One exchange with guards around both buffers. Another try makes up for a reply that the system delivered in pieces.
void ExchangeBlock(PluginBench& bench, std::size_t inCount, std::size_t outCount, bool inPlace) {
    constexpr int kTries = 4;
    const std::string call = "PumpAudio with " + std::to_string(inCount) + " words in and " +
                             std::to_string(outCount) + " out" + (inPlace ? " in the same memory" : "");
    for (int tries = 1;; ++tries) {
        StubServer server;
        CheckedTalker talker = bench.Connected(server);
        const Words reply = Numbered(outCount, 0x3D);
        const Words sent = Numbered(inCount, 0x17);
        server.Then(Answer::Bytes(ReplyPacket(0, 0, 0, reply)));
        GuardedWords in(std::max(inCount, inPlace ? outCount : 0));
        std::copy(sent.begin(), sent.end(), in.Data());
        GuardedWords other(outCount);
        GuardedWords& out = inPlace ? in : other;
        const int result = talker.Pump(in.Data(), out.Data(), static_cast<unsigned>(inCount),
                                       static_cast<unsigned>(outCount));
        in.CheckGuards(call);
        out.CheckGuards(call);
        ExpectSame(call + " returns", 0, result, kLostAudio);
        const auto request = server.Take();
        Expect(request.has_value(), call + " sends a request", "nothing came", kLostAudio);
        ExpectBytes(call + " sends", PumpPacket(sent, static_cast<std::uint32_t>(outCount)), request->bytes,
                    kLostAudio);
        Words got = out.Copy();
        got.resize(outCount);
        if (got != reply && tries < kTries) continue;
        ExpectWords(call + ", out", reply, got, kLostAudio);
        if (!inPlace)
            ExpectWords(call + ", in afterwards", sent, in.Copy(), "the host's own samples are damaged");
        return;
    }
}

void Data(Trial& trial) {
    PluginBench bench(trial);
    for (const std::size_t words : {1U, 2U, 64U, 358U, 1024U, 4096U})
        ExchangeBlock(bench, words, words, false);
}

void DataInPlace(Trial& trial) {
    PluginBench bench(trial);
    for (const std::size_t words : {1U, 358U, 4096U}) ExchangeBlock(bench, words, words, true);
}

void DataCounts(Trial& trial) {
    PluginBench bench(trial);
    constexpr std::pair<std::size_t, std::size_t> kCounts[] = {{0, 4}, {4, 0}, {0, 0}, {2, 300}, {300, 2}};
    for (const auto& [in, out] : kCounts) ExchangeBlock(bench, in, out, false);
}

void NoWordsOut(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Then(Answer::Bytes(ReplyPacket(3, 0x1100, 0x2200, {})));
    ExpectSame("PumpAudio without words in or out returns", 3, talker.Pump(nullptr, nullptr, 0, 0),
               "hosts ask for the server's figures so");
    ExpectSame("and GetAverageCycles", 17.0F, talker.Average(), "hosts ask for the server's figures so");
    ExpectSame("and GetPumpCycles", 34.0F, talker.Pumped(), "hosts ask for the server's figures so");
}

void MoreThanAskedFor(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Then(Answer::Bytes(ReplyPacket(0, 0, 0, Numbered(40, 9))));
    GuardedWords out(10);
    const Words in = Numbered(10, 1);
    ExpectSame("for a reply of more words than asked for, PumpAudio returns", 0,
               talker.Pump(in.data(), out.Data(), 10, 10), kLostAudio);
    out.CheckGuards("PumpAudio, given more words than it asked for,");
    ExpectWords("out", Numbered(10, 9), out.Copy(), kLostAudio);
}

/// Words 4 to 15 of a reply are the server's own.
void UnreadHead(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (const std::uint32_t word : {0U, 1U, 28U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        std::string packet = ReplyPacket(4, 0, 0, Words{21, 22});
        for (const std::size_t at : {4U, 8U, 12U}) std::memcpy(packet.data() + at, &word, sizeof word);
        server.Then(Answer::Bytes(packet));
        GuardedWords out(2);
        const Words in = Numbered(2, 1);
        const std::string when = "with " + Hex(word) + " in the reply's bytes 4 to 15, ";
        const char* means =
            "these bytes are not looked at in a block's reply: servers fill them as they like";
        ExpectSame(when + "PumpAudio returns", 4, talker.Pump(in.data(), out.Data(), 2, 2), means);
        ExpectWords(when + "out", {21, 22}, out.Copy(), means);
        packet = ReplyPacket(4, 0, 0, Words{0x400, 0x800});
        for (const std::size_t at : {4U, 8U, 12U}) std::memcpy(packet.data() + at, &word, sizeof word);
        server.Then(Answer::Bytes(packet));
        PinSix pins = {};
        ExpectSame(when + "PinProps returns", 4, talker.Pins(pins), means);
    }
}

/// A block's reply is what has come, whatever its head says: the rest of `out` is nobody's.
void ShortReply(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Then(Answer::Bytes(ReplyPacket(0, 0, 0, Words{31, 32, 33})));
    GuardedWords out(8);
    const Words in = Numbered(8, 1);
    const char* means = "a server that sends less than it was asked for stops the host";
    ExpectSame("for a reply of fewer words than asked for, PumpAudio returns", 0,
               talker.Pump(in.data(), out.Data(), 8, 8), means);
    out.CheckGuards("PumpAudio, given fewer words than it asked for,");
    Words got = out.Copy();
    got.resize(3);
    ExpectWords("out, as far as words came", {31, 32, 33}, got, kLostAudio);
}

struct PinWord {
    std::uint32_t word;
    std::uint32_t values[3];
};

void PinBits(Trial& trial) {
    constexpr PinWord kWords[] = {
        {0x08000C02, {3, 2, 1}},    {0x00000000, {0, 0, 0}},         {0xF0000000, {0, 0, 0}},
        {0x000003FF, {0, 1023, 0}}, {0x07FFFC00, {131071, 0, 0}},    {0x08000000, {0, 0, 1}},
        {0xF8000C02, {3, 2, 1}},    {0xFFFFFFFF, {131071, 1023, 1}}, {0x04000400, {65537, 0, 0}},
        {0x00000201, {0, 513, 0}},
    };
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    const auto values = [](const std::uint32_t* v) {
        return std::to_string(v[0]) + " " + std::to_string(v[1]) + " " + std::to_string(v[2]);
    };
    for (const PinWord& in : kWords) {
        for (const PinWord& out : kWords) {
            server.Then(Answer::Bytes(ReplyPacket(0, 0, 0, Words{in.word, out.word})));
            PinSix pins = {91, 92, 93, 94, 95, 96};
            (void)talker.Pins(pins);
            const std::string pair = Hex(in.word) + " and " + Hex(out.word);
            const char* means = "hosts choose their blocks by these values";
            ExpectSame("for the pin words " + pair + ", the input's values are", values(in.values),
                       values(pins.data()), means);
            ExpectSame("for the pin words " + pair + ", the output's values are", values(out.values),
                       values(pins.data() + 3), means);
        }
    }
}

struct Reply {
    const char* name;
    std::vector<std::string> pieces;
    std::string text;
};

void TextReplies(Trial& trial) {
    const std::string longLine(100000, 'y');
    const Reply kReplies[] = {
        {"a line", {"fine\n"}, "fine"},
        {"an empty line", {"\n"}, ""},
        {"a line with a carriage return", {"OK\r\n"}, "OK\r"},
        {"two lines at once", {"first\nsecond\n"}, "first"},
        {"a line after that", {"third\n"}, "third"},
        {"a line in two pieces", {"he", "llo\n"}, "hello"},
        {"a line whose line feed comes late", {"hello", "\n"}, "hello"},
        {"bytes beyond ASCII", {"gr\xC3\xBC\xFF\n"}, "gr\xC3\xBC\xFF"},
        {"blanks", {"  a b  \n"}, "  a b  "},
        {"bytes that only begin like a packet", {std::string("\x03\x01 yes\n")}, "\x03\x01 yes"},
        {"an error", {"error: no such thing\n"}, "error: no such thing"},
        {"100,000 characters", {longLine + "\n"}, longLine},
        {"a short line after a long one", {"s\n"}, "s"},
    };
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (const Reply& reply : kReplies) {
        Answer answer;
        answer.pieces = reply.pieces;
        if (reply.pieces.size() > 1) answer.pause = milliseconds(30);
        server.Then(answer);
        std::string got = "before";
        const std::string when = std::string("answered with ") + reply.name + ", SendMessage ";
        ExpectSame(when + "returns", 1, talker.Send("status", got), "hosts take a reply for a failure");
        ExpectSame(when + "delivers", reply.text, got,
                   "hosts see another text than the server sent; a reply ends at its first line feed");
    }
}

/// A packet answers text too; its length word says where it ends.
void PacketReplies(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    const std::string packet = ReplyPacket(0, 0x0A0A0A0A, 0, Words{0, 0x0A000000, 0x00FF00FF});
    const Reply kReplies[] = {
        {"a packet", {packet}, packet},
        {"a packet in two pieces", {packet.substr(0, 10), packet.substr(10)}, packet},
        {"a packet whose first bytes come alone", {packet.substr(0, 2), packet.substr(2)}, packet},
        {"a packet with more behind it", {packet + "more\n"}, packet},
        {"a packet whose last byte comes late",
         {packet.substr(0, packet.size() - 1), packet.substr(packet.size() - 1)},
         packet},
    };
    for (const Reply& reply : kReplies) {
        server.Then({.pieces = reply.pieces, .pause = milliseconds(reply.pieces.size() > 1 ? 30 : 0)});
        std::string got = "before";
        const std::string when = std::string("answered with ") + reply.name + ", SendMessage ";
        ExpectSame(when + "returns", 1, talker.Send("dump", got), "hosts take a reply for a failure");
        ExpectBytes(when + "delivers", reply.text, got, "hosts see another packet than the server sent");
    }
}

void AnyAnswerConnects(Trial& trial) {
    PluginBench bench(trial);
    for (const std::string& answer : {std::string("error: go away\n"), std::string("\n"), std::string("0\n"),
                                      ReplyPacket(0xFFFFFFFF, 0, 0, {})}) {
        StubServer server;
        server.Then(Answer::Bytes(answer));
        CheckedTalker talker = bench.Make();
        ExpectSame("when the connect text is answered with " + Shown(answer) + ", Configure returns", true,
                   talker.Configure(ArgumentLine(server.Port())),
                   "any answer counts: servers have words of their own for a welcome");
        bench.ExpectPrinted("that Configure", "");
    }
}

/// What one talker gets is not what another one has.
void SeparateTalkers(Trial& trial) {
    PluginBench bench(trial);
    StubServer left;
    StubServer right;
    const TalkerNames leftNames{"InL", "OutL", "Left", 1};
    const TalkerNames rightNames{"InR", "OutR", "Right", 2};
    CheckedTalker first = bench.Connected(left, leftNames);
    CheckedTalker second = bench.Connected(right, rightNames);
    const char* means = "the talkers of one host get into each other's way";
    const Words in = Numbered(3, 1);
    for (std::uint32_t round = 1; round <= 3; ++round) {
        left.Then(Answer::Bytes(ReplyPacket(round, round << 8, round << 9, Words{round, 2, 3})));
        right.Then(Answer::Bytes(ReplyPacket(100 + round, round << 10, round << 11, Words{7, 8, round})));
        GuardedWords leftOut(3);
        GuardedWords rightOut(3);
        ExpectSame("the first talker's PumpAudio returns", static_cast<int>(round),
                   first.Pump(in.data(), leftOut.Data(), 3, 3), means);
        ExpectSame("the second talker's PumpAudio returns", static_cast<int>(100 + round),
                   second.Pump(in.data(), rightOut.Data(), 3, 3), means);
        ExpectWords("the first talker's out", {round, 2, 3}, leftOut.Copy(), means);
        ExpectWords("the second talker's out", {7, 8, round}, rightOut.Copy(), means);
        const auto f = static_cast<float>(round);
        ExpectSame("the first talker's average cycles are", f, first.Average(), means);
        ExpectSame("the first talker's pump cycles are", 2 * f, first.Pumped(), means);
        ExpectSame("the second talker's average cycles are", 4 * f, second.Average(), means);
        ExpectSame("the second talker's pump cycles are", 8 * f, second.Pumped(), means);
        const auto leftRequest = left.Take();
        const auto rightRequest = right.Take();
        Expect(leftRequest && rightRequest, "each talker sends to its own server", "a request is missing",
               means);
        ExpectBytes("the first talker sends", PumpPacket(in, 3, leftNames), leftRequest->bytes, means);
        ExpectBytes("the second talker sends", PumpPacket(in, 3, rightNames), rightRequest->bytes, means);
    }
}

constexpr Check kPluginReplyChecks[] = {
    {"status", CheckTarget::kPlugin, 4,
     "PumpAudio and PinProps return the server's status, whatever its sign.", "connects", 20, Status},
    {"cycle-figures", CheckTarget::kPlugin, 4,
     "Cycle figures lose their 8 fractional bits, and negative ones show near 2^32.", "connects", 20,
     CycleFigures},
    {"figures-stay-with-blocks", CheckTarget::kPlugin, 4, "Only PumpAudio changes the cycle figures.",
     "connects", 20, FiguresStayWithBlocks},
    {"data", CheckTarget::kPlugin, 4,
     "The reply's words reach out, nothing beside it, and in is not written, up to 4,096 words.", "connects",
     30, Data},
    {"data-in-place", CheckTarget::kPlugin, 4, "in and out may be the same memory.", "connects", 30,
     DataInPlace},
    {"data-counts", CheckTarget::kPlugin, 4, "More may go in than out, or less, or nothing.", "connects", 30,
     DataCounts},
    {"no-words-out", CheckTarget::kPlugin, 4, "A block without words still brings status and figures.",
     "connects", 20, NoWordsOut},
    {"more-than-asked-for", CheckTarget::kPlugin, 4, "Words that were not asked for are not written.",
     "connects", 20, MoreThanAskedFor},
    {"unread-head", CheckTarget::kPlugin, 4, "Bytes 4 to 15 of a block's reply are not looked at.",
     "connects", 20, UnreadHead},
    {"short-reply", CheckTarget::kPlugin, 4,
     "A block's reply is what one receive delivers, even if it is short.", "connects", 20, ShortReply},
    {"pin-bits", CheckTarget::kPlugin, 4, "Both pin words are cut into 17 bits, 10 bits and 1 bit.",
     "connects", 20, PinBits},
    {"text-replies", CheckTarget::kPlugin, 4, "A text reply is what stands before its first line feed.",
     "connects", 20, TextReplies},
    {"packet-replies", CheckTarget::kPlugin, 4,
     "A packet that answers text is delivered whole, byte for byte.", "connects", 20, PacketReplies},
    {"any-answer-connects", CheckTarget::kPlugin, 4, "Configure succeeds whatever the server answers.",
     "connects", 20, AnyAnswerConnects},
    {"separate-talkers", CheckTarget::kPlugin, 4, "Two talkers do not share settings, buffers or figures.",
     "connects", 20, SeparateTalkers},
};

} // namespace

std::span<const Check> PluginReplyChecks() {
    return kPluginReplyChecks;
}

} // namespace vrx::tool
