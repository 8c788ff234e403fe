#include "tools/capture/CaptureReader.h"

#include "host/Packet.h"
#include "tools/program/Errors.h"
#include "tools/program/Numbers.h"
#include "tools/wire/ServerProtocol.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <map>
#include <pcap/pcap.h>
#include <set>
#include <string_view>
#include <tins/exceptions.h>
#include <tins/ip.h>
#include <tins/ipv6.h>
#include <tins/rawpdu.h>
#include <tins/tcp.h>
#include <tins/tcp_ip/stream_follower.h>
#include <utility>

namespace vrx::tool {

/// Where a packet's protocol and its network layer stand, by the file's link type.
struct LinkLayer {
    int type;
    std::size_t header;
    int protocolAt; ///< -1: nowhere, then it is IP
};

namespace {

using Tins::TCP;
using Tins::TCPIP::Stream;
using Tins::TCPIP::StreamFollower;
using Tins::TCPIP::StreamIdentifier;

constexpr std::size_t kMostOpen = 4096;
constexpr std::size_t kMostEnded = 4096;
constexpr std::size_t kMostNotes = 20;

constexpr LinkLayer kLinkLayers[] = {
    {DLT_RAW, 0, -1},  {DLT_IPV4, 0, -1},    {DLT_IPV6, 0, -1},       {DLT_NULL, 4, -1},
    {DLT_LOOP, 4, -1}, {DLT_EN10MB, 14, 12}, {DLT_LINUX_SLL, 16, 14}, {DLT_LINUX_SLL2, 20, 0},
};

const LinkLayer* FindLinkLayer(int type) {
    for (const LinkLayer& each : kLinkLayers)
        if (each.type == type) return &each;
    return nullptr;
}

unsigned BigEndian16(std::string_view bytes, std::size_t at) {
    return static_cast<unsigned>(static_cast<unsigned char>(bytes[at])) << 8 |
           static_cast<unsigned char>(bytes[at + 1]);
}

/// The packet from its network layer on; "" when that is neither IPv4 nor IPv6.
std::string_view NetworkLayer(std::string_view frame, const LinkLayer& link) {
    constexpr unsigned kIpv4 = 0x0800;
    constexpr unsigned kIpv6 = 0x86DD;
    constexpr unsigned kVlan = 0x8100;
    constexpr unsigned kServiceVlan = 0x88A8;
    std::size_t header = link.header;
    if (frame.size() < header + 1) return {};
    if (link.protocolAt >= 0) {
        auto at = static_cast<std::size_t>(link.protocolAt);
        unsigned protocol = BigEndian16(frame, at);
        while (link.type == DLT_EN10MB && (protocol == kVlan || protocol == kServiceVlan)) {
            at += 4;
            header += 4;
            if (frame.size() < header + 1) return {};
            protocol = BigEndian16(frame, at);
        }
        if (protocol != kIpv4 && protocol != kIpv6) return {};
    }
    return frame.substr(header);
}

std::unique_ptr<Tins::PDU> ParseNetworkLayer(std::string_view bytes) {
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    const auto size = static_cast<std::uint32_t>(bytes.size());
    const int version = data[0] >> 4;
    try {
        if (version == 4) return std::make_unique<Tins::IP>(data, size);
        if (version == 6) return std::make_unique<Tins::IPv6>(data, size);
    } catch (const std::exception&) {
        return nullptr; // no packet that a TCP stack would have taken
    }
    return nullptr;
}

std::string ServerText(const Stream& stream, bool swapped) {
    const std::uint16_t port = swapped ? stream.client_port() : stream.server_port();
    std::string address;
    if (stream.is_v6())
        address = (swapped ? stream.client_addr_v6() : stream.server_addr_v6()).to_string();
    else
        address = (swapped ? stream.client_addr_v4() : stream.server_addr_v4()).to_string();
    return address + ":" + std::to_string(port);
}

} // namespace

class CaptureReader::Follower {
public:
    explicit Follower(const std::string& path);
    ~Follower() { pcap_close(m_file); }

    bool Next(CaptureEvent& event);
    bool IsRaw() const { return m_link->type == DLT_RAW; }
    const std::vector<std::string>& Notes() const { return m_notes; }

private:
    struct Tracked {
        std::uint64_t number = 0;
        Stream* stream = nullptr;
        std::uint32_t firstSequence = 0;
        bool swapped = false;            // the stream's client is the server
        bool synchronized = true;        // a request's beginning was seen
        std::array<bool, 2> closed = {}; // by the sides of the stream
        std::array<std::unique_ptr<Tins::PDU>, 2> heldEnd;
    };

    bool ReadPacket();
    void TakePacket(const pcap_pkthdr& header, std::string_view frame);
    void Follow(Tins::PDU& packet, TCP& tcp);
    void ForgetEarlier(const Tins::PDU& packet, const TCP& tcp);
    void Opened(Stream& stream);
    void Bytes(bool streamClient, const Stream::payload_type& payload);
    static void HoldEarlyEnd(Tracked& tracked, bool streamClient, const Tins::PDU& packet, TCP& tcp);
    void TakeHeldEnds(Tracked& tracked);
    void TakeEnd(Tracked& tracked, bool streamClient, unsigned flags);
    void Emit(const Tracked& tracked, CaptureEvent::Kind kind, bool streamClient, std::string bytes = {});
    void Forget(bool ended);
    void Note(const std::string& text);

    std::string m_path;
    pcap_t* m_file = nullptr;
    const LinkLayer* m_link = nullptr;
    StreamFollower m_streams;
    std::map<StreamIdentifier, Tracked> m_open;
    std::set<StreamIdentifier> m_ended; // lately: what still comes of them is nothing new
    std::deque<StreamIdentifier> m_endedInOrder;
    std::set<std::string> m_servers;
    StreamIdentifier m_current; // the packet's that is being taken
    std::int64_t m_time = 0;
    std::uint64_t m_packets = 0;
    std::uint64_t m_connections = 0;
    std::deque<CaptureEvent> m_events;
    std::vector<std::string> m_notes;
};

CaptureReader::Follower::Follower(const std::string& path) : m_path(path) {
    std::FILE* stream = std::fopen(path.c_str(), "rbe");
    if (stream == nullptr) throw Failure{kFileFailed, path + ": cannot be opened: " + std::strerror(errno)};
    char error[PCAP_ERRBUF_SIZE] = "";
    m_file = pcap_fopen_offline_with_tstamp_precision(stream, PCAP_TSTAMP_PRECISION_NANO, error);
    if (m_file == nullptr) {
        (void)std::fclose(stream);
        throw Failure{kFileFailed, path + ": is no capture file (pcap or pcapng): " + error};
    }
    m_link = FindLinkLayer(pcap_datalink(m_file));
    if (m_link == nullptr) {
        const char* const name = pcap_datalink_val_to_name(pcap_datalink(m_file));
        const std::string kind = name != nullptr ? name : std::to_string(pcap_datalink(m_file));
        pcap_close(m_file);
        throw Failure{kFileFailed, path + ": was captured on a kind of link that is not read here (" + kind +
                                       "): capture on Ethernet, on loopback or on \"any\""};
    }
    m_streams.stream_keep_alive(std::chrono::hours(24 * 365)); // by the clock of now: nothing to a file
    m_streams.follow_partial_streams(true);
    m_streams.new_stream_callback([this](Stream& each) { Opened(each); });
    m_streams.stream_termination_callback([this](Stream&, StreamFollower::TerminationReason) {
        const auto found = m_open.find(m_current);
        if (found == m_open.end()) return;
        Note("bytes of connection " + std::to_string(found->second.number) +
             " are missing: what followed them is read as a connection of its own");
        Emit(found->second, CaptureEvent::kLost, true);
        Forget(false);
    });
}

bool CaptureReader::Follower::Next(CaptureEvent& event) {
    while (m_events.empty())
        if (!ReadPacket()) return false;
    event = std::move(m_events.front());
    m_events.pop_front();
    return true;
}

/// False at the end of the file.
bool CaptureReader::Follower::ReadPacket() {
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    const int result = pcap_next_ex(m_file, &header, &data);
    if (result == 1) {
        TakePacket(*header, {reinterpret_cast<const char*>(data), header->caplen});
        return true;
    }
    if (result != PCAP_ERROR) return false;
    const std::string error = pcap_geterr(m_file);
    if (error.find("truncated") == error.npos)
        throw Failure{kFileFailed,
                      m_path + ": is broken behind packet " + std::to_string(m_packets) + ": " + error};
    Note("ends in the middle of packet " + std::to_string(m_packets + 1) + ": what stands before it is used");
    return false;
}

void CaptureReader::Follower::TakePacket(const pcap_pkthdr& header, std::string_view frame) {
    ++m_packets;
    m_time = static_cast<std::int64_t>(static_cast<std::uint64_t>(header.ts.tv_sec) * kSecond +
                                       static_cast<std::uint64_t>(header.ts.tv_usec));
    const std::string_view bytes = NetworkLayer(frame, *m_link);
    if (bytes.empty()) return;
    const auto packet = ParseNetworkLayer(bytes);
    if (packet == nullptr) return;
    auto* const tcp = packet->find_pdu<TCP>();
    if (tcp == nullptr) return;
    if (header.caplen < header.len)
        throw Failure{kFileFailed, m_path + ": packet " + std::to_string(m_packets) +
                                       " was captured only in part (" + std::to_string(header.caplen) +
                                       " of " + std::to_string(header.len) +
                                       " bytes): capture whole packets, as tcpdump does with -s 0"};
    try {
        Follow(*packet, *tcp);
    } catch (const Tins::exception_base&) {
        return; // options that no TCP stack would have taken
    }
}

void CaptureReader::Follower::Follow(Tins::PDU& packet, TCP& tcp) {
    constexpr unsigned kCongestion = TCP::ECE | TCP::CWR; // with them the follower sees no beginning,
    const unsigned behindReset = (tcp.flags() & TCP::RST) != 0 ? TCP::FIN : 0; // and with this no reset
    tcp.flags(static_cast<std::uint16_t>(tcp.flags() & ~(kCongestion | behindReset)));
    m_current = StreamIdentifier::make_identifier(packet);
    if (tcp.flags() == TCP::SYN) ForgetEarlier(packet, tcp);
    if (m_ended.contains(m_current)) return;

    const auto known = m_open.find(m_current);
    const bool streamClient =
        known == m_open.end() || known->second.stream->client_flow().packet_belongs(packet);
    if (known != m_open.end() && (tcp.flags() & TCP::FIN) != 0)
        HoldEarlyEnd(known->second, streamClient, packet, tcp);
    m_streams.process_packet(packet); // a new one calls Opened

    const auto open = m_open.find(m_current);
    if (open == m_open.end()) return; // nothing to follow, or the follower gave it up
    TakeEnd(open->second, streamClient, tcp.flags());
    if (m_open.contains(m_current)) TakeHeldEnds(open->second);
}

/// A new connection between two ends that had another one: the end of that was not captured.
void CaptureReader::Follower::ForgetEarlier(const Tins::PDU& packet, const TCP& tcp) {
    m_ended.erase(m_current);
    const auto found = m_open.find(m_current);
    if (found == m_open.end() || found->second.firstSequence == tcp.seq()) return;
    Emit(found->second, CaptureEvent::kLost, true);
    m_open.erase(found);
    const std::unique_ptr<Tins::PDU> reset(packet.clone()); // makes the follower forget it
    reset->find_pdu<TCP>()->flags(TCP::RST);
    m_streams.process_packet(*reset);
}

void CaptureReader::Follower::Opened(Stream& stream) {
    if (m_open.size() >= kMostOpen)
        throw Failure{kFileFailed, m_path + ": more than " + std::to_string(kMostOpen) +
                                       " connections are open at one time"};
    Tracked& tracked = m_open[m_current];
    tracked.number = ++m_connections;
    tracked.stream = &stream;
    tracked.firstSequence = stream.client_flow().sequence_number();
    tracked.synchronized = !stream.is_partial_stream();
    if (stream.is_partial_stream()) {
        const bool knownServer = m_servers.contains(ServerText(stream, false));
        tracked.swapped = !knownServer && (m_servers.contains(ServerText(stream, true)) ||
                                           stream.client_port() < stream.server_port());
        Note("connection " + std::to_string(tracked.number) +
             " began before the capture: what came before its first whole request is left out");
    }
    const std::string server = ServerText(stream, tracked.swapped);
    if (m_servers.size() < kMostServers) m_servers.insert(server);
    Emit(tracked, CaptureEvent::kOpened, true, server);
    stream.client_data_callback([this](Stream& each) { Bytes(true, each.client_payload()); });
    stream.server_data_callback([this](Stream& each) { Bytes(false, each.server_payload()); });
}

void CaptureReader::Follower::Bytes(bool streamClient, const Stream::payload_type& payload) {
    const auto open = m_open.find(m_current);
    if (open == m_open.end() || payload.empty()) return; // forgotten, or was sent again
    Tracked& tracked = open->second;
    std::string bytes(payload.begin(), payload.end());
    if (!tracked.synchronized) {
        const bool fromClient = streamClient != tracked.swapped;
        tracked.synchronized =
            fromClient && (bytes.starts_with(host::kPacketTagBytes) || bytes.starts_with(kConnectCommand));
        if (!tracked.synchronized) return;
    }
    Emit(tracked, CaptureEvent::kBytes, streamClient, std::move(bytes));
}

/// An end that came before bytes in front of it waits for them.
void CaptureReader::Follower::HoldEarlyEnd(Tracked& tracked, bool streamClient, const Tins::PDU& packet,
                                           TCP& tcp) {
    const auto& flow = streamClient ? tracked.stream->client_flow() : tracked.stream->server_flow();
    if (static_cast<std::int32_t>(tcp.seq() - flow.sequence_number()) <= 0) return;
    tracked.heldEnd[streamClient ? 0 : 1].reset(packet.clone());
    tcp.flags(static_cast<std::uint16_t>(tcp.flags() & ~unsigned{TCP::FIN}));
}

void CaptureReader::Follower::TakeHeldEnds(Tracked& tracked) {
    for (const bool streamClient : {true, false}) {
        const auto& flow = streamClient ? tracked.stream->client_flow() : tracked.stream->server_flow();
        auto& held = tracked.heldEnd[streamClient ? 0 : 1];
        if (held == nullptr) continue;
        TCP& tcp = *held->find_pdu<TCP>();
        if (static_cast<std::int32_t>(tcp.seq() - flow.sequence_number()) > 0) continue;
        const std::unique_ptr<Tins::PDU> end = std::move(held);
        return Follow(*end, tcp);
    }
}

void CaptureReader::Follower::TakeEnd(Tracked& tracked, bool streamClient, unsigned flags) {
    if ((flags & TCP::RST) != 0) {
        Emit(tracked, CaptureEvent::kReset, streamClient);
        return Forget(true);
    }
    if ((flags & TCP::FIN) == 0 || std::exchange(tracked.closed[streamClient ? 0 : 1], true)) return;
    Emit(tracked, CaptureEvent::kClosed, streamClient);
    if (tracked.closed[0] && tracked.closed[1]) Forget(true);
}

void CaptureReader::Follower::Emit(const Tracked& tracked, CaptureEvent::Kind kind, bool streamClient,
                                   std::string bytes) {
    const Side from = streamClient != tracked.swapped ? Side::kClient : Side::kServer;
    m_events.push_back({kind, from, tracked.number, m_time, std::move(bytes)});
}

/// ended   nothing more is expected of the current connection
void CaptureReader::Follower::Forget(bool ended) {
    m_open.erase(m_current);
    if (!ended || !m_ended.insert(m_current).second) return;
    m_endedInOrder.push_back(m_current);
    if (m_endedInOrder.size() <= kMostEnded) return;
    m_ended.erase(m_endedInOrder.front());
    m_endedInOrder.pop_front();
}

void CaptureReader::Follower::Note(const std::string& text) {
    if (m_notes.size() < kMostNotes) m_notes.push_back(m_path + ": " + text);
}

CaptureReader::CaptureReader(const std::string& path) : m_follower(std::make_unique<Follower>(path)) {}

CaptureReader::~CaptureReader() = default;

bool CaptureReader::Next(CaptureEvent& event) {
    return m_follower->Next(event);
}

bool CaptureReader::IsRaw() const {
    return m_follower->IsRaw();
}

const std::vector<std::string>& CaptureReader::Notes() const {
    return m_follower->Notes();
}

} // namespace vrx::tool
