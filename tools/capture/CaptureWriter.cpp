#include "tools/capture/CaptureWriter.h"

#include "tools/program/Errors.h"
#include "tools/program/OutputFile.h"

#include <cerrno>
#include <cstring>
#include <pcap/pcap.h>
#include <tins/ip.h>
#include <tins/rawpdu.h>
#include <tins/tcp.h>
#include <unistd.h>
#include <vector>

namespace vrx::tool {

namespace {

using Tins::TCP;

constexpr int kLongestPacket = 262144;
constexpr std::size_t kFileBuffer = 262144;
constexpr std::uint16_t kWindow = 65535;
constexpr std::uint8_t kWindowScale = 7;
constexpr std::uint8_t kTimeToLive = 64;
/// A receiver that sends nothing itself acknowledges after so many bytes: a part of the window.
constexpr std::uint32_t kAcknowledgeAfter = 1U << 20;
/// Connections begin at sequence numbers that lie so far apart.
constexpr std::uint32_t kSequenceStep = 64000;

unsigned SequenceLength(unsigned flags, std::string_view bytes) {
    const bool counts = (flags & (TCP::SYN | TCP::FIN)) != 0;
    return static_cast<unsigned>(bytes.size()) + (counts ? 1 : 0);
}

} // namespace

struct CaptureWriter::Files {
    std::vector<char> buffer = std::vector<char>(kFileBuffer);
    pcap_t* format = nullptr;
    pcap_dumper_t* file = nullptr;

    ~Files() {
        if (file != nullptr) pcap_dump_close(file);
        if (format != nullptr) pcap_close(format);
    }
};

CaptureWriter::CaptureWriter(const std::string& path, bool overwrite)
    : m_path(path), m_files(std::make_unique<Files>()) {
    OutputFile::Check(path, overwrite);
    std::FILE* stream = std::fopen(path.c_str(), "wbe");
    if (stream == nullptr) throw Failure{kFileFailed, path + ": cannot be created: " + std::strerror(errno)};
    (void)std::setvbuf(stream, m_files->buffer.data(), _IOFBF, m_files->buffer.size());
    m_files->format =
        pcap_open_dead_with_tstamp_precision(DLT_RAW, kLongestPacket, PCAP_TSTAMP_PRECISION_NANO);
    m_files->file = pcap_dump_fopen(m_files->format, stream);
    if (m_files->file == nullptr) {
        (void)std::fclose(stream);
        throw Failure{kFileFailed, path + ": cannot be written: " + pcap_geterr(m_files->format)};
    }
    if (!Flush()) throw Failure{kFileFailed, path + ": cannot be written: " + m_error};
}

CaptureWriter::~CaptureWriter() {
    (void)Flush();
}

void CaptureWriter::Open(std::uint64_t connection, const Endpoint& client, const Endpoint& server,
                         std::int64_t time) {
    m_firstSequence += kSequenceStep;
    Connection& opened = m_connections[connection];
    opened = {{client, m_firstSequence, m_firstSequence, false},
              {server, m_firstSequence, m_firstSequence, false}};
    Segment(opened.client, opened.server, TCP::SYN, time);
    Segment(opened.server, opened.client, TCP::SYN | TCP::ACK, time);
    Segment(opened.client, opened.server, TCP::ACK, time);
}

void CaptureWriter::Refuse(const Endpoint& client, const Endpoint& server, std::int64_t time) {
    m_firstSequence += kSequenceStep;
    Connection refused{{client, m_firstSequence, m_firstSequence, false}, {server, 0, 0, false}};
    Segment(refused.client, refused.server, TCP::SYN, time);
    Segment(refused.server, refused.client, TCP::RST | TCP::ACK, time);
}

void CaptureWriter::Bytes(std::uint64_t connection, Side from, std::int64_t time, std::string_view bytes) {
    Connection* const found = Find(connection);
    if (found == nullptr || bytes.empty()) return;
    Direction& sender = from == Side::kClient ? found->client : found->server;
    Direction& receiver = from == Side::kClient ? found->server : found->client;
    if (sender.closed) return;
    Segment(sender, receiver, TCP::PSH | TCP::ACK, time, bytes);
    if (sender.next - sender.acked >= kAcknowledgeAfter) Segment(receiver, sender, TCP::ACK, time);
}

void CaptureWriter::Close(std::uint64_t connection, Side from, std::int64_t time) {
    Connection* const found = Find(connection);
    if (found == nullptr) return;
    Direction& sender = from == Side::kClient ? found->client : found->server;
    Direction& receiver = from == Side::kClient ? found->server : found->client;
    if (sender.closed) return;
    Segment(sender, receiver, TCP::FIN | TCP::ACK, time);
    sender.closed = true;
    Segment(receiver, sender, TCP::ACK, time);
    if (receiver.closed) m_connections.erase(connection);
}

void CaptureWriter::Reset(std::uint64_t connection, Side from, std::int64_t time) {
    Connection* const found = Find(connection);
    if (found == nullptr) return;
    Direction& sender = from == Side::kClient ? found->client : found->server;
    Direction& receiver = from == Side::kClient ? found->server : found->client;
    Segment(sender, receiver, TCP::RST | TCP::ACK, time);
    m_connections.erase(connection);
}

bool CaptureWriter::Flush() {
    if (!m_error.empty()) return false;
    std::FILE* const stream = pcap_dump_file(m_files->file);
    if (std::fflush(stream) == 0 && std::ferror(stream) == 0) {
        m_bytes = static_cast<std::uint64_t>(pcap_dump_ftell64(m_files->file));
        return true;
    }
    m_error = errno != 0 ? std::strerror(errno) : "it cannot be written";
    // Half a packet at the end would only puzzle its reader; where this fails too, readers live with it.
    const int ignored = ::ftruncate(::fileno(stream), static_cast<off_t>(m_bytes));
    (void)ignored;
    return false;
}

CaptureWriter::Connection* CaptureWriter::Find(std::uint64_t connection) {
    const auto found = m_connections.find(connection);
    return found == m_connections.end() ? nullptr : &found->second;
}

void CaptureWriter::Segment(Direction& from, Direction& to, unsigned flags, std::int64_t time,
                            std::string_view bytes) {
    TCP tcp(to.from.port, from.from.port);
    tcp.flags(static_cast<std::uint16_t>(flags));
    tcp.seq(from.next);
    tcp.window(kWindow);
    if ((flags & TCP::SYN) != 0) {
        tcp.mss(kMostBytes);
        tcp.winscale(kWindowScale);
    }
    if ((flags & TCP::ACK) != 0) {
        tcp.ack_seq(to.next);
        to.acked = to.next;
    }
    from.next += SequenceLength(flags, bytes);

    Tins::IP ip(to.from.address, from.from.address);
    ip.ttl(kTimeToLive);
    ip.flags(Tins::IP::DONT_FRAGMENT);
    ip.id(++m_packetNumber);
    auto packet = ip / tcp;
    if (!bytes.empty())
        packet /= Tins::RawPDU(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                               static_cast<std::uint32_t>(bytes.size()));
    const auto serialized = packet.serialize();
    WritePacket({reinterpret_cast<const char*>(serialized.data()), serialized.size()}, time);
}

void CaptureWriter::WritePacket(std::string_view packet, std::int64_t time) {
    if (!m_error.empty()) return;
    pcap_pkthdr header = {};
    header.ts.tv_sec = time / kSecond;
    header.ts.tv_usec = time % kSecond; // nanoseconds, as the file was opened
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    header.len = header.caplen;
    pcap_dump(reinterpret_cast<u_char*>(m_files->file), &header,
              reinterpret_cast<const u_char*>(packet.data()));
}

} // namespace vrx::tool
