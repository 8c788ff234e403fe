#pragma once

#include "tools/capture/Exchange.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vrx::tool {

/// Reads the TCP connections of a capture file (pcap or pcapng of any program; Ethernet, loopback, cooked or raw IP),
/// packet by packet: bytes in order and once, whatever was sent again or came out of order. Holds what came out of
/// order, and nothing of what lies behind or before. Checksums are not looked at: an interface that computes them
/// leaves them wrong in a capture on the same machine.
class CaptureReader {
public:
    /// Throws Failure when the file cannot be read or is no capture.
    explicit CaptureReader(const std::string& path);
    ~CaptureReader();
    CaptureReader(const CaptureReader&) = delete;
    CaptureReader& operator=(const CaptureReader&) = delete;

    /// Sets `event` to what happened next; false at the end. Throws Failure when a TCP packet was captured only in
    /// part, and when more connections are open at one time than this reader follows.
    bool Next(CaptureEvent& event);

    /// True when the file holds bare IP packets, as CaptureWriter writes them.
    bool IsRaw() const;

    /// What a reader of the result should know, one sentence each: that the file is cut off, that bytes are missing.
    const std::vector<std::string>& Notes() const;

private:
    class Follower;
    std::unique_ptr<Follower> m_follower;
};

} // namespace vrx::tool
