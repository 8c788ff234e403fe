#include "host/Session.h"

#include "host/Packet.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

namespace vrx::host {

namespace {

constexpr int kReplyTimeout = 10; // seconds that a talker waits for a reply
constexpr double kAboutReplyTimeout[] = {0.9 * kReplyTimeout, 2 * kReplyTimeout};

bool IsTalkersOwn(int result) {
    switch (result) {
    case CVRXTalker::kNoConnection:
    case CVRXTalker::kPeerClosed:
    case CVRXTalker::kReceiveFailed:
    case CVRXTalker::kSendFailed:
    case CVRXTalker::kTimedOut:
    case CVRXTalker::kNotAPacket:
        return true;
    default:
        return false;
    }
}

std::string Seconds(double value) {
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.1f s", value);
    return text;
}

} // namespace

std::string PinText(const unsigned (&values)[3]) {
    return std::to_string(values[0]) + " " + std::to_string(values[1]) + " " + std::to_string(values[2]);
}

Session::Session(ServerSettings server, SessionParts parts)
    : m_server(std::move(server)), m_parts(std::move(parts)), m_talker(m_parts.makeTalker()) {}

bool Session::Connect() {
    return Configure();
}

std::string Session::WhyNotConnected() const {
    const std::string printed = m_complaint.empty() ? "" : " (" + m_complaint + ")";
    // A connect that fails takes no time or minutes, a reply that does not come takes ten seconds.
    if (m_waited >= kAboutReplyTimeout[0] && m_waited < kAboutReplyTimeout[1])
        return "waited " + Seconds(m_waited) +
               " for its reply to the connect command: check that it is this kind of server that listens "
               "there" +
               printed;
    const std::string tried = m_waited < 1 ? "" : "tried for " + Seconds(m_waited) + " to reach it: ";
    return tried + "check the address and that the server runs there" + printed;
}

template <class Call>
int Session::Timed(const char* awaited, const Call& call) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const int result = call();
    m_waited = std::chrono::duration<double>(Clock::now() - start).count();
    m_awaited = awaited;
    return result;
}

bool Session::Reconnect(int result) {
    // The rest of an unrecognisable reply may still be on its way, so that connection is given up. After
    // other faults the talker finds out by itself that its connection is dead.
    if (result == CVRXTalker::kNotAPacket) Disconnect();
    return Configure();
}

int Session::PumpAudio(const std::uint32_t* in, std::uint32_t* out, unsigned words) {
    const int prepared = Prepare(m_replies);
    if (prepared < 0) return prepared;
    return Checked(Timed("the block", [&] {
        return m_replies == Replies::kWhole ? PumpWhole(in, out, words)
                                            : m_talker->PumpAudio(in, out, words, words);
    }));
}

int Session::PumpWhole(const std::uint32_t* in, std::uint32_t* out, unsigned words) {
    m_whole.resize(kWholeReplyWords);
    const int result = m_talker->PumpAudio(in, m_whole.data(), words, kWholeReplyWords);
    if (result >= 0) std::copy_n(m_whole.begin(), std::min<std::size_t>(words, m_whole.size()), out);
    return result;
}

int Session::PinProps(PinValues& pins) {
    const int prepared = Prepare(Replies::kSingle);
    if (prepared < 0) return prepared;
    return Checked(Timed("the question for its pins", [&] {
        return m_talker->PinProps(pins.in[0], pins.in[1], pins.in[2], pins.out[0], pins.out[1], pins.out[2]);
    }));
}

int Session::SendMessage(const char* text, std::string& reply) {
    return Checked(Timed("the text", [&] { return m_talker->SendMessage(text, reply); }));
}

int Session::Prepare(Replies replies) {
    if (m_prepared == replies) return 0;
    m_prepared = replies;
    if (Configure()) return 0;
    m_fault = true;
    return CVRXTalker::kNoConnection;
}

bool Session::Configure() {
    const bool whole = m_prepared == Replies::kWhole;
    const std::string args =
        whole ? m_server.ArgsWithPort(m_server.ConnectPort() - kWholeReplyPort) : m_server.args;
    const int result = Timed("the connect command", [&] {
        return m_talker->Configure(args.c_str()) ? 0 : CVRXTalker::kNoConnection;
    });
    if (result < 0) m_complaint = TakeLines();
    return result == 0;
}

int Session::Checked(int result) {
    if (result >= 0) return result;
    m_complaint = TakeLines();
    m_fault = m_parts.takeLines ? !m_complaint.empty() : IsTalkersOwn(result);
    return result;
}

std::string Session::Describe(int result) const {
    const auto meaning = [&]() -> std::string {
        switch (result) {
        case CVRXTalker::kNoConnection:
            return "no connection to the server";
        case CVRXTalker::kPeerClosed:
            return "the server closed the connection";
        case CVRXTalker::kReceiveFailed:
            return "receiving failed";
        case CVRXTalker::kSendFailed:
            return "sending failed";
        case CVRXTalker::kTimedOut:
            return "waited " + Seconds(m_waited) + " for " + m_server.Place() + " to reply to " + m_awaited;
        case CVRXTalker::kNotAPacket:
            return "the reply was no packet";
        default:
            return "unknown";
        }
    };
    return "result " + std::to_string(result) + ": " + meaning();
}

} // namespace vrx::host
