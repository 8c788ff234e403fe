#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vrx::tool {

/// Something that happened on a connection between two ports of 127.0.0.1.
struct WireEvent {
    enum Kind : std::uint8_t {
        kOpened, ///< the client connected
        kBytes,  ///< one side sent bytes in one piece
        kClosed, ///< one side ended its sending side
        kReset,  ///< one side reset the connection
    };
    Kind kind = kOpened;
    bool fromServer = false;
    std::uint16_t clientPort = 0; ///< of kOpened
    std::uint16_t serverPort = 0; ///< of kOpened
    std::uint64_t connection = 0; ///< see WireTap::NewConnection
    std::int64_t time = 0; ///< nanoseconds of the steady clock, which all processes share; Tell fills it in
};

/// Tells a recorder in another process what goes over connections of this one. Any thread may tell; what one thread
/// tells arrives in order. A recorder that has gone is no trouble.
class WireTap {
public:
    /// socket   one end of a connected SOCK_SEQPACKET pair, not owned; -1: nobody is told
    explicit WireTap(int socket) : m_socket(socket) {}

    /// bytes   of kBytes, of any length
    void Tell(WireEvent event, std::string_view bytes = {}) const;

    /// A number that no other connection has, in no process.
    static std::uint64_t NewConnection();

    /// The recorder's side: waits for the next event at the other end of the pair; false when no more comes.
    static bool Hear(int socket, WireEvent& event, std::string& bytes);

private:
    int m_socket;
};

} // namespace vrx::tool
