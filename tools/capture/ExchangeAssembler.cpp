#include "tools/capture/ExchangeAssembler.h"

#include "host/Packet.h"
#include "tools/wire/ServerProtocol.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace vrx::tool {

namespace {

constexpr std::size_t kReplyWordsAt = 16;

/// The length that a right reply to this packet has; 0 for no packet.
std::uint32_t ExpectedReply(const Exchange& exchange) {
    if (exchange.kind != Exchange::kPacket || exchange.request.size() < kReplyWordsAt + 4) return 0;
    std::uint32_t words = 0;
    std::memcpy(&words, exchange.request.data() + kReplyWordsAt, sizeof words);
    return static_cast<std::uint32_t>(4 * (host::kReplyHeaderWords + words));
}

} // namespace

void ExchangeAssembler::Take(const CaptureEvent& event) {
    if (event.kind == CaptureEvent::kOpened) {
        m_conversations[event.connection].server = event.bytes;
        return;
    }
    const auto found = m_conversations.find(event.connection);
    if (found == m_conversations.end()) return;
    Conversation& conversation = found->second;
    switch (event.kind) {
    case CaptureEvent::kBytes:
        if (conversation.foreign) break;
        if (event.from == Side::kClient)
            ClientBytes(conversation, event);
        else
            ServerBytes(conversation, event);
        break;
    case CaptureEvent::kClosed:
    case CaptureEvent::kReset:
        Ended(conversation, event);
        break;
    case CaptureEvent::kOpened:
    case CaptureEvent::kLost:
        break;
    }
    const bool over = event.kind == CaptureEvent::kReset || event.kind == CaptureEvent::kLost ||
                      (conversation.clientEnded && conversation.serverEnded);
    if (over) FinishConversation(event.connection, event.kind != CaptureEvent::kLost);
}

void ExchangeAssembler::Finish() {
    while (!m_conversations.empty()) FinishConversation(m_conversations.begin()->first, false);
    std::ranges::sort(m_finished, {}, &Exchange::number);
}

bool ExchangeAssembler::Next(Exchange& exchange) {
    if (m_finished.empty()) return false;
    exchange = std::move(m_finished.front());
    m_finished.pop_front();
    return true;
}

void ExchangeAssembler::ClientBytes(Conversation& conversation, const CaptureEvent& event) {
    std::string_view rest = event.bytes;
    while (!rest.empty() && !conversation.foreign) {
        const std::size_t count = conversation.request.Take(rest);
        conversation.waiting.append(rest.substr(0, count));
        rest.remove_prefix(count);
        if (conversation.waiting.size() >= kConnectCommand.size()) Judge(conversation);
        if (conversation.foreign) break;
        if (conversation.request.Whole())
            Ask(conversation, conversation.request.IsPacket() ? Exchange::kPacket : Exchange::kLine, event);
        else if (conversation.waiting.size() >= kLargestRequest)
            AskUnframed(conversation, event);
    }
}

void ExchangeAssembler::ServerBytes(Conversation& conversation, const CaptureEvent& event) {
    // A server that speaks before the request is whole has found it wrong.
    const bool inside = !conversation.waiting.empty() && !conversation.request.IsPacket();
    if (inside && (conversation.open.empty() || !StillAnswering(conversation.open.back())))
        AskUnframed(conversation, event);
    if (conversation.open.empty()) Ask(conversation, Exchange::kNothing, event);
    if (conversation.open.empty()) return;
    std::string_view rest = event.bytes;
    while (!rest.empty()) {
        HandOn(conversation);
        Open& open = conversation.open.front();
        std::size_t count = open.reply.Take(rest);
        if (conversation.open.size() == 1)
            count = rest.size(); // what comes behind the reply has no other place
        open.exchange.reply.push_back({event.time, std::string(rest.substr(0, count))});
        rest.remove_prefix(count);
    }
}

void ExchangeAssembler::Ended(Conversation& conversation, const CaptureEvent& event) {
    if (!conversation.waiting.empty()) AskUnframed(conversation, event);
    if (event.from == Side::kClient) {
        if (!conversation.clientEnded) conversation.clientEndTime = event.time;
        conversation.clientEnded = true;
        return;
    }
    const bool first = !conversation.serverEnded;
    conversation.serverEnded = true;
    if (conversation.clientEnded || conversation.foreign || !first) return;
    if (conversation.open.empty()) Ask(conversation, Exchange::kNothing, event);
    if (conversation.open.empty()) return;
    Exchange& exchange = conversation.open.back().exchange;
    exchange.end = event.kind == CaptureEvent::kReset ? ServerEnd::kResets : ServerEnd::kCloses;
    exchange.ended = event.time;
}

/// What waits becomes the next request.
void ExchangeAssembler::Ask(Conversation& conversation, Exchange::Kind kind, const CaptureEvent& event) {
    const bool knownServer = m_all || m_servers.contains(conversation.server);
    if (kind == Exchange::kNothing && !conversation.known && !knownServer) return;
    if (kind != Exchange::kNothing) Judge(conversation);
    if (conversation.foreign) return;
    Open open;
    open.exchange.kind = kind;
    open.exchange.connection = event.connection;
    open.exchange.request = std::exchange(conversation.waiting, {});
    open.exchange.asked = event.time;
    open.exchange.number = ++m_asked;
    conversation.request = {};
    conversation.open.push_back(std::move(open));
    HandOn(conversation);
}

void ExchangeAssembler::AskUnframed(Conversation& conversation, const CaptureEvent& event) {
    Ask(conversation, Exchange::kBytes, event);
}

/// Finds out by its first request whether the conversation counts.
void ExchangeAssembler::Judge(Conversation& conversation) {
    if (conversation.known || conversation.foreign) return;
    const bool talker = conversation.request.IsPacket() || conversation.waiting.starts_with(kConnectCommand);
    if (talker && m_servers.size() < kMostServers) m_servers.insert(conversation.server);
    conversation.known = talker || m_all || m_servers.contains(conversation.server);
    conversation.foreign = !conversation.known;
    if (conversation.foreign) conversation.waiting = {};
}

/// Whether more of the reply may come although the next request is there. A reply that was spoilt is over then.
bool ExchangeAssembler::StillAnswering(const Open& open) {
    const FrameTracker& reply = open.reply;
    if (reply.Whole() || open.exchange.end != ServerEnd::kStays) return false;
    if (reply.Taken() == 0) return open.exchange.kind != Exchange::kNothing;
    if (reply.IsPacket() && reply.PacketLength() != 0)
        return reply.PacketLength() == ExpectedReply(open.exchange);
    return reply.IsPacket() || static_cast<unsigned char>(reply.Head()[0]) >= 0x20;
}

/// Hands on what cannot change any more.
void ExchangeAssembler::HandOn(Conversation& conversation) {
    while (conversation.open.size() > 1 && !StillAnswering(conversation.open.front())) {
        Open& open = conversation.open.front();
        open.exchange.whole = open.reply.Whole();
        m_finished.push_back(std::move(open.exchange));
        conversation.open.pop_front();
    }
}

/// endSeen   the end of the connection is known, so that what is missing of a reply never came
void ExchangeAssembler::FinishConversation(std::uint64_t number, bool endSeen) {
    const auto found = m_conversations.find(number);
    Conversation& conversation = found->second;
    endSeen = endSeen || conversation.clientEnded || conversation.serverEnded;
    while (!conversation.open.empty()) {
        Open& open = conversation.open.front();
        Exchange& exchange = open.exchange;
        exchange.whole = open.reply.Whole();
        exchange.cut = conversation.clientEnded && !exchange.whole && exchange.end == ServerEnd::kStays;
        exchange.last = conversation.open.size() == 1;
        if (exchange.last) exchange.closed = conversation.clientEndTime;
        if (exchange.whole || endSeen)
            m_finished.push_back(std::move(exchange));
        else
            ++m_unfinished;
        conversation.open.pop_front();
    }
    m_conversations.erase(found);
}

} // namespace vrx::tool
