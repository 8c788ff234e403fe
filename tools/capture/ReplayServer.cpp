#include "tools/capture/ReplayServer.h"

#include "tools/capture/ExchangeComparer.h"
#include "tools/capture/FrameTracker.h"
#include "tools/capture/Listen.h"
#include "tools/capture/RecordedConnections.h"
#include "tools/capture/Recording.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace vrx::tool {

namespace {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds kShortestPause{1};
/// A client that asked something else has this long to read why.
constexpr milliseconds kFarewell{500};
constexpr std::size_t kPiece = 65536;

} // namespace

class ReplayServer::Service {
public:
    Service(const std::string& file, int listenPort, Timing timing)
        : m_connections(file), m_timing(timing), m_acceptor(Listen(m_io, listenPort)) {
        if (m_connections.At(0) == nullptr) throw NoExchanges(file);
    }

    int Port() const { return m_acceptor.local_endpoint().port(); }
    std::string Run(const std::function<bool()>& stopped);

private:
    class Client;

    void Accept();
    void AskWhetherStopped(const std::function<bool()>& stopped);
    void Fail(const std::string& difference);

    // Which recorded connection a client has, by its place among them.
    std::optional<std::size_t> FirstFree();
    std::optional<std::size_t> FirstLike(const std::vector<std::uint64_t>& keys, std::uint64_t client,
                                         bool taken);
    void Claim(Client& client, std::size_t place);

    RecordedConnections m_connections;
    Timing m_timing;
    asio::io_context m_io{1};
    tcp::acceptor m_acceptor;
    asio::steady_timer m_stopTimer{m_io};
    asio::steady_timer m_acceptTimer{m_io};
    std::map<std::uint64_t, std::shared_ptr<Client>> m_clients;
    std::map<std::size_t, std::uint64_t> m_taken; // place, client
    std::set<std::size_t> m_used;                 // by clients that have gone
    std::uint64_t m_lastClient = 0;
    std::string m_difference;
    std::optional<Failure> m_failure;
};

/// One client: reads a request, answers it as recorded, reads the next one.
class ReplayServer::Service::Client : public std::enable_shared_from_this<Client> {
public:
    Client(Service& service, std::uint64_t number, tcp::socket socket)
        : m_service(service), m_number(number), m_socket(std::move(socket)), m_pause(service.m_io) {}

    void Start();
    void Leave();

    /// The client asked nothing yet that would not fit another recorded connection with these first requests.
    const std::vector<std::uint64_t>& Keys() const { return m_keys; }
    void TakeFrom(std::size_t place, std::size_t skip);
    std::optional<std::size_t> Place() const { return m_place; }

private:
    void Read();
    void Proceed();
    bool TakeRequest();
    bool Matches(const Exchange& asked, const Exchange* expected, Difference& difference);
    bool TryAnother();
    void Answer(const Exchange& asked);
    void SendAway(const std::string& difference);
    void SendPieces();
    void SendPiece();
    void End();
    void Drain();
    nanoseconds PauseBefore(std::size_t piece) const;

    Service& m_service;
    std::uint64_t m_number;
    tcp::socket m_socket;
    asio::steady_timer m_pause;
    std::optional<std::size_t> m_place;
    std::unique_ptr<RecordedConnection> m_recorded;
    std::vector<std::uint64_t> m_keys; // of its first requests
    ExchangeComparer m_comparer{{}};
    std::size_t m_asked = 0;
    std::uint64_t m_lastExchange = 0;
    std::vector<char> m_piece = std::vector<char>(kPiece);
    std::string m_received; // not taken yet
    std::string m_request;
    FrameTracker m_frame;
    Exchange m_answer; // the exchange under way
    std::size_t m_sent = 0;
    Clock::time_point m_due;
};

void ReplayServer::Service::Client::Start() {
    asio::error_code ignored; // a peer that is gone already shows up at the first read
    m_socket.set_option(tcp::no_delay(true), ignored);
    const auto place = m_service.FirstFree();
    if (!place || !m_service.m_connections.At(*place)->serverFirst) return Read();
    m_service.Claim(*this, *place);
    Exchange nothing;
    m_keys.push_back(RequestKey(nothing));
    Answer(nothing);
}

void ReplayServer::Service::Client::TakeFrom(std::size_t place, std::size_t skip) {
    m_place = place;
    m_recorded = std::make_unique<RecordedConnection>(m_service.m_connections.File(),
                                                      m_service.m_connections.At(place)->number);
    for (; skip > 0 && m_recorded->Next() != nullptr; --skip) m_recorded->Take();
}

void ReplayServer::Service::Client::Read() {
    m_socket.async_read_some(asio::buffer(m_piece),
                             [self = shared_from_this()](const asio::error_code& error, std::size_t count) {
                                 if (error == asio::error::operation_aborted) return;
                                 if (error) return self->Leave();
                                 self->m_received.append(self->m_piece.data(), count);
                                 self->Proceed();
                             });
}

void ReplayServer::Service::Client::Proceed() {
    try {
        if (!TakeRequest()) return Read();
        Exchange asked;
        asked.kind = m_frame.IsPacket() ? Exchange::kPacket
                     : m_frame.Whole()  ? Exchange::kLine
                                        : Exchange::kBytes;
        asked.request = std::exchange(m_request, {});
        m_frame = {};
        Answer(asked);
    } catch (const Failure& failure) { // the file
        m_service.m_failure = failure;
        m_service.m_io.stop();
    }
}

/// True when a whole request is there.
bool ReplayServer::Service::Client::TakeRequest() {
    const std::size_t count = m_frame.Take(m_received);
    m_request.append(m_received, 0, count);
    m_received.erase(0, count);
    if (m_frame.Whole()) return true;
    const Exchange* const expected = m_recorded ? m_recorded->Next() : nullptr;
    return expected != nullptr && expected->kind == Exchange::kBytes &&
           m_request.size() >= expected->request.size();
}

void ReplayServer::Service::Client::Answer(const Exchange& asked) {
    if (asked.kind != Exchange::kNothing && m_keys.size() < RecordedConnections::kFirst)
        m_keys.push_back(RequestKey(asked));
    if (!m_place) {
        const auto like = m_service.FirstLike(m_keys, m_number, false);
        const auto place = like ? like : m_service.FirstFree();
        if (place) m_service.Claim(*this, *place);
    }
    Difference difference;
    const Exchange* expected = m_recorded ? m_recorded->Next() : nullptr;
    if (!Matches(asked, expected, difference)) {
        if (!TryAnother()) {
            const std::uint64_t number = expected != nullptr ? expected->number : m_lastExchange + 1;
            return SendAway("exchange " + std::to_string(number) + ", " + difference.what + ": " +
                            difference.a.text + " in " + m_service.m_connections.File() + ", " +
                            difference.b.text + " from the client");
        }
        expected = m_recorded->Next();
    }
    ++m_asked;
    m_lastExchange = expected->number;
    m_answer = *expected;
    m_comparer.Learn(m_answer);
    m_recorded->Take();
    m_sent = 0;
    m_due = Clock::now();
    SendPieces();
}

/// Tells the client what it asked differently, and ends the replay.
void ReplayServer::Service::Client::SendAway(const std::string& difference) {
    asio::error_code ignored; // a client that cannot take the line will not miss it
    asio::write(m_socket, asio::buffer("error: " + difference + "\n"), ignored);
    m_socket.shutdown(tcp::socket::shutdown_send, ignored);
    m_service.Fail(difference);
    Drain();
}

bool ReplayServer::Service::Client::Matches(const Exchange& asked, const Exchange* expected,
                                            Difference& difference) {
    if (expected == nullptr) {
        difference = {"request", {"no more exchanges"}, {RequestInWords(asked)}};
        return false;
    }
    auto found = m_comparer.CompareRequests(*expected, asked);
    if (found) difference = std::move(*found);
    return !found;
}

/// Another recorded connection may begin as this client did; a client that has it may have this one instead.
bool ReplayServer::Service::Client::TryAnother() {
    if (m_asked >= m_keys.size()) return false; // beyond the first requests
    auto place = m_service.FirstLike(m_keys, m_number, false);
    if (!place) place = m_service.FirstLike(m_keys, m_number, true);
    if (!place) return false;
    m_service.Claim(*this, *place);
    return m_recorded->Next() != nullptr;
}

nanoseconds ReplayServer::Service::Client::PauseBefore(std::size_t piece) const {
    const std::int64_t before = piece == 0 ? m_answer.asked : m_answer.reply[piece - 1].time;
    const std::int64_t time = piece < m_answer.reply.size() ? m_answer.reply[piece].time : m_answer.ended;
    const nanoseconds pause{std::max<std::int64_t>(time - before, 0)};
    if (m_service.m_timing == Timing::kRecorded) return pause;
    return piece == 0 ? nanoseconds(0) : std::min<nanoseconds>(pause, kShortestPause);
}

/// Goes on with the answer under way where it stands.
void ReplayServer::Service::Client::SendPieces() {
    if (m_sent == m_answer.reply.size() && m_answer.end == ServerEnd::kStays) return Proceed();
    m_due += PauseBefore(m_sent);
    if (m_due <= Clock::now()) return SendPiece();
    m_pause.expires_at(m_due);
    m_pause.async_wait([self = shared_from_this()](const asio::error_code& error) {
        if (!error) self->SendPiece();
    });
}

void ReplayServer::Service::Client::SendPiece() {
    if (m_sent == m_answer.reply.size()) return End();
    const std::string& bytes = m_answer.reply[m_sent++].bytes;
    asio::async_write(m_socket, asio::buffer(bytes),
                      [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                          if (error == asio::error::operation_aborted) return;
                          if (error) return self->Leave();
                          self->SendPieces();
                      });
}

void ReplayServer::Service::Client::End() {
    asio::error_code ignored;
    if (m_answer.end == ServerEnd::kResets) {
        m_socket.set_option(asio::socket_base::linger(true, 0), ignored);
        return Leave();
    }
    m_socket.shutdown(tcp::socket::shutdown_send, ignored);
    Drain();
}

/// Reads on until the peer closes: closing over unread bytes would reset the connection.
void ReplayServer::Service::Client::Drain() {
    m_socket.async_read_some(asio::buffer(m_piece),
                             [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                                 if (error == asio::error::operation_aborted) return;
                                 if (error) return self->Leave();
                                 self->Drain();
                             });
}

void ReplayServer::Service::Client::Leave() {
    asio::error_code ignored;
    m_socket.close(ignored);
    m_pause.cancel();
    if (m_place) {
        m_service.m_taken.erase(*m_place);
        m_service.m_used.insert(*m_place);
    }
    m_service.m_clients.erase(m_number);
    if (!m_service.m_difference.empty()) m_service.m_io.stop();
}

std::string ReplayServer::Service::Run(const std::function<bool()>& stopped) {
    Accept();
    AskWhetherStopped(stopped);
    m_io.run();
    if (m_failure) throw Failure{m_failure->code, m_failure->message};
    return m_difference;
}

void ReplayServer::Service::Accept() {
    m_acceptor.async_accept([this](const asio::error_code& error, tcp::socket socket) {
        if (error == asio::error::operation_aborted) return;
        if (error) {
            m_acceptTimer.expires_after(kRetryAccept);
            m_acceptTimer.async_wait([this](const asio::error_code& ended) {
                if (!ended) Accept();
            });
            return;
        }
        const auto client = std::make_shared<Client>(*this, ++m_lastClient, std::move(socket));
        m_clients.emplace(m_lastClient, client);
        client->Start();
        Accept();
    });
}

void ReplayServer::Service::AskWhetherStopped(const std::function<bool()>& stopped) {
    if (stopped()) return m_io.stop();
    m_stopTimer.expires_after(kAskWhetherStopped);
    m_stopTimer.async_wait([this, &stopped](const asio::error_code& error) {
        if (!error) AskWhetherStopped(stopped);
    });
}

/// The first recorded connection that no client has; when every one was had, they can be had again.
std::optional<std::size_t> ReplayServer::Service::FirstFree() {
    for (int round = 0; round < 2; ++round) {
        for (std::size_t place = 0; m_connections.At(place) != nullptr; ++place)
            if (!m_taken.contains(place) && !m_used.contains(place)) return place;
        m_used.clear();
    }
    return {};
}

/// The first recorded connection that begins with these requests, among those that are free, or `taken` by other
/// clients that have asked nothing yet which the connection of `client` would not fit.
std::optional<std::size_t> ReplayServer::Service::FirstLike(const std::vector<std::uint64_t>& keys,
                                                            std::uint64_t client, bool taken) {
    if (!taken && !FirstFree()) return {}; // makes room for another round
    const auto begins = [](const std::vector<std::uint64_t>& all, const std::vector<std::uint64_t>& with) {
        return all.size() >= with.size() && std::equal(with.begin(), with.end(), all.begin());
    };
    const auto mine = m_clients.at(client)->Place();
    for (std::size_t place = 0; const auto* entry = m_connections.At(place); ++place) {
        if (!begins(entry->first, keys)) continue;
        const auto holder = m_taken.find(place);
        if (holder == m_taken.end()) {
            if (!taken && !m_used.contains(place)) return place;
            continue;
        }
        if (!taken || holder->second == client || !mine) continue;
        const auto& asked = m_clients.at(holder->second)->Keys();
        if (asked.size() < RecordedConnections::kFirst && begins(m_connections.At(*mine)->first, asked))
            return place;
    }
    return {};
}

/// Gives the client this recorded connection; one that has it gets the client's in exchange.
void ReplayServer::Service::Claim(Client& client, std::size_t place) {
    const std::uint64_t number = std::ranges::find_if(m_clients, [&](const auto& each) {
                                     return each.second.get() == &client;
                                 })->first;
    const auto mine = client.Place();
    if (mine) m_taken.erase(*mine);
    const auto holder = m_taken.find(place);
    if (holder != m_taken.end() && mine) {
        Client& other = *m_clients.at(holder->second);
        m_taken[*mine] = holder->second;
        other.TakeFrom(*mine, other.Keys().size());
    }
    m_taken[place] = number;
    client.TakeFrom(place, client.Keys().empty() ? 0 : client.Keys().size() - 1);
}

void ReplayServer::Service::Fail(const std::string& difference) {
    m_difference = difference;
    asio::error_code ignored;
    m_acceptor.close(ignored);
    m_stopTimer.expires_after(kFarewell);
    m_stopTimer.async_wait([this](const asio::error_code& error) {
        if (!error) m_io.stop();
    });
}

ReplayServer::ReplayServer(const std::string& file, int listenPort, Timing timing)
    : m_service(std::make_unique<Service>(file, listenPort, timing)) {}

ReplayServer::~ReplayServer() = default;

int ReplayServer::Port() const {
    return m_service->Port();
}

std::string ReplayServer::Run(const std::function<bool()>& stopped) {
    return m_service->Run(stopped);
}

} // namespace vrx::tool
