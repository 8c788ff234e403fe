#include "tools/Session.h"

#include "tools/Errors.h"
#include "tools/Interrupt.h"

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
    throw Failure{kCannotConnect, "cannot connect to " + m_server.Place() +
                                      ": check the address and that the server runs there (" + m_complaint +
                                      ")"};
}

bool Session::Reconnect(int result) {
    // The rest of an unrecognisable reply may still be on its way, so that connection is given up. After
    // other faults the talker finds out by itself that its connection is dead.
    if (result == kNotAPacket) m_talker = m_plugin.CreateTalker();
    return Configure();
}

int Session::PumpAudio(const std::uint32_t* in, std::uint32_t* out, unsigned words) {
    return Checked(m_talker->PumpAudio(in, out, words, words));
}

int Session::PinProps(PinValues& pins) {
    return Checked(
        m_talker->PinProps(pins.in[0], pins.in[1], pins.in[2], pins.out[0], pins.out[1], pins.out[2]));
}

bool Session::Configure() {
    if (m_talker->Configure(m_server.args.c_str())) return true;
    m_complaint = m_output.TakeLines();
    return false;
}

int Session::Checked(int result) {
    if (result < 0) m_complaint = m_output.TakeLines();
    return result;
}

std::string Session::Describe(int result) {
    const auto meaning = [result] {
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
            return "the server did not reply in time";
        case kNotAPacket:
            return "the reply was no packet";
        default:
            return "unknown";
        }
    };
    return "result " + std::to_string(result) + ": " + meaning();
}

} // namespace vrx
