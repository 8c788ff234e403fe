#include "tools/checks/Checkup.h"

#include "host/BlockPump.h"
#include "host/BlockSize.h"
#include "tools/checks/RawConnection.h"
#include "tools/program/Errors.h"
#include "tools/program/Numbers.h"
#include "tools/program/Terminal.h"
#include "tools/report/RunSummary.h"
#include "tools/wire/ServerProtocol.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <optional>
#include <set>

using asio::ip::tcp;

namespace vrx::tool {

namespace {

constexpr std::chrono::seconds kPatience{5}; // of the connections that are not the talker's
constexpr int kReplies = 10;                 // looked at for pieces

constexpr const char* kStateNames[] = {"ok", "note", "FAIL"};

Finding Fine(std::string detail) {
    return {Finding::kOk, std::move(detail), "", ""};
}

Finding Fault(std::string detail, std::string meaning, std::string advice) {
    return {Finding::kFailed, std::move(detail), std::move(meaning), std::move(advice)};
}

/// As the talker reads what begins with a digit: also in fewer parts, octal and hexadecimal. It connects to
/// nothing that is 0.
std::optional<asio::ip::address_v4> DottedAddress(const std::string& text) {
    in_addr address = {};
    if (::inet_aton(text.c_str(), &address) == 0 || address.s_addr == 0) return {};
    return asio::ip::address_v4(ntohl(address.s_addr));
}

std::string Waited() {
    return "waited " + std::to_string(kPatience.count()) + " s";
}

} // namespace

/// A step is done when the one that it needs did not fail.
struct Checkup::Step {
    const char* name;
    const char* needs; ///< "": none
    ExitCode failed;
    Finding (Checkup::*look)();
};

constexpr Checkup::Step Checkup::kSteps[] = {
    {"look-up", "", kCannotConnect, &Checkup::LookUpServer},
    {"reach", "look-up", kCannotConnect, &Checkup::Reach},
    {"connect", "reach", kCannotConnect, &Checkup::Connect},
    {"command", "connect", kCannotConnect, &Checkup::Command},
    {"pins", "command", kRunFailed, &Checkup::Pins},
    {"silence", "command", kRunFailed, &Checkup::Silence},
    {"latency", "silence", kRunFailed, &Checkup::Latency},
    {"whole", "silence", kRunFailed, &Checkup::Whole},
    {"pieces", "command", kRunFailed, &Checkup::Pieces},
};

Finding Checkup::Try(const Step& step) {
    const auto start = Clock::now();
    Finding finding = (this->*step.look)();
    if (finding.state != Finding::kNothing)
        Report(step.name, finding, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    return finding;
}

void Checkup::Report(const char* name, const Finding& finding, double milliseconds) {
    const char* state = kStateNames[finding.state];
    if (m_options.json) {
        m_steps.push_back(
            {{"name", name}, {"state", state}, {"milliseconds", milliseconds}, {"detail", finding.detail}});
        if (finding.state != Finding::kOk)
            m_steps.back().update({{"means", finding.meaning}, {"try", finding.advice}});
        return;
    }
    constexpr Color kColors[] = {Color::kGreen, Color::kYellow, Color::kRed};
    const auto padded = [](std::string text, std::size_t width) {
        text.resize(std::max(width, text.size()), ' ');
        return text;
    };
    std::string time = Fixed(milliseconds, 2) + " ms";
    time.insert(0, time.size() < 12 ? 12 - time.size() : 0, ' ');
    std::string text = padded(name, 8) + Colored(padded(state, 4), kColors[finding.state], m_options.colors) +
                       time + "  " + WithoutControls(finding.detail) + "\n";
    if (finding.state != Finding::kOk)
        text += "          means: " + WithoutControls(finding.meaning) +
                "\n          try: " + WithoutControls(finding.advice) + "\n";
    m_print(text);
}

int Checkup::Run() {
    ExitCode exitCode = kDone;
    std::set<std::string_view> passed = {""};
    for (const Step& step : kSteps) {
        if (!passed.contains(step.needs)) continue;
        if (Try(step).state != Finding::kFailed)
            passed.insert(step.name);
        else if (exitCode == kDone)
            exitCode = step.failed;
    }
    if (m_options.json)
        m_print(JsonLine({{"server", m_server.host},
                          {"port", m_server.port},
                          {"plugin", m_pluginFile},
                          {"ok", exitCode == kDone},
                          {"steps", m_steps}}));
    return exitCode;
}

Finding Checkup::LookUpServer() {
    const auto port = static_cast<std::uint16_t>(m_server.port);
    if (std::isdigit(static_cast<unsigned char>(m_server.host[0])) != 0) {
        const std::optional<asio::ip::address_v4> address = DottedAddress(m_server.host);
        if (address) {
            m_endpoint = {*address, port};
            return Fine(m_server.host + " is an address, nothing to look up");
        }
        return Fault("'" + m_server.host + "' is no IPv4 address",
                     "what begins with a digit is taken for an address",
                     "four numbers with dots between them, or a name that begins with a letter");
    }
    asio::error_code error;
    m_endpoint = LookUp(m_server.host, port, error);
    if (error)
        return Fault(
            "'" + m_server.host + "' is not known: " + error.message(),
            "no IPv4 address belongs to this name, so there is nothing to connect to",
            "the name's spelling, the network's name service, or the server's address instead of its name");
    return Fine(m_server.host + " is " + m_endpoint.address().to_string());
}

/// One attempt to connect answers two questions: whether the machine answers at all, and whether its port is
/// open. A refusal is an answer.
Finding Checkup::Reach() {
    RawConnection connection(kPatience);
    m_connectError = connection.Connect(m_endpoint);
    const std::string address = m_endpoint.address().to_string();
    if (!m_connectError || m_connectError == asio::error::connection_refused)
        return Fine(address + " answers");
    if (m_connectError == asio::error::timed_out)
        return Fault(Waited() + " for " + address + " to answer",
                     "the machine is off, its address is another one, or a firewall drops what is sent to it",
                     "whether the machine is on and in this network; its firewall's rule for port " +
                         std::to_string(m_server.port));
    return Fault(address + " cannot be reached: " + m_connectError.message(),
                 "this machine knows no way to that address",
                 "the network cable, the interface, and its routes");
}

Finding Checkup::Connect() {
    const std::string place = m_endpoint.address().to_string() + ":" + std::to_string(m_server.port);
    if (!m_connectError) return Fine(place + " is open");
    return Fault(place + " is closed", "the machine is there, but no program listens at this port",
                 "starting the server, or its right port (to try without it: vrx serve --port " +
                     std::to_string(m_server.port) + ")");
}

Finding Checkup::Command() {
    if (!m_session.Connect())
        return Fault("cannot connect to " + m_server.Place() + ": " + m_session.WhyNotConnected(),
                     "something listens there, but it does not answer as this kind of server does",
                     "which program listens at port " + std::to_string(m_server.port) +
                         ", and whether the server is stuck or has too many clients");
    return Fine("the server answered \"" + ConnectText() + "\"");
}

Finding Checkup::Pins() {
    Finding finding = AskPins();
    ChooseBlock();
    return finding;
}

void Checkup::ChooseBlock() {
    m_channels = m_options.channels > 0 ? m_options.channels : m_pins.in[1] > 0 ? m_pins.in[1] : 2;
    m_block = m_options.block > 0 ? m_options.block : host::PreferredBlock(m_pins, m_server, m_channels);
}

Finding Checkup::AskPins() {
    const int result = m_session.PinProps(m_pins);
    if (result >= 0)
        return Fine(m_server.input + ": " + host::PinText(m_pins.in) + ", " + m_server.output + ": " +
                    host::PinText(m_pins.out));
    m_pins = {};
    Finding note{Finding::kNote, "refused with status " + std::to_string(result),
                 "the server does not describe such pins; blocks may pass all the same",
                 "--input and --output, and --block for the size that the pins do not tell"};
    if (!m_session.TransportFault()) return note;
    note.detail = m_session.Describe(result);
    if (!m_session.Reconnect(result)) note.state = Finding::kFailed;
    return note;
}

std::string Checkup::BlockText() const {
    return "a block of " + Counted(m_block, "frame") + " of " + Counted(m_channels, "channel");
}

Finding Checkup::RefusedBlock(int result) {
    const std::string block = BlockText();
    if (!m_session.TransportFault())
        return Fault(block + " was refused with status " + std::to_string(result),
                     "the server took the request but not this block",
                     "--layout, --input and --output as the server names them, --block, --channels");
    const std::string described = m_session.Describe(result);
    m_session.Disconnect();
    const std::string answer = RawAnswer();
    if (!answer.empty())
        return Fault(block + " was answered with the text '" + answer + "'",
                     "the server understands text, but takes no such blocks",
                     "what the text says; --layout, --input and --output, --block, --channels");
    return Fault("no reply to " + block + " (" + described + ")",
                 "the server is there, but does not process such blocks as it should",
                 "a smaller --block, other --channels, and the server's own log");
}

Finding Checkup::Silence() {
    if (Words() > host::kMostWords)
        return Fault(BlockText() + " is too long",
                     "no reply can hold so many words, whatever the server does",
                     "--block " + std::to_string(host::MostFramesPerBlock(m_channels)) + " at most");
    const std::vector<std::uint32_t> in(Words());
    std::vector<std::uint32_t> out(Words());
    const int result = m_session.PumpAudio(in.data(), out.data(), static_cast<unsigned>(Words()));
    if (result < 0) return RefusedBlock(result);
    return Fine(BlockText() + " came back");
}

Finding Checkup::Latency() {
    constexpr int kMostBlocks = 200;
    constexpr double kMostSeconds = 2;
    const std::vector<std::uint32_t> in(Words());
    std::vector<std::uint32_t> out(Words());
    host::SteadyRunClock clock;
    host::BlockPump pump(m_session, clock, static_cast<unsigned>(Words()), 0);
    host::RunStatistics statistics(static_cast<double>(m_block) / m_options.rate * 1000);
    for (int i = 0; i < kMostBlocks && pump.Elapsed() < kMostSeconds; ++i) {
        host::BlockRecord block;
        if (pump.Send(in.data(), out.data(), block) != host::Sent::kReplied)
            return Fault("block " + std::to_string(i + 1) + ": " + m_session.Describe(block.result),
                         "the connection does not last, or replies are not what they should be",
                         "what the next step says, the server's log, and the network between");
        statistics.Add(block);
        if (statistics.Failed() > 0) return RefusedBlock(statistics.FirstFailed().result);
    }
    const host::BlockTimes times = statistics.Times();
    Finding finding = Fine(Counted(statistics.Blocks(), "block") + ": p50 " + Brief(times.p50) + " ms, p99 " +
                           Brief(times.p99) + " ms, max " + Brief(times.max) + " ms; a block lasts " +
                           Brief(statistics.Deadline()) + " ms at " + std::to_string(m_options.rate) + " Hz");
    if (statistics.Missed() == 0) return finding;
    finding.state = Finding::kNote;
    finding.meaning = std::to_string(statistics.Missed()) +
                      " of them took longer than a block lasts: not fit for real time";
    finding.advice = "vrx sweep, which finds the smallest safe block";
    return finding;
}

/// The server, or the recorder in front of it.
tcp::endpoint Checkup::RawEndpoint() const {
    if (m_server.detourPort == 0) return m_endpoint;
    return {asio::ip::address_v4::loopback(), static_cast<std::uint16_t>(m_server.detourPort)};
}

std::string Checkup::ConnectText() const {
    return "connect," + m_server.host + "," + std::to_string(m_server.clientPort);
}

/// What the server says to a block in text; "" when it says nothing or replies with a packet.
std::string Checkup::RawAnswer() {
    RawConnection connection(kPatience);
    if (connection.Open(RawEndpoint(), ConnectText() + "\n") ||
        connection.Send(SilentRequest(Names(), Words())))
        return "";
    const RawReply reply = ReadReply(connection);
    if (reply.isPacket || reply.error) return "";
    return Printable(std::string_view(reply.bytes).substr(0, reply.bytes.find('\n')));
}

Finding Checkup::Pieces() {
    if (Words() > host::kMostWords) return {Finding::kNothing, "", "", ""};
    m_session.Disconnect();
    RawConnection connection(kPatience);
    asio::error_code error = connection.Open(RawEndpoint(), ConnectText() + "\n");
    WholeReplies replies;
    if (!error) replies = CountWholeReplies(connection, SilentRequest(Names(), Words()), kReplies);
    const RawReply& last = replies.last;
    if (last.isPacket && last.pieces > 1) return InPieces(last);
    if (!error) error = last.error;
    if (error)
        return Fault(error == asio::error::timed_out
                         ? Waited() + " for " + m_server.Place() + " to reply to the block"
                         : "no reply from " + m_server.Place() + ": " + error.message(),
                     "the server does not answer blocks as it should", "the server's own log");
    if (!last.isPacket)
        return Fault("the server answers blocks with text",
                     "there are no replies whose pieces could be counted", "what the step before says");
    return Fine(std::to_string(replies.whole) + " of " + std::to_string(kReplies) + " replies of " +
                std::to_string(last.bytes.size()) + " bytes came in one piece");
}

/// A reply that came in pieces.
Finding Checkup::InPieces(const RawReply& reply) const {
    Finding finding = Fault("a reply of " + std::to_string(reply.bytes.size()) + " bytes came in " +
                                std::to_string(reply.pieces) + " pieces, the first of " +
                                std::to_string(reply.firstPiece) + " bytes",
                            "a host that takes what one receive delivers loses the rest of such blocks",
                            "a server that sends each reply with one call");
    const std::size_t fitting = host::FramesPerSegment(m_server, m_channels);
    const bool fits = m_block <= fitting;
    if (m_standsWhole && Words() <= host::kWholeReplyWords) {
        finding.advice =
            fits ? finding.advice + ", or a host that collects replies, as vrx pump --replies whole"
                 : "nothing with vrx pump, which collects such replies; in other hosts --block " +
                       std::to_string(fitting) + ", whose replies fit one segment";
        if (!fits) finding.state = Finding::kNote;
    } else if (!fits) {
        finding.advice = "--block " + std::to_string(fitting) + ", whose replies fit one segment";
    }
    return finding;
}

/// Whether the server gives as many words as a whole reply holds, and that reply can be collected.
Finding Checkup::Whole() {
    const std::size_t words = std::min(Words(), host::kWholeReplyWords);
    const std::vector<std::uint32_t> in(words);
    std::vector<std::uint32_t> out(words);
    m_session.Disconnect(); // what the steps before left on the way must not be taken for the reply
    m_session.TakeReplies(host::Replies::kWhole);
    const int result = m_session.PumpAudio(in.data(), out.data(), static_cast<unsigned>(words));
    m_session.TakeReplies(host::Replies::kSingle);
    m_standsWhole = result >= 0;
    const std::string size = std::to_string(host::kWholeReplyWords) + " words";
    if (m_standsWhole) return Fine("a reply of " + size + " was collected");
    Finding note{Finding::kNote, "no reply of " + size + ": refused with status " + std::to_string(result),
                 "replies to blocks longer than a segment cannot be collected until they are whole",
                 "blocks of " + std::to_string(host::FramesPerSegment(m_server, m_channels)) +
                     " frames, or a server that gives more words than it is sent"};
    if (m_session.TransportFault()) note.detail = "no reply of " + size + ": " + m_session.Describe(result);
    return note;
}

} // namespace vrx::tool
