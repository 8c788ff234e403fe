#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

/// The two ends that the talker is measured between: a single-threaded server in a process of its own, and a
/// bare loop of blocking calls that moves the same bytes.
namespace bench {

/// An open descriptor.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : m_descriptor(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : m_descriptor(other.m_descriptor) { other.m_descriptor = -1; }
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor();

    operator int() const { return m_descriptor; }

private:
    int m_descriptor;
};

/// A listening socket on 127.0.0.1 at a port that the system picks.
class Listener {
public:
    Listener();

    int Socket() const { return m_socket; }
    int Port() const { return m_port; }

private:
    Descriptor m_socket;
    int m_port;
};

/// Runs a function in a child process on the second core, until this object goes.
class ChildProcess {
public:
    explicit ChildProcess(const std::function<void()>& run);
    ~ChildProcess();
    pid_t Pid() const { return m_pid; }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

private:
    pid_t m_pid;
};

inline constexpr int kClientCore = 0;
inline constexpr int kServerCore = 1;

/// Keeps the calling thread, and those it starts, on one core where there are two.
void PinTo(int core);

/// The request and reply packets of a block of so many words each way.
std::vector<char> Request(const std::vector<uint32_t>& words);
inline constexpr size_t kReplyHead = 28;

/// Writes the reply to a request packet: the words that came, back again. Returns its length.
size_t WriteReply(const char* request, char* reply);

/// Accepts so many connections, answering the first request of each; then answers `turn` requests of the
/// first connection, `turn` of the second and so on, for ever. So it never waits for more than one.
void ServeInTurns(const Listener& listener, int connections, int turn);

/// Answers whoever asks, for ever.
void ServeAnyone(const Listener& listener);

/// A connection used by blocking calls and nothing else. The first exchange is the one of a talker that
/// connects.
class BareConnection {
public:
    explicit BareConnection(int port);

    /// Sends a request and receives its reply, in one call each. Returns the bytes received.
    ssize_t Exchange(const std::vector<char>& request) {
        Send(request.data(), request.size());
        return Receive();
    }
    const char* Reply() const { return m_buffer.get(); }

private:
    void Send(const char* bytes, size_t count) const;
    ssize_t Receive();

    Descriptor m_socket;
    std::unique_ptr<char[]> m_buffer; // not cleared: that would touch all of its pages
};

/// What configures a talker for the server at a port.
std::string TalkerSettings(int port);

} // namespace bench
