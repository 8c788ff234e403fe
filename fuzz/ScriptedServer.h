#pragma once

#include "fuzz/Require.h"
#include "tcpio/CTcpIOTalk.h"

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace vrx::fuzz {

/// A good server: a listener on 127.0.0.1 whose thread answers whatever arrives with one line of text.
class GoodServer {
public:
    static constexpr const char* kHost = "127.0.0.1";
    static constexpr const char* kAnswer = "good";

    GoodServer() : m_listener(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* any = reinterpret_cast<sockaddr*>(&address);
        Require(::bind(m_listener, any, size) == 0 && ::listen(m_listener, 64) == 0 &&
                    ::getsockname(m_listener, any, &size) == 0,
                "the listener stands");
        m_port = ntohs(address.sin_port);
        m_thread = std::thread(&GoodServer::Serve, this);
    }

    ~GoodServer() {
        ::shutdown(m_listener, SHUT_RDWR); // wakes the thread
        m_thread.join();
        ::close(m_listener);
    }

    GoodServer(const GoodServer&) = delete;
    GoodServer& operator=(const GoodServer&) = delete;

    int Port() const { return m_port; }

private:
    void Serve() {
        std::vector<pollfd> sockets = {{m_listener, POLLIN, 0}};
        while (Accept(sockets)) {
            for (size_t i = 1; i < sockets.size();) {
                if (sockets[i].revents == 0 || Answer(sockets[i].fd)) {
                    ++i;
                } else {
                    ::close(sockets[i].fd);
                    sockets.erase(sockets.begin() + static_cast<ptrdiff_t>(i));
                }
            }
        }
        for (size_t i = 1; i < sockets.size(); ++i) ::close(sockets[i].fd);
    }

    /// Waits for something to do; false when the listener was shut down.
    static bool Accept(std::vector<pollfd>& sockets) {
        if (::poll(sockets.data(), sockets.size(), -1) < 0)
            for (pollfd& socket : sockets) socket.revents = 0; // a signal came in between
        if (sockets[0].revents == 0) return true;
        const int client = ::accept(sockets[0].fd, nullptr, nullptr);
        if (client < 0) return errno != EINVAL;
        sockets.push_back({client, POLLIN, 0});
        return true;
    }

    static bool Answer(int client) {
        char request[4096];
        if (::recv(client, request, sizeof request, 0) <= 0) return false;
        const std::string line = std::string(kAnswer) + "\n";
        return ::send(client, line.data(), line.size(), MSG_NOSIGNAL) > 0;
    }

    int m_listener;
    int m_port = 0;
    std::thread m_thread;
};

/// What a channel finds behind the last piece of a reply.
enum class End { kCloses, kFails, kStalls };

/// The connection of a channel, with the server's side in the fuzz target's hand: the channel connects to the
/// good server, then its socket is replaced by one end of a pair that keeps pieces apart. One `recv` of the
/// channel takes one piece, so that what it must do is known to the byte.
class ScriptedConnection {
public:
    explicit ScriptedConnection(const GoodServer& server) : m_server(server) {
        struct sigaction action {};
        ::sigaction(SIGALRM, nullptr, &action);
        action.sa_flags |= SA_RESTART; // the fuzzer's own clock is not to break a receive off
        ::sigaction(SIGALRM, &action, nullptr);
    }
    ~ScriptedConnection() { Close(); }

    ScriptedConnection(const ScriptedConnection&) = delete;
    ScriptedConnection& operator=(const ScriptedConnection&) = delete;

    /// The channel's descriptor, which is its first field; -1 when it has no socket.
    static int SocketOf(const CTcpIOTalk& talk) {
        return reinterpret_cast<const std::atomic<int32_t>*>(&talk)->load();
    }

    /// Gives a channel without a socket a fresh connection.
    void Open(CTcpIOTalk& talk) {
        Close();
        talk.SetHostEnt(GoodServer::kHost, m_server.Port());
        talk.MakeSocket();
        talk.ConnectSocket(htonl(INADDR_LOOPBACK));
        const int socket = SocketOf(talk);
        Require(socket >= 0, "the good server takes connections");
        LeaveNothingBehind(socket);

        int pair[2];
        Require(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair) == 0 && ::dup2(pair[0], socket) == socket,
                "a pair in place of the connection");
        ::close(pair[0]);
        m_far = pair[1];
    }

    /// Closes the channel's connection, if there is one.
    static void Kill(CTcpIOTalk& talk) {
        if (SocketOf(talk) >= 0) LeaveNothingBehind(SocketOf(talk));
        talk.KillSocket();
    }

    /// Sends the pieces that the channel is going to receive and, with `end`, what it is going to find behind
    /// them. What the pair does not hold at once comes from a thread; then the end must not be kFails.
    void Deliver(const CTcpIOTalk& talk, const std::vector<std::string>& pieces, const End* end) {
        size_t sent = 0;
        while (sent < pieces.size() && SendOne(pieces[sent], MSG_DONTWAIT)) ++sent;
        if (sent == pieces.size()) {
            if (end) Finish(talk, *end);
            return;
        }
        Require(!end || *end != End::kFails, "long replies end in order");
        m_sender = std::thread([this, &talk, &pieces, sent, end]() mutable {
            while (sent < pieces.size() && SendOne(pieces[sent], 0)) ++sent;
            if (end) Finish(talk, *end);
        });
    }

    /// Waits until everything was sent.
    void Join() {
        if (m_sender.joinable()) m_sender.join();
    }

    /// The server is gone: sending fails; receiving gives what is on its way, then the end.
    void Close() {
        Join();
        if (m_far >= 0) ::close(m_far);
        m_far = -1;
    }

    /// The messages that the channel has sent, as it sent them.
    std::vector<std::string> Requests() {
        std::vector<std::string> requests;
        char message[1 << 14];
        for (;;) {
            const ssize_t count = m_far < 0 ? -1 : ::recv(m_far, message, sizeof message, MSG_DONTWAIT);
            if (count <= 0) return requests;
            requests.emplace_back(message, static_cast<size_t>(count));
        }
    }

    /// Whether the channel left something that was sent to it.
    static bool HasUnread(const CTcpIOTalk& talk) {
        char byte;
        return ::recv(SocketOf(talk), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
    }

private:
    /// Lets a closed TCP connection vanish at once instead of keeping its port for a while.
    static void LeaveNothingBehind(int socket) {
        const linger noWait{1, 0};
        ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &noWait, sizeof noWait);
    }

    bool SendOne(const std::string& piece, int flags) const {
        return ::send(m_far, piece.data(), piece.size(), flags | MSG_NOSIGNAL) > 0;
    }

    void Finish(const CTcpIOTalk& talk, End end) const {
        if (end == End::kCloses) ::shutdown(m_far, SHUT_WR);
        if (end != End::kFails) return;
        const int socket = SocketOf(talk);
        ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK); // nothing to receive is now an error
    }

    const GoodServer& m_server;
    int m_far = -1;
    std::thread m_sender;
};

} // namespace vrx::fuzz
