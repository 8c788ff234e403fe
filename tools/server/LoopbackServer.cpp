#include "tools/server/LoopbackServer.h"

#include "tools/program/Errors.h"

// One thread does everything here, so handlers need no fences, which the thread sanitizer cannot follow.
#define ASIO_DISABLE_FENCED_BLOCK

#include <algorithm>
#include <asio.hpp>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vrx::tool {

namespace {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// A client that is sent away has this long to read its last line and close.
constexpr milliseconds kFarewell{1000};
/// Clients in their farewell beyond this number are cut off at once.
constexpr size_t kMostFarewells = 32;
/// A client that sends ahead gives way to the others after so many frames.
constexpr int kFramesPerTurn = 16;
/// Out of descriptors, say: new clients wait until one is free.
constexpr milliseconds kRetryAccept{100};

struct Totals {
    uint64_t clients = 0;
    uint64_t packets = 0;
    uint64_t errors = 0;
    uint64_t faults = 0;
};

class Connection;

/// What all connections share.
struct Service {
    const ServerOptions& options;
    Clock::time_point started = Clock::now();
    Totals totals = {};
    std::vector<std::shared_ptr<Connection>> connections = {};
    std::function<void(milliseconds)> refuseFor = {}; // accepts no client for that long

    size_t CountServed() const;
    ServerFigures Figures() const;
};

/// One client: reads a frame, answers it, reads the next. Nothing is read while an answer is unsent.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(tcp::socket socket, Service& service)
        : m_socket(std::move(socket)), m_service(service), m_frames(service.options.largestPacket),
          m_pause(m_socket.get_executor()), m_dice(service.options.faultSeed, service.totals.clients) {}

    void Start() { Serve(); }

    /// Sends one last line, then closes.
    void SendAway(const std::string& line);

    void Close();
    bool IsServed() const { return !m_leaving && m_socket.is_open(); }

    /// Closes the connection when its peer has been silent for too long.
    void CloseIfIdle(Clock::time_point now);

private:
    void Read();
    void Serve();
    bool AnswerFrame(const Frame& frame);
    bool AnswerText(std::string_view line);
    bool AnswerPacket(std::string_view packet);
    void FillReply(const Request& request);
    void FillInfo(const Request& request);
    bool SendLine(std::string_view line);
    bool SendError(std::string_view error);
    bool Send(std::string_view bytes);
    void SendRest(std::string_view bytes);
    void Proceed();
    bool RunFaultSteps();
    bool RunFaultStep(const FaultStep& step);
    void Pause(milliseconds time);
    void SendForever(const std::string& bytes);
    void Reset();
    void Leave();
    void Drain();

    tcp::socket m_socket;
    Service& m_service;
    FrameBuffer m_frames;
    std::vector<uint32_t> m_reply;
    std::string m_line;
    std::optional<Processor> m_processor; // made for the first block: most of a stranger's bytes need none
    uint64_t m_blocks = 0;
    double m_blockNanoseconds = 0; // over all blocks of this connection
    Clock::time_point m_lastActive = Clock::now();
    bool m_leaving = false;
    asio::steady_timer m_pause;
    bool m_pausing = false;
    FaultDice m_dice;
    std::vector<FaultStep> m_faultSteps;
    size_t m_nextFaultStep = 0;
};

size_t Service::CountServed() const {
    const auto served = std::count_if(connections.begin(), connections.end(),
                                      [](const auto& connection) { return connection->IsServed(); });
    return static_cast<size_t>(served);
}

ServerFigures Service::Figures() const {
    const std::chrono::duration<double> uptime = Clock::now() - started;
    return {CountServed(), totals.packets, totals.errors, uptime.count()};
}

void Connection::Read() {
    const auto space = m_frames.Space();
    m_socket.async_read_some(asio::buffer(space.data(), space.size()),
                             [self = shared_from_this()](const asio::error_code& error, size_t count) {
                                 if (error) return self->Close();
                                 self->m_lastActive = Clock::now();
                                 self->m_frames.Received(count);
                                 self->Serve();
                             });
}

/// Answers every frame that is there, then waits for more.
void Connection::Serve() {
    for (int turn = 0; turn < kFramesPerTurn; ++turn) {
        const Frame frame = m_frames.Next();
        if (frame.kind == Frame::kIncomplete) return Read();
        if (!AnswerFrame(frame)) return;
    }
    asio::post(m_socket.get_executor(), [self = shared_from_this()] { self->Serve(); });
}

/// False when the answer is still under way or the connection has ended: then Serve is not to go on.
bool Connection::AnswerFrame(const Frame& frame) {
    if (frame.kind == Frame::kLine) return AnswerText(frame.bytes);
    if (frame.kind == Frame::kPacket) return AnswerPacket(frame.bytes);
    ++m_service.totals.errors;
    SendAway("error: " + frame.error);
    return false;
}

bool Connection::AnswerText(std::string_view line) {
    const std::string answer = AnswerLine(line, m_service.Figures());
    if (answer.starts_with("error: ")) ++m_service.totals.errors;
    return SendLine(answer);
}

bool Connection::AnswerPacket(std::string_view packet) {
    Request request;
    const std::string error = ParseRequest(packet, m_service.options.rules, request);
    if (!error.empty()) return SendError(error);
    ++m_service.totals.packets;
    const Fault* fault = nullptr;
    if (request.info) {
        FillInfo(request);
    } else {
        FillReply(request);
        fault = m_dice.Roll(m_service.options.faults, m_service.options.faultRate);
    }
    const std::string_view reply(reinterpret_cast<const char*>(m_reply.data()), m_reply.size() * 4);
    if (fault == nullptr || m_service.totals.faults == m_service.options.faultLimit) return Send(reply);
    ++m_service.totals.faults;
    m_faultSteps = PlanFault(*fault, reply);
    m_nextFaultStep = 0;
    return RunFaultSteps();
}

/// The processed input, cut or filled with zeros to the length asked for, and the time that took.
void Connection::FillReply(const Request& request) {
    const auto began = Clock::now();
    const size_t inWords = request.dataBytes.size() / 4;
    const size_t outWords = request.replyDataWords;
    StartReply(m_reply, outWords);
    m_reply.resize(host::kReplyDataAt + std::max(inWords, outWords));
    const auto data = std::span(m_reply).subspan(host::kReplyDataAt);
    if (inWords > 0) std::memcpy(data.data(), request.dataBytes.data(), request.dataBytes.size());
    if (!m_processor) m_processor.emplace(m_service.options.steps, m_service.options.shape);
    m_processor->Run(data.first(inWords));
    if (outWords > inWords) std::ranges::fill(data.subspan(inWords), 0U);
    m_reply.resize(host::kReplyDataAt + outWords);

    const std::chrono::duration<double, std::nano> took = Clock::now() - began;
    m_blockNanoseconds += took.count();
    ++m_blocks;
    m_reply[host::kReplyHeaderWords + 1] = CycleWord(m_blockNanoseconds / static_cast<double>(m_blocks));
    m_reply[host::kReplyHeaderWords + 2] = CycleWord(took.count());
}

void Connection::FillInfo(const Request& request) {
    const ServerOptions& options = m_service.options;
    const PinInfo pin{options.pinFrames, options.shape.channels, options.shape.format == SampleFormat::kF32};
    StartReply(m_reply, request.replyDataWords);
    std::fill(m_reply.begin() + host::kReplyDataAt, m_reply.end(), PackPinInfo(pin));
}

bool Connection::SendLine(std::string_view line) {
    m_line.assign(line);
    m_line += '\n';
    return Send(m_line);
}

bool Connection::SendError(std::string_view error) {
    ++m_service.totals.errors;
    return SendLine("error: " + std::string(error));
}

/// Sends at once what the system takes, normally all of it. False when the rest goes out later, after which
/// Serve goes on by itself.
bool Connection::Send(std::string_view bytes) {
    asio::error_code error;
    const size_t sent = m_socket.write_some(asio::buffer(bytes.data(), bytes.size()), error);
    if (error && error != asio::error::would_block) {
        Close();
        return false;
    }
    if (sent == bytes.size()) return true;
    SendRest(bytes.substr(sent));
    return false;
}

void Connection::SendRest(std::string_view bytes) {
    m_socket.async_write_some(
        asio::buffer(bytes.data(), bytes.size()),
        [self = shared_from_this(), bytes](const asio::error_code& error, size_t count) {
            if (error) return self->Close();
            self->m_lastActive = Clock::now();
            if (count < bytes.size()) return self->SendRest(bytes.substr(count));
            self->Proceed();
        });
}

/// Goes on where an answer had to wait.
void Connection::Proceed() {
    if (RunFaultSteps()) Serve();
}

/// False when a step is still under way, after which Proceed goes on, or when it ended the connection.
bool Connection::RunFaultSteps() {
    while (m_nextFaultStep < m_faultSteps.size()) {
        if (!RunFaultStep(m_faultSteps[m_nextFaultStep++])) return false;
    }
    return true;
}

bool Connection::RunFaultStep(const FaultStep& step) {
    switch (step.kind) {
    case FaultStep::kSend:
        return Send(step.bytes);
    case FaultStep::kRefuse:
        m_service.refuseFor(step.time);
        return true;
    case FaultStep::kSendForever:
        SendForever(step.bytes);
        break;
    case FaultStep::kWait:
        Pause(step.time);
        break;
    case FaultStep::kEnd:
        Leave();
        break;
    case FaultStep::kReset:
        Reset();
        break;
    }
    return false;
}

void Connection::Pause(milliseconds time) {
    m_pausing = true;
    m_pause.expires_after(time);
    m_pause.async_wait([self = shared_from_this()](const asio::error_code& error) {
        if (error) return;
        self->m_pausing = false;
        self->m_lastActive = Clock::now();
        self->Proceed();
    });
}

void Connection::SendForever(const std::string& bytes) {
    m_socket.async_write_some(asio::buffer(bytes),
                              [self = shared_from_this(), &bytes](const asio::error_code& error, size_t) {
                                  if (error) return self->Close();
                                  self->m_lastActive = Clock::now();
                                  self->SendForever(bytes);
                              });
}

void Connection::Reset() {
    asio::error_code ignored;
    m_socket.set_option(asio::socket_base::linger(true, 0), ignored);
    Close();
}

void Connection::SendAway(const std::string& line) {
    asio::error_code ignored; // a line that a stuck peer cannot take is not worth waiting for
    m_socket.write_some(asio::buffer(line + '\n'), ignored);
    Leave();
}

/// Ends the sending side and reads on until the peer closes too: closing over unread bytes would reset the
/// connection and could take the last line with it.
void Connection::Leave() {
    asio::error_code ignored;
    m_socket.shutdown(tcp::socket::shutdown_send, ignored);
    m_leaving = true;
    m_lastActive = Clock::now();
    Drain();
}

void Connection::Drain() {
    m_line.resize(4096);
    m_socket.async_read_some(asio::buffer(m_line),
                             [self = shared_from_this()](const asio::error_code& error, size_t) {
                                 if (error) return self->Close();
                                 self->Drain();
                             });
}

void Connection::Close() {
    asio::error_code ignored;
    m_socket.close(ignored);
    m_pause.cancel();
    std::erase(m_service.connections, shared_from_this());
}

void Connection::CloseIfIdle(Clock::time_point now) {
    if (m_pausing) return;
    const auto allowed = m_leaving ? kFarewell : m_service.options.idle;
    if (now - m_lastActive > allowed) Close();
}

/// Listens, accepts, looks after silent clients, and stops on a signal.
class Server {
public:
    explicit Server(const ServerOptions& options)
        : m_service{options}, m_signals(m_io, SIGINT, SIGTERM), m_acceptor(m_io), m_sweep(m_io),
          m_resume(m_io), m_port(options.port) {
        m_service.refuseFor = [this](milliseconds time) { RefuseFor(time); };
    }

    int Run();

private:
    std::string Listen();
    void Accept();
    void AcceptLater(milliseconds delay);
    void RefuseFor(milliseconds time);
    void Admit(tcp::socket socket);
    void SweepLater();
    void Announce() const;

    asio::io_context m_io{1};
    Service m_service;
    asio::signal_set m_signals;
    tcp::acceptor m_acceptor;
    asio::steady_timer m_sweep;
    asio::steady_timer m_resume;
    uint16_t m_port; // once listening, the port it got
};

int Server::Run() {
    const ServerOptions& options = m_service.options;
    if (const std::string reason = Listen(); !reason.empty()) {
        (void)std::fprintf(stderr, "vrx serve: cannot listen on %s:%u: %s; choose another --bind or --port\n",
                           options.bind.c_str(), unsigned{options.port}, reason.c_str());
        return kCannotConnect;
    }
    m_signals.async_wait([this](const asio::error_code&, int) { m_io.stop(); });
    Accept();
    SweepLater();
    Announce();
    m_io.run();
    if (!options.quiet) {
        std::printf("vrx serve: stopped after %llu clients, %llu packets, %llu errors\n",
                    static_cast<unsigned long long>(m_service.totals.clients),
                    static_cast<unsigned long long>(m_service.totals.packets),
                    static_cast<unsigned long long>(m_service.totals.errors));
    }
    return kDone;
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
    m_acceptor.async_accept([this](const asio::error_code& error, tcp::socket socket) {
        if (error == asio::error::operation_aborted) return;
        if (error) return AcceptLater(kRetryAccept);
        Admit(std::move(socket));
        Accept();
    });
}

/// Clients that come before then wait in the system's queue.
void Server::AcceptLater(milliseconds delay) {
    m_resume.expires_after(delay);
    m_resume.async_wait([this](const asio::error_code& error) {
        if (!error) Accept();
    });
}

/// Clients that come before then find nobody listening.
void Server::RefuseFor(milliseconds time) {
    asio::error_code ignored;
    m_acceptor.close(ignored);
    m_resume.expires_after(time);
    m_resume.async_wait([this](const asio::error_code& error) {
        if (error) return;
        if (!Listen().empty()) return RefuseFor(kRetryAccept);
        Accept();
    });
}

void Server::Admit(tcp::socket socket) {
    const size_t most = m_service.options.mostClients;
    if (m_service.connections.size() >= most + kMostFarewells) return;
    asio::error_code ignored; // a peer that is gone already shows up at the first read
    socket.non_blocking(true, ignored);
    socket.set_option(tcp::no_delay(true), ignored);

    const bool full = m_service.CountServed() >= most;
    const auto connection = std::make_shared<Connection>(std::move(socket), m_service);
    m_service.connections.push_back(connection);
    if (full) {
        ++m_service.totals.errors;
        return connection->SendAway("error: too many clients");
    }
    ++m_service.totals.clients;
    connection->Start();
}

void Server::SweepLater() {
    m_sweep.expires_after(std::clamp(m_service.options.idle / 4, milliseconds(10), milliseconds(500)));
    m_sweep.async_wait([this](const asio::error_code&) {
        const auto now = Clock::now();
        const auto connections = m_service.connections; // closing takes them out of the list
        for (const auto& connection : connections) connection->CloseIfIdle(now);
        SweepLater();
    });
}

} // namespace

int RunLoopbackServer(const ServerOptions& options) {
    (void)std::signal(SIGPIPE, SIG_IGN); // whoever reads our output may have gone
    return Server(options).Run();
}

} // namespace vrx::tool
