#include "host/Session.h"

#include "tools/program/Errors.h"
#include "tools/program/Interrupt.h"
#include "tools/program/Numbers.h"

#include <chrono>
#include <utility>

namespace vrx {

namespace {

constexpr int kNotAPacket = -1000;

} // namespace

Session::Session(const std::string& plugin, ServerSettings server)
    : m_server(std::move(server)), m_plugin(plugin), m_talker(m_plugin.CreateTalker()) {}

void Session::Connect() {
    if (Configure()) return;
    if (Interrupted()) throw Failure{kInterrupted, "interrupted while connecting to " + m_server.Place()};
    throw Failure{kCannotConnect, "cannot connect to " + m_server.Place() + ": " + WhyNotConnected() + " (" +
                                      m_complaint + ")"};
}

std::string Session::WhyNotConnected() const {
    const bool timedOut = m_complaint.ends_with("hr=0xffffd8f1"); // -9999
    if (timedOut)
        return "waited " + Fixed(m_waited, 1) +
               " s for its reply to the connect command: check that it is this kind of server that listens "
               "there";
    const std::string tried = m_waited < 1 ? "" : "tried for " + Fixed(m_waited, 1) + " s to reach it: ";
    return tried + "check the address and that the server runs there";
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
    if (result == kNotAPacket) Disconnect();
    return Configure();
}

int Session::PumpAudio(const std::uint32_t* in, std::uint32_t* out, unsigned words) {
    return Checked(Timed("the block", [&] { return m_talker->PumpAudio(in, out, words, words); }));
}

int Session::PinProps(PinValues& pins) {
    return Checked(Timed("the question for its pins", [&] {
        return m_talker->PinProps(pins.in[0], pins.in[1], pins.in[2], pins.out[0], pins.out[1], pins.out[2]);
    }));
}

int Session::SendMessage(const char* text, std::string& reply) {
    return Timed("the text", [&] { return m_talker->SendMessage(text, reply); });
}

bool Session::Configure() {
    const int done =
        Timed("the connect command", [&] { return m_talker->Configure(m_server.args.c_str()) ? 1 : 0; });
    if (done == 1) return true;
    m_complaint = m_output.TakeLines();
    return false;
}

int Session::Checked(int result) {
    if (result < 0) m_complaint = m_output.TakeLines();
    return result;
}

std::string Session::Describe(int result) const {
    const auto meaning = [&]() -> std::string {
        switch (result) {
        case -1:
            return "no connection to the server";
        case -9995:
            return "the server closed the connection";
        case -9996:
            return "receiving failed";
        case -9997:
            return "sending failed";
        case -9999:
            return "waited " + Fixed(m_waited, 1) + " s for " + m_server.Place() + " to reply to " +
                   m_awaited;
        case kNotAPacket:
            return "the reply was no packet";
        default:
            return "unknown";
        }
    };
    return "result " + std::to_string(result) + ": " + meaning();
}

} // namespace vrx
