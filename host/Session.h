#pragma once

#include "host/ServerSettings.h"
#include "talker/CVRXTalker.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vrx::host {

/// Asked between two steps whether to give up; called from the thread that runs the session.
using StopCheck = std::function<bool()>;

/// What a session gets from the program around it.
struct SessionParts {
    /// A new talker that knows no server yet; never null.
    std::function<std::unique_ptr<CVRXTalker>()> makeTalker;
    /// What talkers have printed since the last call, without the final line feed; "" for nothing. Null where
    /// nobody captures it. A capture that belongs to the whole process serves one session at a time.
    std::function<std::string()> takeLines;
    /// Null: never.
    StopCheck stopped;
};

/// Both pins' values as the server reports them. `vrx serve` says: frames per block, channels (0: not said),
/// and 1 when the words are 32-bit floats; other servers may mean something else.
struct PinValues {
    unsigned in[3] = {};
    unsigned out[3] = {};
};

/// "480 2 1".
std::string PinText(const unsigned (&values)[3]);

/// How a block's reply is taken.
enum class Replies {
    kSingle, ///< what one receive delivers
    kWhole,  ///< collected from as many receives as it takes; at most kWholeReplyWords words
};

/// One talker, its server, and what is known about its failures. Results are values; nothing is printed, and nothing but
/// the talker's own lines goes to the process's output. One thread at a time; any number of sessions at a time.
class Session {
public:
    /// Makes a talker; nothing touches the network yet.
    Session(ServerSettings server, SessionParts parts);

    /// Connects; blocks until the server has answered or ten seconds are over. When false, `WhyNotConnected` says
    /// more.
    bool Connect();

    /// After a failed `Connect` or `Reconnect`: what happened and what to do, with the talker's line where it is
    /// captured.
    std::string WhyNotConnected() const;

    /// Connects again after a transport fault with the result `result`; false when that failed.
    bool Reconnect(int result);

    /// Gives the connection up; what comes next needs `Reconnect`. A server may take one client at a time.
    void Disconnect() { m_talker = m_parts.makeTalker(); }

    /// How the replies of `PumpAudio` are taken from the next block on; single ones at first. The connection
    /// stays.
    void TakeReplies(Replies replies) { m_replies = replies; }

    /// One block: `words` words out and as many back. A result below 0 is a transport fault if
    /// `TransportFault()`, otherwise the server's own status. With whole replies the server is asked for
    /// kWholeReplyWords words, the first of which are the answer; `words` may not be more than that.
    int PumpAudio(const std::uint32_t* in, std::uint32_t* out, unsigned words);

    int PinProps(PinValues& pins);

    /// Every negative result of this one is a transport fault.
    int SendMessage(const char* text, std::string& reply);

    /// True when the last negative result came from the talker and not from the server. Where the talker's lines
    /// are captured they tell: a talker prints a line of its own failures and passes a server's status on in
    /// silence. Elsewhere the code tells, and a server's status that equals one of the talker's codes counts as
    /// a fault.
    bool TransportFault() const { return m_fault; }

    /// What the last call's result means, for messages: "result -9995: the server closed the connection". A
    /// time-out says how long it waited, for whom and for what.
    std::string Describe(int result) const;

    bool Stopped() const { return m_parts.stopped && m_parts.stopped(); }

    const ServerSettings& Server() const { return m_server; }
    float AverageCycles() const { return m_talker->GetAverageCycles(); }
    float PumpCycles() const { return m_talker->GetPumpCycles(); }

private:
    /// Runs one call of the talker that waits for `awaited`, and times it.
    template <class Call>
    int Timed(const char* awaited, const Call& call);
    bool Configure();
    /// Makes the talker take replies this way. A second Configure on an open connection only tells it the
    /// port's sign.
    int Prepare(Replies replies);
    int PumpWhole(const std::uint32_t* in, std::uint32_t* out, unsigned words);
    int Checked(int result);
    std::string TakeLines() const { return m_parts.takeLines ? m_parts.takeLines() : std::string(); }

    ServerSettings m_server;
    SessionParts m_parts;
    std::unique_ptr<CVRXTalker> m_talker;
    Replies m_replies = Replies::kSingle;
    Replies m_prepared = Replies::kSingle; // what the talker is configured for
    std::vector<std::uint32_t> m_whole;    // a whole reply
    bool m_fault = false;
    std::string m_complaint; // what the talker printed during the last failing call
    const char* m_awaited = "";
    double m_waited = 0; // seconds that the last call took
};

} // namespace vrx::host
