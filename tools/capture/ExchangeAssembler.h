#pragma once

#include "tools/capture/Exchange.h"
#include "tools/capture/FrameTracker.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>

namespace vrx::tool {

/// Makes exchanges of what happened on connections. What a server sends belongs to the request before it, and
/// where a client asked ahead to the first request whose reply is still incomplete. Holds the exchanges under way and
/// nothing else.
class ExchangeAssembler {
public:
    /// A longer request is handed on in parts of this size.
    static constexpr std::size_t kLargestRequest = std::size_t{64} << 20;

    /// all   every connection counts; otherwise those that begin with a packet or a connect line, and later ones to
    ///       the same server
    explicit ExchangeAssembler(bool all) : m_all(all) {}

    void Take(const CaptureEvent& event);

    /// Nothing more comes. Of exchanges under way those stay out that lack a whole reply: they were not over yet.
    void Finish();

    /// Moves the next finished exchange into `exchange`; false when there is none. Those of one connection come in
    /// order; those of different connections in the order in which they were finished.
    bool Next(Exchange& exchange);

    /// Exchanges that were left out by `Finish`.
    std::uint64_t Unfinished() const { return m_unfinished; }

private:
    struct Open {
        Exchange exchange;
        FrameTracker reply;
    };
    struct Conversation {
        std::string server;
        bool known = false;   // to be one that counts
        bool foreign = false; // known not to be one
        std::string waiting;  // of a request
        FrameTracker request;
        std::deque<Open> open; // asked and not handed on yet
        bool clientEnded = false;
        std::int64_t clientEndTime = 0;
        bool serverEnded = false;
    };

    void ClientBytes(Conversation& conversation, const CaptureEvent& event);
    void ServerBytes(Conversation& conversation, const CaptureEvent& event);
    void Ended(Conversation& conversation, const CaptureEvent& event);
    void Ask(Conversation& conversation, Exchange::Kind kind, const CaptureEvent& event);
    void AskUnframed(Conversation& conversation, const CaptureEvent& event);
    void Judge(Conversation& conversation);
    static bool StillAnswering(const Open& open);
    void HandOn(Conversation& conversation);
    void FinishConversation(std::uint64_t number, bool endSeen);

    bool m_all;
    std::set<std::string> m_servers;
    std::map<std::uint64_t, Conversation> m_conversations;
    std::deque<Exchange> m_finished;
    std::uint64_t m_asked = 0;
    std::uint64_t m_unfinished = 0;
};

} // namespace vrx::tool
