#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"

#include "host/Packet.h"

#include <chrono>
#include <cstring>

namespace vrx::tool {

namespace {

using enum CVRXTalker::Result;
using std::chrono::milliseconds;

constexpr char kServerBreaksHost[] = "a broken server brings the host down";

std::string WithLength(std::uint32_t length, std::size_t dataWords = 2) {
    std::string packet = ReplyPacket(0, 0, 0, Words(dataWords, 5));
    std::memcpy(packet.data() + 4, &length, sizeof length);
    return packet;
}

/// After odd answers a talker still works, if need be over a new connection.
void ExpectStillWorks(PluginBench& bench, const std::string& after) {
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    Words words = Numbered(4, 6);
    const Words sent = words;
    ExpectSame("after " + after + ", PumpAudio of a new talker returns", 0,
               talker.Pump(words.data(), words.data(), 4, 4), kServerBreaksHost);
    ExpectWords("after " + after + ", out", sent, words, kServerBreaksHost);
}

/// Replies cut to every length below a whole head; whatever they give, nothing beyond the buffers is touched.
void ShortReplies(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    const std::string whole = ReplyPacket(0, 0x100, 0x100, Words(64, 5));
    for (std::size_t length = 1; length < 40; ++length) {
        server.Then(Answer::Bytes(whole.substr(0, length)));
        GuardedWords out(64);
        const std::string call = "PumpAudio, answered with " + std::to_string(length) + " bytes of a packet,";
        const int result = talker.Pump(out.Data(), out.Data(), 64, 64);
        out.CheckGuards(call);
        if (length < 4)
            ExpectSame(call + " returns", int{kNotAPacket}, result, "hosts take what is no packet for audio");
        server.Then(Answer::Bytes(whole.substr(0, length)));
        PinSix pins;
        (void)talker.Pins(pins);
    }
    ExpectStillWorks(bench, "short replies");
}

/// No length word may lead outside what was received.
void AbsurdLengths(Trial& trial) {
    PluginBench bench(trial);
    for (const std::uint32_t length : {0xFFFFFFFFU, 0x80000000U, 0x7FFFFFFFU, 0x00100001U, 0x40000000U}) {
        StubServer server;
        CheckedTalker talker = bench.Connected(server);
        server.Then({.pieces = {WithLength(length)}, .end = Answer::kClose});
        std::string reply;
        const std::string call =
            "SendMessage, answered with a packet that says " + std::to_string(length) + " bytes,";
        ExpectSame(call + " and then the end, returns", int{kPeerClosed}, talker.Send("dump", reply),
                   "hosts take part of a packet for a whole one");
        server.Then(Answer::Bytes(WithLength(length)));
        GuardedWords out(2);
        ExpectSame("PumpAudio with such a packet returns", 0, talker.Pump(nullptr, out.Data(), 0, 2),
                   "the length word of a block's reply is not looked at");
        out.CheckGuards("PumpAudio");
    }
    for (const std::uint32_t length : {0U, 1U, 8U, 27U}) {
        StubServer server;
        CheckedTalker talker = bench.Connected(server);
        server.Then(Answer::Bytes(WithLength(length)));
        std::string reply = "before";
        ExpectSame("SendMessage, answered with a packet that says " + std::to_string(length) +
                       " bytes, returns",
                   int{kReplied}, talker.Send("dump", reply), "hosts wait for bytes that never come");
        ExpectBytes("its reply", WithLength(length).substr(0, length), reply,
                    "hosts see more than the packet");
    }
    ExpectStillWorks(bench, "absurd lengths");
}

void EndlessText(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Then({.pieces = std::vector<std::string>(48, std::string(65536, 'x'))});
    std::string reply;
    ExpectSame("SendMessage, answered with text without an end, returns", int{kPeerClosed},
               talker.Send("status", reply),
               "a server without an end of line takes all of the host's memory");
    ExpectStillWorks(bench, "endless text");
    StubServer other;
    CheckedTalker pumping = bench.Connected(other);
    other.Then({.pieces = std::vector<std::string>(48, std::string(65536, 'x'))});
    GuardedWords out(16);
    ExpectSame("PumpAudio, answered with text without an end, returns", int{kNotAPacket},
               pumping.Pump(out.Data(), out.Data(), 16, 16), kServerBreaksHost);
    Expect(out.IsUntouched(), "out is left alone", "PumpAudio wrote to out", "hosts play text");
}

/// A zero byte before the line feed hides it: such a reply never ends by itself. No server for talkers sends one, so a
/// talker that sees the line feed all the same is told and not blamed.
void ZeroInText(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Then({.pieces = {std::string("a\0b\n", 4)}, .pause = milliseconds(50), .end = Answer::kClose});
    std::string reply;
    const int result = talker.Send("status", reply);
    const std::string call =
        "SendMessage, answered with a line that holds a zero byte and then the end, returns ";
    if (result != kPeerClosed)
        trial.Warn({call + std::to_string(int{kPeerClosed}), call + std::to_string(result),
                    "texts end at a zero byte: what follows is not part of any line"});
    ExpectStillWorks(bench, "a zero byte in text");
}

/// Replies end after any number of bytes.
void CutAnywhere(Trial& trial) {
    PluginBench bench(trial);
    const std::string packet = ReplyPacket(0, 0, 0, Words(8, 5));
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    for (std::size_t length = 8; length < packet.size(); ++length) {
        const bool reset = trial.Below(4) == 0;
        server.Then({.pieces = {packet.substr(0, length)}, .end = reset ? Answer::kReset : Answer::kClose});
        std::string reply;
        const int result = talker.Send("dump", reply);
        Expect(result == kPeerClosed || (reset && result == kReceiveFailed),
               "SendMessage, cut after " + std::to_string(length) +
                   " bytes of a packet, returns -9995 or -9996",
               "it returned " + std::to_string(result), "hosts take part of a packet for a whole one");
        (void)talker.Send("dump", reply);
    }
    ExpectStillWorks(bench, "cut replies");
}

/// The limit is one of each receive.
void SlowPieces(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    server.Then({.pieces = {"con", "nec", "ted\n"}, .pause = milliseconds(5000)});
    CheckedTalker talker = bench.Make();
    ExpectSame("answered in three pieces, each five seconds after the other, Configure returns", true,
               talker.Configure(ArgumentLine(server.Port())), "each receive has ten seconds");
}

/// More words than a receive buffer holds: what was not received is not read from anywhere else.
void BeyondTheBuffer(Trial& trial) {
    constexpr unsigned kWords = 400000;
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    server.Then(Answer::Bytes(ReplyPacket(0, 0, 0, Words{1, 2, 3})));
    GuardedWords out(kWords);
    (void)talker.Pump(nullptr, out.Data(), 0, kWords);
    out.CheckGuards("PumpAudio with 400,000 words out");
    const Words got = out.Copy();
    Expect(got[0] == 1 && got[1] == 2 && got[2] == 3, "the words that came reach out",
           "out begins with " + Hex(got[0]), "a host plays something else than the server computed");
    ExpectStillWorks(bench, "a reply of fewer words than asked for");
}

/// The server goes away while a long block is being sent.
void BlockCutWhileSending(Trial& trial) {
    PluginBench bench(trial);
    for (int i = 0; i < 6; ++i) {
        StubServer server;
        CheckedTalker talker = bench.Connected(server);
        // Ended with bytes unread, a connection is reset.
        server.Then({.end = i % 2 == 0 ? Answer::kReset : Answer::kClose, .takeUnfinished = true});
        const Words in(2000000, 7);
        GuardedWords out(4);
        const int result = talker.Pump(in.data(), out.Data(), 2000000, 4);
        Expect(result == kSendFailed || result == kPeerClosed || result == kReceiveFailed,
               "when the server goes away during a block, PumpAudio returns -9995, -9996 or -9997",
               "it returned " + std::to_string(result), "hosts decide by this result what to do next");
        Expect(out.IsUntouched(), "out is left alone", "PumpAudio wrote to out", "hosts play rubbish");
    }
    ExpectStillWorks(bench, "blocks cut while sending");
}

/// Up to 60 bytes, now and then up to 3,000, that may begin like a packet.
std::string RandomBytes(std::mt19937_64& random) {
    std::string bytes = random() % 3 == 0 ? std::string(host::kPacketTagBytes) : std::string();
    const std::size_t length = 1 + random() % (random() % 4 == 0 ? 3000 : 60);
    while (bytes.size() < length) bytes += static_cast<char>(random());
    return bytes + '\n';
}

/// Seeded rubbish for every call; text is also left without an end.
void Rubbish(Trial& trial) {
    PluginBench bench(trial);
    const LoopTime time;
    for (int round = 0; round < 60 && time.Left(); ++round) {
        StubServer server;
        CheckedTalker talker = bench.Connected(server);
        server.Always(
            [random = std::mt19937_64(trial.Random()())](const StubServer::Request& request) mutable {
                const bool text = !request.bytes.starts_with(host::kPacketTagBytes);
                return Answer{.pieces = {RandomBytes(random)}, .end = text ? Answer::kClose : Answer::kStay};
            });
        for (int i = 0; i < 8; ++i) {
            GuardedWords out(32);
            PinSix pins;
            std::string reply;
            switch (trial.Below(3)) {
            case 0:
                (void)talker.Send("x", reply);
                break;
            case 1:
                (void)talker.Pins(pins);
                break;
            default:
                (void)talker.Pump(out.Data(), out.Data(), 32, 32);
            }
            out.CheckGuards("a call answered with rubbish");
        }
    }
    ExpectStillWorks(bench, "rubbish");
}

constexpr Check kPluginHostileChecks[] = {
    {"short-replies", CheckTarget::kPlugin, 8, "Replies cut to any length harm nothing.", "connects", 60,
     ShortReplies},
    {"absurd-lengths", CheckTarget::kPlugin, 8, "No length word leads beyond what came.", "connects", 60,
     AbsurdLengths},
    {"endless-text", CheckTarget::kPlugin, 8, "Text without an end stops at 1 MiB.", "connects", 60,
     EndlessText},
    {"zero-in-text", CheckTarget::kPlugin, 8, "A zero byte hides the line feed behind it (warns).",
     "connects", 30, ZeroInText},
    {"cut-anywhere", CheckTarget::kPlugin, 8, "A packet cut short is no reply to text.", "connects", 60,
     CutAnywhere},
    {"slow-pieces", CheckTarget::kPlugin, 8, "The ten seconds count for each receive.", "connects", 40,
     SlowPieces},
    {"beyond-the-buffer", CheckTarget::kPlugin, 8, "More words than a reply can hold do no harm.", "connects",
     30, BeyondTheBuffer},
    {"block-cut-while-sending", CheckTarget::kPlugin, 8,
     "A server that goes away during a block does no harm.", "connects", 60, BlockCutWhileSending},
    {"rubbish", CheckTarget::kPlugin, 8, "Random bytes for an answer do no harm.", "connects", 60, Rubbish},
};

} // namespace

std::span<const Check> PluginHostileChecks() {
    return kPluginHostileChecks;
}

} // namespace vrx::tool
