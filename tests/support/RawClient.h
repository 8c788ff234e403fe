#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// A bare TCP connection to 127.0.0.1 for tests that speak to a server byte by byte. Every receive gives up
/// after 20 seconds, which only a failing test reaches.
class RawClient {
public:
    /// Throws std::runtime_error when nobody listens there; see CanConnect.
    explicit RawClient(uint16_t port);
    ~RawClient();
    RawClient(RawClient&& other) noexcept;
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    static bool CanConnect(uint16_t port);

    /// Sends all of it; what a peer that has gone leaves unsent is dropped.
    void Send(std::string_view bytes) const;

    /// Sends what the system takes without waiting and returns how many bytes that was.
    size_t SendWithoutWaiting(std::string_view bytes) const;

    /// Nothing more will be sent; what comes is still received.
    void EndSending() const;

    /// The next `count` bytes; fewer when the connection ended or the time was up.
    std::string Receive(size_t count) const;

    /// The next line without its line feed.
    std::string ReceiveLine() const;

    /// What is left to receive, followed by "<end>", "<reset>" or "<silence>".
    std::string ReceiveRest() const;

    /// Sends a line and returns the line that answers.
    std::string Ask(std::string_view line) const;

private:
    int m_socket;
};
