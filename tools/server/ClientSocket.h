#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

namespace vrx::tool {

/// A connected socket; no call waits or raises a signal. For one thread at a time.
class ClientSocket {
public:
    /// Takes over the descriptor.
    explicit ClientSocket(int descriptor) : m_descriptor(descriptor) {}
    ~ClientSocket() { Close(); }
    ClientSocket(const ClientSocket&) = delete;
    ClientSocket& operator=(const ClientSocket&) = delete;

    int Descriptor() const { return m_descriptor; }
    bool IsOpen() const { return m_descriptor >= 0; }

    /// How many bytes were received, 0 when none are there now; none at the end of the connection or after an
    /// error.
    std::optional<size_t> Receive(std::span<char> space) const;

    /// How many bytes the system took, 0 when it takes none now; none when the connection has ended.
    std::optional<size_t> Send(std::string_view bytes) const;

    /// Bytes have come that are not received yet.
    bool HasWaitingBytes() const;

    void SendNoMore() const;
    void Close();

    /// Closes it by a reset, which takes what is under way with it.
    void Reset();

private:
    int m_descriptor;
};

} // namespace vrx::tool
