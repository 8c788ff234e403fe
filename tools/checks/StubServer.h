#pragma once

#include "tools/wire/WireTap.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace vrx::tool {

/// What a StubServer does about one request.
struct Answer {
    enum End {
        kStay,      ///< the connection stands
        kClose,     ///< the server closes it in order
        kHalfClose, ///< the server sends nothing more, but still receives
        kReset,     ///< the server resets it
        kStopAll,   ///< as kHalfClose, and new connections are refused
    };
    std::vector<std::string> pieces = {}; ///< sent one after the other
    std::chrono::milliseconds pause{0};   ///< before each piece
    End end = kStay;
    std::size_t readAtLeast = 0;         ///< bytes of the request, whatever it looks like
    bool unasked = false;                ///< answers nothing: done when no request comes for kUnaskedAfter
    std::chrono::milliseconds listen{0}; ///< how long to look for more from the client before answering
    bool takeUnfinished = false;         ///< do it as soon as the first bytes of the request have come

    static constexpr std::chrono::milliseconds kUnaskedAfter{150};

    static Answer Bytes(std::string bytes) { return {.pieces = {std::move(bytes)}}; }
    static Answer Silence() { return {}; }
    static Answer Ending(End end) { return {.end = end}; }
};

/// A reply packet: head, status, both cycle words, data words.
std::string ReplyPacket(std::uint32_t status, std::uint32_t average, std::uint32_t pump,
                        std::span<const std::uint32_t> data);

/// A server on 127.0.0.1, at a port that the system picks, for checking plug-ins: it writes down every request and
/// does what it was told to, in turn; without an order it answers text with "ok" and a packet with a reply that holds the
/// request's words, cut or filled with zeroes to the number asked for. Each connection has a thread of its own; the
/// orders are shared. Any thread may call.
class StubServer {
public:
    struct Request {
        int connection = 0; ///< counted from 1
        std::string bytes;  ///< as they came, a line feed included
        bool alone = true;  ///< nothing more came while the answer was held back
    };

    StubServer();
    ~StubServer();
    StubServer(const StubServer&) = delete;
    StubServer& operator=(const StubServer&) = delete;

    /// From now on the connections of all servers of this process are recorded.
    static void RecordTo(WireTap tap) { s_tap = tap; }

    int Port() const { return m_port; }

    /// An order for the next request that has none.
    void Then(Answer answer);

    /// Instead of the orders and the usual answers; called from the connections' threads, one at a time.
    void Always(std::function<Answer(const Request&)> answer);

    /// The oldest request that was not taken yet; none when no more comes within `patience`.
    std::optional<Request> Take(std::chrono::milliseconds patience = std::chrono::seconds(5));

    /// Drops the requests that were not taken.
    void Forget();

    /// Accepted so far.
    int Connections() const;
    /// Of them, those that neither side has closed.
    int OpenConnections() const;
    /// Waits until no more than `count` of them are open; false when that does not happen.
    bool WaitForOpen(int count, std::chrono::milliseconds patience = std::chrono::seconds(5)) const;

    /// Ends the connections there are, and returns when that has been done. kStopAll: new ones are refused.
    void Drop(Answer::End how);
    /// After kStopAll: listens again, at the same port.
    void ListenAgain();

private:
    struct Connection {
        int number = 0;
        int socket = -1;
        std::uint64_t recorded = 0; // its number for the recorder
        bool open = true;
        bool served = false; // its thread is at its end
        std::optional<Answer::End> drop;
        std::thread thread;
    };

    void Accept();
    void JoinServed();
    void Serve(Connection& connection);
    void AnswerAll(Connection& connection);
    bool ReadRequest(Connection& connection, std::string& bytes);
    bool Wait(const Connection& connection, std::chrono::milliseconds patience) const;
    bool Receive(const Connection& connection, std::string& bytes, std::chrono::milliseconds patience,
                 std::size_t most) const;
    static std::size_t Taken(const Connection& connection, std::span<char> room);
    bool Over(const Connection& connection) const;
    void Send(const Connection& connection, std::string_view bytes) const;
    Answer NextOrder() const;
    Answer NextAnswer(const Request& request);
    bool Perform(Connection& connection, const Answer& answer);
    void End(Connection& connection, Answer::End how);
    static void Tell(const Connection& connection, WireEvent::Kind kind, bool fromServer,
                     std::string_view bytes = {});
    int Bind();
    void Listen();
    void CloseListener();

    static inline WireTap s_tap{-1};

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::deque<Answer> m_orders;
    std::function<Answer(const Request&)> m_always;
    std::deque<Request> m_requests;
    std::deque<Connection> m_connections; // a deque: they stay where they are
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_listener{-1};
    int m_port = 0;
    int m_place = -1; // bound to the port and never listening: nobody else gets it while the server is gone
    std::thread m_thread;
};

} // namespace vrx::tool
