#include "tools/server/LoopbackServer.h"

#include "tools/program/Errors.h"
#include "tools/server/Connection.h"
#include "tools/server/ReadySockets.h"
#include "tools/server/Service.h"
#include "tools/server/ServiceManager.h"
#include "tools/server/Workers.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace vrx::tool {

namespace {

using asio::ip::tcp;
using std::chrono::milliseconds;

/// Clients in their farewell beyond this number are cut off at once.
constexpr size_t kMostFarewells = 32;
/// Out of descriptors, say: new clients wait until one is free.
constexpr milliseconds kRetryAccept{100};
/// What is under way may take this long when the server stops.
constexpr milliseconds kLastExchanges{1000};

using Acceptor = asio::basic_socket_acceptor<tcp, Strand>;
using Timer = asio::basic_waitable_timer<Clock, asio::wait_traits<Clock>, Strand>;

/// Listens, accepts, looks after silent clients, and stops on a signal. What concerns the door happens on a
/// strand of its own.
class Server {
public:
    explicit Server(const ServerOptions& options)
        : m_service(options), m_workers(options.threads), m_ready(m_workers), m_door(m_workers.MakeStrand()),
          m_acceptor(m_door), m_sweep(m_door), m_reopen(m_door), m_port(options.port) {
        m_service.refuseFor = [this](milliseconds time, std::function<void()> then) {
            asio::post(m_door, [this, time, then = std::move(then)] {
                RefuseFor(time);
                then();
            });
        };
    }
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int Run();

private:
    std::string Listen();
    void Accept();
    void AcceptLater(milliseconds delay);
    void RefuseFor(milliseconds time);
    bool MayEnter(const Socket& socket) const;
    void Admit(Socket socket);
    void SweepLater();
    void Announce() const;
    void AwaitSignal() const;
    void Stop();
    void PrintTotals() const;

    Service m_service;
    Workers m_workers;
    ReadySockets m_ready;
    Strand m_door;
    Acceptor m_acceptor;
    Timer m_sweep;
    Timer m_reopen;
    unsigned m_opening = 0; // tells what was begun before the door was last closed from what came later
    bool m_stopping = false;
    uint16_t m_port; // once listening, the port it got
};

Server::~Server() {
    m_workers.Stop();
    (void)m_workers.AwaitEnd(kLastExchanges);
    m_service.stock.Stop();
    m_service.Clear();
}

int Server::Run() {
    const ServerOptions& options = m_service.options;
    if (const std::string reason = Listen(); !reason.empty()) {
        (void)std::fprintf(stderr, "vrx serve: cannot listen on %s:%u: %s; choose another --bind or --port\n",
                           options.bind.c_str(), unsigned{options.port}, reason.c_str());
        return kCannotConnect;
    }
    Announce();
    Accept();
    SweepLater();
    m_workers.Start();
    NotifyServiceManager("READY=1");

    AwaitSignal();
    NotifyServiceManager("STOPPING=1");
    Stop();
    return kDone;
}

void Server::AwaitSignal() const {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
}

/// Ends when the last exchange has ended, or when its time is up.
void Server::Stop() {
    asio::post(m_door, [this] {
        m_stopping = true;
        asio::error_code ignored;
        m_acceptor.close(ignored);
        m_reopen.cancel();
        m_sweep.cancel();
        for (const auto& connection : m_service.Connections()) connection->Finish();
    });
    const bool ended = m_workers.AwaitEnd(kLastExchanges);
    PrintTotals();
    m_workers.Stop();
    if (ended || m_workers.AwaitEnd(milliseconds(100))) return;
    (void)std::fflush(stdout);
    std::_Exit(kDone); // a thread is inside processing that does not come back
}

void Server::PrintTotals() const {
    if (m_service.options.quiet) return;
    std::printf("vrx serve: stopped after %llu clients, %llu packets, %llu errors\n",
                static_cast<unsigned long long>(m_service.clients),
                static_cast<unsigned long long>(m_service.Packets()),
                static_cast<unsigned long long>(m_service.errors));
}

/// "" or why not.
std::string Server::Listen() {
    asio::error_code error;
    const auto address = asio::ip::make_address_v4(m_service.options.bind, error);
    if (error) return "not an IPv4 address";
    m_acceptor.open(tcp::v4(), error);
    if (error) return error.message();
    m_acceptor.set_option(tcp::acceptor::reuse_address(true), error);
    m_acceptor.bind({address, m_port}, error);
    if (!error) m_acceptor.listen(asio::socket_base::max_listen_connections, error);
    if (error) {
        std::string reason = error.message();
        m_acceptor.close(error);
        return reason;
    }
    m_port = m_acceptor.local_endpoint().port();
    return {};
}

void Server::Announce() const {
    const ServerOptions& options = m_service.options;
    const auto where = m_acceptor.local_endpoint();
    std::printf("vrx serve: listening on %s:%u\n", where.address().to_string().c_str(),
                unsigned{where.port()});
    if (!options.quiet) {
        std::printf("vrx serve: limits: packet %zu bytes, block %zu words, %zu clients, idle %.1f s\n",
                    options.largestPacket, options.rules.largestBlock, options.mostClients,
                    std::chrono::duration<double>(options.idle).count());
    }
    (void)std::fflush(stdout); // without a reader there is nobody to tell
    if (!options.quiet && !where.address().is_loopback()) {
        (void)std::fprintf(stderr,
                           "vrx serve: warning: other machines can reach %s:%u; there is no password and no "
                           "encryption\n",
                           where.address().to_string().c_str(), unsigned{where.port()});
    }
}

void Server::Accept() {
    m_acceptor.async_accept(m_workers.MakeStrand(),
                            asio::bind_executor(m_door, [this, opening = m_opening](
                                                            const asio::error_code& error, Socket socket) {
                                if (error == asio::error::operation_aborted || m_stopping) return;
                                if (!error) Admit(std::move(socket));
                                if (opening != m_opening) return; // the door was closed meanwhile
                                if (error) return AcceptLater(kRetryAccept);
                                Accept();
                            }));
}

/// Clients that come before then wait in the system's queue.
void Server::AcceptLater(milliseconds delay) {
    m_reopen.expires_after(delay);
    m_reopen.async_wait([this, opening = m_opening](const asio::error_code& error) {
        if (!error && opening == m_opening && !m_stopping) Accept();
    });
}

/// Clients that come before then find nobody listening.
void Server::RefuseFor(milliseconds time) {
    if (m_stopping) return;
    asio::error_code ignored;
    m_acceptor.close(ignored);
    ++m_opening;
    m_reopen.expires_after(time);
    m_reopen.async_wait([this, opening = m_opening](const asio::error_code& error) {
        if (error || opening != m_opening || m_stopping) return;
        if (!Listen().empty()) return RefuseFor(kRetryAccept);
        Accept();
    });
}

bool Server::MayEnter(const Socket& socket) const {
    const auto& allowed = m_service.options.allowed;
    if (allowed.empty()) return true;
    asio::error_code error;
    const auto peer = socket.remote_endpoint(error);
    if (error) return false;
    const uint32_t address = peer.address().to_v4().to_uint();
    return std::ranges::any_of(allowed,
                               [address](const AddressRange& range) { return range.Contains(address); });
}

void Server::Admit(Socket socket) {
    const size_t most = m_service.options.mostClients;
    if (!MayEnter(socket)) {
        ++m_service.errors;
        return;
    }
    if (m_service.CountConnections() >= most + kMostFarewells) return;
    asio::error_code ignored; // a peer that is gone already shows up at the first read
    socket.set_option(tcp::no_delay(true), ignored);

    const auto connection =
        std::make_shared<Connection>(std::move(socket), m_service, m_workers, m_ready, m_service.clients);
    m_service.Add(connection);
    if (m_service.served >= most) {
        ++m_service.errors;
        return connection->TurnAway("error: too many clients");
    }
    ++m_service.served;
    ++m_service.clients;
    connection->Start();
}

void Server::SweepLater() {
    m_sweep.expires_after(std::clamp(m_service.options.idle / 4, milliseconds(10), milliseconds(500)));
    m_sweep.async_wait([this](const asio::error_code& error) {
        if (error || m_stopping) return;
        const auto now = Clock::now();
        m_service.busy.Sample(now);
        for (const auto& connection : m_service.Connections()) connection->CloseIfIdle(now);
        SweepLater();
    });
}

/// Signals are waited for by one thread, so every thread that is started keeps them blocked.
void BlockSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

} // namespace

int RunLoopbackServer(const ServerOptions& options) {
    (void)std::signal(SIGPIPE, SIG_IGN); // whoever reads our output may have gone
    BlockSignals();
    return Server(options).Run();
}

} // namespace vrx::tool
