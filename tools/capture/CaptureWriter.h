#pragma once

#include "tools/capture/Exchange.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace vrx::tool {

/// One end of a TCP connection.
struct Endpoint {
    std::string address; ///< dotted IPv4
    std::uint16_t port = 0;
};

/// Writes what goes over TCP connections as a capture file (pcap, nanoseconds, raw IPv4): each piece of bytes as one
/// segment with headers, sequence numbers and checksums as TCP would have them. One thread at a time.
class CaptureWriter {
public:
    /// The most bytes that one segment holds.
    static constexpr std::size_t kMostBytes = 65495;

    /// Throws Failure when the file exists and `overwrite` is false, and when it cannot be created.
    CaptureWriter(const std::string& path, bool overwrite);
    /// Flushes.
    ~CaptureWriter();
    CaptureWriter(const CaptureWriter&) = delete;
    CaptureWriter& operator=(const CaptureWriter&) = delete;

    /// Times are nanoseconds since 1970. A connection that is known under this number is forgotten.
    void Open(std::uint64_t connection, const Endpoint& client, const Endpoint& server, std::int64_t time);
    /// A connection that the server refused.
    void Refuse(const Endpoint& client, const Endpoint& server, std::int64_t time);
    /// bytes   at most kMostBytes
    void Bytes(std::uint64_t connection, Side from, std::int64_t time, std::string_view bytes);
    /// The sending side of `from` ends.
    void Close(std::uint64_t connection, Side from, std::int64_t time);
    void Reset(std::uint64_t connection, Side from, std::int64_t time);

    /// Hands what was written to the system, so that it stays whatever happens to this process. False when not
    /// everything could be written, now or before: then the file holds what the last successful call left and
    /// nothing more is written.
    bool Flush();

    /// Why `Flush` returned false; "" when it did not.
    const std::string& Error() const { return m_error; }
    std::uint64_t Bytes() const { return m_bytes; }

private:
    struct Direction {
        Endpoint from;
        std::uint32_t next = 0;  // sequence number
        std::uint32_t acked = 0; // of what it sent, by the other end
        bool closed = false;
    };
    struct Connection {
        Direction client;
        Direction server;
    };
    struct Files;

    void Segment(Direction& from, Direction& to, unsigned flags, std::int64_t time,
                 std::string_view bytes = {});
    void WritePacket(std::string_view packet, std::int64_t time);
    Connection* Find(std::uint64_t connection);

    std::string m_path;
    std::unique_ptr<Files> m_files;
    std::map<std::uint64_t, Connection> m_connections;
    std::uint32_t m_firstSequence = 0;
    std::uint16_t m_packetNumber = 0;
    std::uint64_t m_bytes = 0; // that were flushed
    std::string m_error;
};

} // namespace vrx::tool
