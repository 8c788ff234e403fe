#include "tools/capture/ReplayClient.h"

#include "tools/capture/FrameTracker.h"
#include "tools/program/Errors.h"

#include <algorithm>
#include <array>
#include <asio.hpp>
#include <chrono>
#include <map>
#include <optional>
#include <thread>
#include <utility>

namespace vrx::tool {

namespace {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds kStep{100}; // how often to ask whether to give up
/// A reply that was recorded is awaited for so long, as talkers do.
constexpr milliseconds kPatience{10000};
/// What was not recorded as a whole reply, and what may come behind one.
constexpr milliseconds kBriefPatience{1000};
constexpr milliseconds kBehindReply{200};

class Replay {
public:
    Replay(const tcp::endpoint& server, Timing timing, const std::function<bool()>& stopped)
        : m_server(server), m_timing(timing), m_stopped(stopped) {}

    /// What the server does with the recorded request now.
    Exchange Run(const Exchange& recorded);

private:
    void WaitUntilDue(const Exchange& recorded);
    void CheckStopped() const;
    bool Connect(tcp::socket& socket);
    void Receive(tcp::socket& socket, const Exchange& recorded, Exchange& live);
    enum class Received { kBytes, kClosed, kReset, kNothing };
    Received ReceiveOnce(tcp::socket& socket, Clock::time_point until, std::string& bytes);

    tcp::endpoint m_server;
    Timing m_timing;
    const std::function<bool()>& m_stopped;
    asio::io_context m_io{1};
    std::map<std::uint64_t, tcp::socket> m_sockets;
    bool m_everConnected = false;
    std::optional<std::int64_t> m_firstAsked;
    Clock::time_point m_began = Clock::now();
    std::array<char, 65536> m_piece;
};

Exchange Replay::Run(const Exchange& recorded) {
    WaitUntilDue(recorded);
    Exchange live;
    live.kind = recorded.kind;
    live.request = recorded.request;
    auto found = m_sockets.find(recorded.connection);
    if (found == m_sockets.end()) {
        tcp::socket socket(m_io);
        if (!Connect(socket)) {
            live.end = ServerEnd::kResets;
            return live;
        }
        found = m_sockets.emplace(recorded.connection, std::move(socket)).first;
    }
    tcp::socket& socket = found->second;
    asio::error_code error;
    asio::write(socket, asio::buffer(recorded.request), error); // a server that has gone shows up next
    Receive(socket, recorded, live);
    if (recorded.last || live.end != ServerEnd::kStays) m_sockets.erase(found);
    return live;
}

/// With recorded timing each request goes out so long after the first one as it did.
void Replay::WaitUntilDue(const Exchange& recorded) {
    if (!m_firstAsked) m_firstAsked = recorded.asked;
    if (m_timing == Timing::kFast) return CheckStopped();
    const Clock::time_point due = m_began + nanoseconds(recorded.asked - *m_firstAsked);
    do {
        CheckStopped();
        std::this_thread::sleep_until(std::min(due, Clock::now() + kStep));
    } while (Clock::now() < due);
}

void Replay::CheckStopped() const {
    if (m_stopped()) throw Failure{kInterrupted, "interrupted"};
}

bool Replay::Connect(tcp::socket& socket) {
    asio::error_code error;
    socket.connect(m_server, error);
    if (error && !m_everConnected)
        throw Failure{kCannotConnect, "cannot connect to " + m_server.address().to_string() + ":" +
                                          std::to_string(m_server.port()) + ": " + error.message() +
                                          "; is the server running there?"};
    if (error) return false;
    m_everConnected = true;
    socket.set_option(tcp::no_delay(true), error);
    return true;
}

void Replay::Receive(tcp::socket& socket, const Exchange& recorded, Exchange& live) {
    const std::size_t wanted = ReplyBytes(recorded).size();
    const bool ends = recorded.end != ServerEnd::kStays;
    FrameTracker frame;
    std::string bytes;
    Clock::time_point until = Clock::now() + (recorded.whole ? kPatience : kBriefPatience);
    for (;;) {
        const bool all = bytes.size() >= wanted && (frame.Whole() || !recorded.whole) && !bytes.empty();
        if (all && !ends) break;
        const Received received = ReceiveOnce(socket, until, bytes);
        if (received == Received::kClosed) live.end = ServerEnd::kCloses;
        if (received == Received::kReset) live.end = ServerEnd::kResets;
        if (received != Received::kBytes) break;
        if (!frame.Whole())
            frame.Take(std::string_view(bytes).substr(static_cast<std::size_t>(frame.Taken())));
        if (frame.Whole()) until = Clock::now() + (ends ? kBriefPatience : kBehindReply);
    }
    live.whole = frame.Whole();
    if (!bytes.empty()) live.reply.push_back({0, std::move(bytes)});
}

Replay::Received Replay::ReceiveOnce(tcp::socket& socket, Clock::time_point until, std::string& bytes) {
    asio::error_code error = asio::error::would_block;
    std::size_t count = 0;
    socket.async_read_some(asio::buffer(m_piece), [&](const asio::error_code& result, std::size_t size) {
        error = result;
        count = size;
    });
    m_io.restart();
    while (m_io.run_one_until(std::min(until, Clock::now() + kStep)) == 0) {
        if (!m_stopped() && Clock::now() < until) continue;
        socket.cancel();
        m_io.run();
        CheckStopped();
        return Received::kNothing;
    }
    bytes.append(m_piece.data(), count);
    if (error == asio::error::eof) return Received::kClosed;
    return error ? Received::kReset : Received::kBytes;
}

} // namespace

void ReplayToServer(Recording& recording, const std::string& host, int port, Timing timing,
                    const std::function<bool()>& stopped, DifferenceSummary& summary) {
    asio::io_context io(1);
    asio::error_code error;
    const auto found = tcp::resolver(io).resolve(tcp::v4(), host, std::to_string(port), error);
    if (error || found.empty())
        throw Failure{kCannotConnect, host + ": no such host: " + error.message() + "; check the name"};
    Replay replay(found.begin()->endpoint(), timing, stopped);
    bool any = false;
    for (Exchange recorded; recording.Next(recorded); any = true) {
        Exchange live = replay.Run(recorded);
        summary.Add({std::move(recorded), std::move(live)});
    }
    if (!any) throw NoExchanges(recording.Path());
}

} // namespace vrx::tool
