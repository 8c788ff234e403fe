#include "tools/checks/ServerBench.h"
#include "tools/checks/ServerChecks.h"

#include "host/Packet.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace vrx::tool {

namespace {

using std::chrono::milliseconds;

void TakesBlocks(Trial& trial) {
    (void)FindBlock(trial);
}

void BlockReply(Trial& trial) {
    const BlockShape shape = FindBlock(trial);
    ServerClient client(trial);
    ExpectBlock("for a block of " + std::to_string(shape.words) + " words",
                client.Ask(BlockRequest(trial.Target(), shape.words, shape.words)), shape.words);
}

/// Words that look like something else: line feeds, a marker, zeroes, what terminals and modems mean something by. As
/// floats they are all tiny.
void TakesAnyWords(Trial& trial) {
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    for (const std::uint32_t word : {0x0A0A0A0AU, host::kPacketTag, 0U, 0x0A0D0A0DU, 0x80000000U, 0x00FFFF00U,
                                     0x1A1A1A1AU, 0x11131113U}) {
        const std::vector<std::uint32_t> in(words, word);
        const std::string when = "for a block whose words are all " + Hex(word);
        ExpectBlock(
            when,
            client.Ask(SamplesRequest(ServerNames(trial.Target()), in, static_cast<std::uint32_t>(words))),
            words);
        Expect(client.Quiet(kQuiet), when + ", one reply comes and nothing after it", "more bytes came",
               "requests are told apart by their length words, and blocks may hold any bytes");
    }
    ExpectServed(client, trial.Target(), words, "after blocks of such words");
}

/// A size that was taken once is taken each time.
void ExpectAccepted(const std::string& when, const ServerReply& reply) {
    Expect(reply.Accepted(), when + ", a packet comes whose status is not negative", reply.Shown(),
           "hosts lose blocks now and then");
}

void OneReply(Trial& trial) {
    constexpr int kBlocks = 20;
    const BlockShape shape = FindBlock(trial);
    ServerClient client(trial);
    const LoopTime time;
    for (int i = 1; i <= kBlocks && time.Left(); ++i) {
        const std::string when = "for block " + std::to_string(i);
        const ServerReply reply = client.Ask(BlockRequest(trial.Target(), shape.words, shape.words));
        ExpectBlock(when, reply, shape.words);
        ExpectAccepted(when, reply);
        if (client.Quiet(kQuiet)) continue;
        const ServerReply more = client.Receive(milliseconds(500));
        throw Mismatch{
            {when + ", one reply comes and nothing after it", "after it came " + more.Shown(),
             "a talker takes it for the next block's reply, and every later block is late by one"}};
    }
}

/// More words in than out, or the other way round, and blocks of few and odd frames: answered as asked, or refused.
void Counts(Trial& trial) {
    const BlockShape shape = FindBlock(trial);
    const std::size_t words = shape.words;
    const std::size_t frame = shape.channels;
    ServerClient client(trial);
    const std::pair<std::size_t, std::size_t> kCounts[] = {{words, 0},
                                                           {0, words},
                                                           {0, 0},
                                                           {words, words / 2},
                                                           {words, 2 * words},
                                                           {words / 2, words},
                                                           {frame, frame},
                                                           {3 * frame, 3 * frame},
                                                           {words - frame, words - frame},
                                                           {words, words}};
    for (const auto& [in, out] : kCounts) {
        const std::string when =
            "for a block of " + std::to_string(in) + " words in and " + std::to_string(out) + " out";
        ExpectBlock(when, client.Ask(BlockRequest(trial.Target(), in, out)), out, true);
        Expect(client.Quiet(kQuiet), when + ", one reply comes and nothing after it", "more bytes came",
               "a talker takes them for the next block's reply");
    }
    ExpectServed(client, trial.Target(), words, "after blocks of other sizes");
}

/// Far more words than one segment holds: answered whole, or refused, if need be by the end of the connection.
void LargeBlocks(Trial& trial) {
    const BlockShape shape = FindBlock(trial);
    for (const std::size_t words : {1024U, 4096U, 16384U}) {
        const std::size_t whole = words / shape.channels * shape.channels;
        const std::string when = "for a block of " + std::to_string(whole) + " words";
        ServerClient client(trial);
        const ServerReply reply = client.Ask(BlockRequest(trial.Target(), whole, whole));
        if (reply.kind == ServerReply::kEnd || reply.kind == ServerReply::kReset) continue;
        ExpectBlock(when, reply, whole, true);
        ExpectServed(client, trial.Target(), shape.words,
                     "after a block of " + std::to_string(whole) + " words");
    }
    ServerClient client(trial);
    ExpectServed(client, trial.Target(), shape.words, "after large blocks");
}

/// A size whose reply fits one segment.
std::size_t SmallBlock(Trial& trial, const BlockShape& shape) {
    const auto words = SegmentWords(trial, shape);
    if (!words) throw Untried{"the server takes no block whose reply fits one segment"};
    return *words;
}

/// What came of asking the same again and again on one connection.
WholeReplies AskedAgain(Trial& trial, const std::string& request, int times) {
    RawConnection connection(kServerPatience);
    trial.Doing("asking the server the same again and again");
    const asio::error_code error =
        connection.Open(ServerEndpoint(trial.Target()), ServerConnectText(trial.Target()));
    Expect(!error, "the connect text is answered with a line", error.message(), "talkers cannot connect");
    const LoopTime time;
    return CountWholeReplies(connection, request, times, [&time] { return time.Left(); });
}

void ExpectOnePiece(const WholeReplies& replies) {
    const RawReply& last = replies.last;
    Expect(last.pieces <= 1, "a reply of " + std::to_string(last.bytes.size()) + " bytes comes in one piece",
           "reply " + std::to_string(replies.whole + 1) + " came in " + std::to_string(last.pieces) +
               " pieces, the first of " + std::to_string(last.firstPiece) + " bytes",
           "a talker takes what one receive delivers and loses the rest: send each reply with one call");
}

/// The usual size, and the largest of one segment where the server takes it.
void OnePiece(Trial& trial) {
    const BlockShape shape = FindBlock(trial);
    const std::size_t usual = SmallBlock(trial, shape);
    for (const std::size_t words : {usual, LargestOfSegment(trial, shape).value_or(usual)}) {
        const WholeReplies replies = AskedAgain(trial, BlockRequest(trial.Target(), words, words), 50);
        const RawReply& last = replies.last;
        Expect(!last.error && last.isPacket, "each block is answered with a packet",
               "block " + std::to_string(replies.whole + 1) + ": " +
                   (last.error ? last.error.message() : "the text " + Shown(last.bytes)),
               "hosts lose blocks");
        ExpectOnePiece(replies);
    }
}

void PinsInOnePiece(Trial& trial) {
    const WholeReplies replies = AskedAgain(trial, ServerPinRequest(trial.Target()), 50);
    if (replies.last.error || !replies.last.isPacket)
        throw Untried{"the server does not describe these pins"};
    ExpectOnePiece(replies);
}

void FiniteFloats(Trial& trial) {
    constexpr int kBlocks = 30;
    const BlockShape shape = FindBlock(trial);
    if (shape.pinsKnown && !shape.floats) throw Untried{"the pins do not say that samples are floats"};
    ServerClient client(trial);
    const LoopTime time;
    for (int block = 0; block < kBlocks && time.Left(); ++block) {
        std::vector<std::uint32_t> in(shape.words);
        for (std::uint32_t& word : in)
            word = std::bit_cast<std::uint32_t>(static_cast<float>(trial.Below(20001)) / 10000.0F - 1.0F);
        if (block % 5 == 0) std::ranges::fill(in, 0);
        const ServerReply reply = client.Ask(
            SamplesRequest(ServerNames(trial.Target()), in, static_cast<std::uint32_t>(shape.words)));
        ExpectAccepted("for block " + std::to_string(block + 1), reply);
        for (std::size_t i = 0; i < reply.DataWords(); ++i) {
            const std::uint32_t word = reply.Word(host::kReplyHeaderBytes + 4 * i);
            const Observation what{"samples between -1 and 1 give samples that are finite numbers",
                                   "sample " + std::to_string(i) + " of block " + std::to_string(block + 1) +
                                       " is " + Hex(word),
                                   "hosts play noise at full level, or fall silent for good"};
            if (std::isfinite(std::bit_cast<float>(word))) continue;
            if (shape.floats) throw Mismatch{what};
            trial.Warn(what); // nobody said that these are floats
        }
    }
}

/// 40 ms is what the system waits for more when replies go out in parts without TCP_NODELAY.
void NoStalls(Trial& trial) {
    constexpr int kBlocks = 60;
    constexpr double kStall = 0.035;
    const std::size_t words = SmallBlock(trial, FindBlock(trial));
    ServerClient client(trial);
    std::vector<double> times;
    times.reserve(kBlocks);
    const LoopTime time;
    for (int i = 1; i <= kBlocks && time.Left(); ++i) {
        const ServerReply reply = client.Ask(BlockRequest(trial.Target(), words, words));
        ExpectAccepted("for block " + std::to_string(i), reply);
        times.push_back(reply.seconds);
    }
    std::ranges::sort(times);
    const double median = times[times.size() / 2];
    if (median > kStall)
        trial.Warn(
            {"half of the replies come within 35 ms",
             "half of them took longer than " + Shown(static_cast<float>(median * 1000)) + " ms",
             "no real time: TCP_NODELAY on the server's socket, and one call for each reply, avoid it"});
}

constexpr Check kServerBlockChecks[] = {
    {"takes-blocks", CheckTarget::kServer, 3, "A block comes back with a status that is not negative.",
     "answers-connect", 60, TakesBlocks},
    {"block-reply", CheckTarget::kServer, 3,
     "A block's reply has the marker, a true length word and the words asked for.", "takes-blocks", 60,
     BlockReply},
    {"one-reply", CheckTarget::kServer, 3, "Each block is answered by one reply and nothing else.",
     "takes-blocks", 60, OneReply},
    {"any-words", CheckTarget::kServer, 3, "Blocks may hold line feeds, markers and zeroes.", "takes-blocks",
     60, TakesAnyWords},
    {"counts", CheckTarget::kServer, 3, "More or fewer words back than sent, or none, as asked for.",
     "takes-blocks", 60, Counts},
    {"large-blocks", CheckTarget::kServer, 3, "Blocks of thousands of words come back whole, or are refused.",
     "takes-blocks", 60, LargeBlocks},
    {"one-piece", CheckTarget::kServer, 4, "A reply that fits one segment comes in one piece.",
     "takes-blocks", 60, OnePiece},
    {"pins-in-one-piece", CheckTarget::kServer, 4, "The pins' reply comes in one piece.", "answers-connect",
     60, PinsInOnePiece},
    {"finite-floats", CheckTarget::kServer, 4, "Float samples are finite numbers.", "takes-blocks", 60,
     FiniteFloats},
    {"no-stalls", CheckTarget::kServer, 4, "Replies do not wait 40 ms in the system (warns).", "takes-blocks",
     60, NoStalls},
};

} // namespace

std::span<const Check> ServerBlockChecks() {
    return kServerBlockChecks;
}

} // namespace vrx::tool
