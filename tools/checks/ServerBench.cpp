#include "tools/checks/ServerBench.h"

#include "host/BlockSize.h"
#include "host/Packet.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

namespace vrx::tool {

namespace {

using asio::ip::tcp;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

} // namespace

asio::ip::tcp::endpoint ServerEndpoint(const CheckTarget& target) {
    asio::error_code error;
    asio::ip::tcp::endpoint found = LookUp(target.ConnectHost(), target.ConnectPort(), error);
    Expect(!error, "the server's name is known",
           "'" + target.host + "' is not known: " + error.message() + "; is it spelt right?",
           "talkers cannot find the server");
    return found;
}

std::string ServerConnectText(const CheckTarget& target) {
    return "connect," + target.host + ",0\n";
}

ObjectNames ServerNames(const CheckTarget& target) {
    return {target.layout, target.input, target.output};
}

std::string ServerPinRequest(const CheckTarget& target) {
    return PinRequest(ServerNames(target));
}

std::uint32_t ServerReply::Word(std::size_t offset) const {
    std::uint32_t word = 0;
    if (offset + sizeof word <= bytes.size()) std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

std::size_t ServerReply::DataWords() const {
    return bytes.size() < host::kReplyHeaderBytes ? 0 : (bytes.size() - host::kReplyHeaderBytes) / 4;
}

std::string ServerReply::Shown() const {
    const std::string came = bytes.empty() ? "" : " after " + tool::Shown(bytes);
    switch (kind) {
    case kPacket:
        return "a packet of " + std::to_string(bytes.size()) + " bytes with status " +
               std::to_string(Status());
    case kLine:
        return "the text " + tool::Shown(bytes);
    case kHidden:
        return "the text " + tool::Shown(bytes) + ", whose zero byte hides the line feed";
    case kEnd:
        return "the end of the connection" + came;
    case kReset:
        return "a reset of the connection" + came;
    case kSilence:
        break;
    }
    if (bytes.empty()) return "nothing";
    if (bytes.starts_with(host::kPacketTagBytes))
        return std::to_string(bytes.size()) + " bytes of a packet that says it has " +
               std::to_string(Word(4));
    return tool::Shown(bytes) + " without a line feed";
}

ServerClient::ServerClient(Trial& trial, bool hello) : m_trial(trial) {
    const CheckTarget& target = trial.Target();
    trial.Doing("connecting to " + target.Name());
    asio::error_code error;
    m_socket.connect(ServerEndpoint(target), error);
    Expect(!error, "the server takes a connection", "connecting failed: " + error.message(),
           "talkers cannot connect");
    m_socket.set_option(tcp::no_delay(true), error);
    trial.Doing("connected to " + target.Name());
    if (!hello) return;
    const ServerReply reply = Ask(ServerConnectText(target));
    Expect(reply.IsAnswer(), "the connect text is answered with a line", reply.Shown(),
           "talkers cannot connect");
}

std::string ServerReply::Behind() const {
    if (!IsAnswer()) return "";
    return bytes.substr(kind == kPacket ? std::min<std::size_t>(Word(4), bytes.size())
                                        : bytes.find('\n') + 1);
}

bool ServerClient::Send(std::string_view bytes, milliseconds patience) {
    m_trial.Doing("sending " + std::to_string(bytes.size()) + " bytes to the server");
    while (!bytes.empty()) {
        pollfd room{m_socket.native_handle(), POLLOUT, 0};
        if (::poll(&room, 1, static_cast<int>(patience.count())) != 1) return false;
        const ssize_t sent =
            ::send(m_socket.native_handle(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN) return false; // the next receive finds out
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    }
    return true;
}

ServerReply ServerClient::Receive(milliseconds patience) {
    m_trial.Doing("waiting for the server's answer");
    constexpr std::size_t kMostText = host::kReceiveBuffer;
    const auto began = Clock::now();
    ServerReply reply;
    for (;;) {
        reply.seconds = std::chrono::duration<double>(Clock::now() - began).count();
        const bool packet = reply.bytes.starts_with(host::kPacketTagBytes);
        if (packet && reply.bytes.size() >= 8 && reply.bytes.size() >= reply.Word(4)) {
            reply.kind = ServerReply::kPacket;
            return reply;
        }
        const std::size_t feed = packet ? reply.bytes.npos : reply.bytes.find('\n');
        if (feed != reply.bytes.npos) {
            const bool hidden = reply.bytes.find('\0') < feed;
            reply.kind = hidden ? ServerReply::kHidden : ServerReply::kLine;
            return reply;
        }
        const auto left = std::chrono::duration_cast<milliseconds>(began + patience - Clock::now());
        if (Quiet(std::max(left, milliseconds(0))) || (!packet && reply.bytes.size() > kMostText))
            return reply;
        char piece[65536];
        asio::error_code error;
        const std::size_t count = m_socket.read_some(asio::buffer(piece), error);
        if (error) {
            reply.kind = error == asio::error::eof ? ServerReply::kEnd : ServerReply::kReset;
            return reply;
        }
        reply.bytes.append(piece, count);
        ++reply.pieces;
    }
}

ServerReply ServerClient::Ask(std::string_view request, milliseconds patience) {
    Send(request);
    return Receive(patience);
}

std::string ServerClient::Take(std::size_t count) {
    m_trial.Doing("waiting for " + std::to_string(count) + " bytes of the server");
    std::string bytes;
    while (bytes.size() < count && !Quiet(kServerPatience)) {
        char piece[65536];
        asio::error_code ended;
        const std::size_t most = std::min(sizeof piece, count - bytes.size());
        const std::size_t got = m_socket.read_some(asio::buffer(piece, most), ended);
        if (ended) break;
        bytes.append(piece, got);
    }
    return bytes;
}

bool ServerClient::Quiet(milliseconds time) {
    pollfd waiting{m_socket.native_handle(), POLLIN, 0};
    return ::poll(&waiting, 1, static_cast<int>(time.count())) != 1;
}

bool ServerClient::MoreComes(milliseconds time) {
    char byte = 0;
    return !Quiet(time) && ::recv(m_socket.native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
}

void ServerClient::Reset() {
    asio::error_code ignored;
    m_socket.set_option(asio::socket_base::linger(true, 0), ignored);
    m_socket.close(ignored);
}

void ServerClient::HalfClose() {
    asio::error_code ignored;
    m_socket.shutdown(tcp::socket::shutdown_send, ignored);
}

void ServerClient::Close() {
    asio::error_code ignored;
    m_socket.close(ignored);
}

namespace {

host::PinValues PinsOf(const ServerReply& reply) {
    host::PinValues pins;
    const auto take = [](std::uint32_t word, unsigned(&values)[3]) {
        values[0] = word >> 10 & 0x1FFFF;
        values[1] = word & 0x3FF;
        values[2] = word >> 27 & 1;
    };
    take(reply.Word(host::kReplyHeaderBytes), pins.in);
    take(reply.Word(host::kReplyHeaderBytes + 4), pins.out);
    return pins;
}

} // namespace

BlockShape FindBlock(Trial& trial) {
    constexpr milliseconds kBrief{3000};
    const CheckTarget& target = trial.Target();
    host::ServerSettings server;
    server.input = target.input;
    server.output = target.output;
    server.layout = target.layout;
    BlockShape shape;
    host::PinValues pins;
    {
        ServerClient client(trial);
        const ServerReply reply = client.Ask(ServerPinRequest(target), kBrief);
        shape.pinsKnown = reply.Accepted() && reply.DataWords() >= 2;
        if (shape.pinsKnown) pins = PinsOf(reply);
        shape.floats = shape.pinsKnown && pins.in[2] == 1 && pins.out[2] == 1;
    }
    shape.channels = target.channels > 0 ? target.channels : pins.in[1] > 0 ? pins.in[1] : 2;
    const std::size_t segment = host::FramesPerSegment(server, shape.channels);
    const std::size_t preferred =
        target.block > 0 ? target.block : host::PreferredBlock(pins, server, shape.channels);
    std::string answers;
    for (const std::size_t frames : {preferred, segment, std::size_t{64}}) {
        if (target.block > 0 && frames != target.block) continue;
        shape.words = frames * shape.channels;
        ServerClient client(trial);
        const ServerReply reply = client.Ask(BlockRequest(target, shape.words, shape.words));
        if (reply.Accepted()) return shape;
        answers += (answers.empty() ? "" : "; ") + std::to_string(frames) + " frames of " +
                   std::to_string(shape.channels) + " channels: " + reply.Shown();
    }
    throw Mismatch{
        {"a block for " + target.layout + ", " + target.input + " and " + target.output +
             " is answered with a packet whose status is not negative",
         answers,
         "no host gets audio back; another server's names and sizes are told with --layout, --input, "
         "--output, --block and --channels"}};
}

namespace {

constexpr std::size_t kMostOfSegment = (host::kSegmentBytes - host::kReplyHeaderBytes) / 4;

} // namespace

std::optional<std::size_t> LargestOfSegment(Trial& trial, const BlockShape& shape) {
    const std::size_t words = kMostOfSegment / shape.channels * shape.channels;
    ServerClient client(trial);
    if (!client.Ask(BlockRequest(trial.Target(), words, words)).Accepted()) return std::nullopt;
    return words;
}

std::optional<std::size_t> SegmentWords(Trial& trial, const BlockShape& shape) {
    if (shape.words <= kMostOfSegment) return shape.words;
    return LargestOfSegment(trial, shape);
}

std::string BlockRequest(const CheckTarget& target, std::size_t in, std::size_t out) {
    std::vector<std::uint32_t> words(in);
    for (std::size_t i = 0; i < in; ++i)
        words[i] = std::bit_cast<std::uint32_t>(0.25F * std::sin(static_cast<float>(i) * 0.1F));
    return SamplesRequest(ServerNames(target), words, static_cast<std::uint32_t>(out));
}

void ExpectBlock(const std::string& when, const ServerReply& reply, std::size_t words, bool mayRefuse) {
    const char* means = "a talker gets too few samples, or takes the rest for the next block's reply";
    if (mayRefuse && reply.Refused()) return;
    Expect(reply.kind == ServerReply::kPacket, when + ", a packet comes", reply.Shown(), means);
    const std::size_t size = host::kReplyHeaderBytes + 4 * words;
    Expect(reply.bytes.size() == reply.Word(4), when + ", the packet is as long as its length word says",
           "the length word says " + std::to_string(reply.Word(4)) + ", " +
               std::to_string(reply.bytes.size()) + " bytes came",
           means);
    Expect(reply.bytes.size() == size,
           when + ", the packet has " + std::to_string(size) + " bytes: 28 and " + std::to_string(words) +
               " words",
           "it has " + std::to_string(reply.bytes.size()), means);
}

void ExpectServed(ServerClient& client, const CheckTarget& target, std::size_t words,
                  const std::string& when) {
    const ServerReply reply = client.Ask(BlockRequest(target, words, words));
    Expect(reply.Accepted(), when + ", the same connection takes a block", reply.Shown(),
           "one odd request costs a host its connection");
}

namespace {

/// What came instead when a new client is not answered, or its block not accepted, within `patience`; "" when it is.
std::string WhyNotServed(Trial& trial, std::size_t words, milliseconds patience) {
    const auto began = Clock::now();
    ServerClient client(trial, false);
    const ServerReply line = client.Ask(ServerConnectText(trial.Target()), patience);
    if (!line.IsAnswer()) return "its connect text: " + line.Shown();
    const auto used = std::chrono::duration_cast<milliseconds>(Clock::now() - began);
    const ServerReply reply =
        client.Ask(BlockRequest(trial.Target(), words, words), std::max(milliseconds(200), patience - used));
    return reply.Accepted() ? "" : "its block: " + reply.Shown();
}

} // namespace

/// A busy machine may stop anybody for some seconds once; a server that is held up stays so.
void ExpectOthersServed(Trial& trial, std::size_t words, const std::string& when, milliseconds patience) {
    if (WhyNotServed(trial, words, patience).empty()) return;
    const std::string got = WhyNotServed(trial, words, patience);
    Expect(got.empty(),
           when + ", another client and its block are answered within " + std::to_string(patience.count()) +
               " ms",
           "to " + got, "one client's mistake stops all others");
}

} // namespace vrx::tool
