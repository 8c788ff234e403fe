#include "tools/capture/Recorder.h"

#include "tools/capture/CaptureWriter.h"
#include "tools/capture/Listen.h"
#include "tools/capture/SampleMute.h"
#include "tools/capture/WallClock.h"
#include "tools/program/Errors.h"

#include <algorithm>
#include <asio.hpp>
#include <chrono>
#include <csignal>
#include <map>
#include <pthread.h>
#include <utility>
#include <vector>

namespace vrx::tool {

namespace {

using asio::ip::tcp;
using std::chrono::milliseconds;

/// What a side that has ended leaves the other one at the end of the recording.
constexpr milliseconds kLastBytes{200};

Endpoint EndpointOf(const tcp::endpoint& endpoint) {
    return {endpoint.address().to_string(), endpoint.port()};
}

tcp::endpoint FindServer(asio::io_context& io, const RecorderOptions& options) {
    asio::error_code error;
    tcp::resolver resolver(io);
    const auto found = resolver.resolve(tcp::v4(), options.host, std::to_string(options.port), error);
    if (!error && !found.empty()) return found.begin()->endpoint();
    throw Failure{kCannotConnect, options.host + ": no such host: " + error.message() + "; check the name"};
}

} // namespace

class Recorder::Proxy {
public:
    explicit Proxy(RecorderOptions options);

    void Run(const std::function<bool()>& stopped);
    int Port() const { return m_acceptor.local_endpoint().port(); }
    const RecorderFigures& Figures() const { return m_figures; }
    const std::string& Error() const { return m_writer.Error(); }

private:
    class Conversation;

    void Accept();
    void AcceptLater();
    void AskWhetherStopped(const std::function<bool()>& stopped);
    void Tell(const std::string& text) const {
        if (m_options.tell) m_options.tell(text);
    }
    void Flush();

    RecorderOptions m_options;
    asio::io_context m_io{1};
    tcp::endpoint m_server;
    tcp::acceptor m_acceptor;
    CaptureWriter m_writer; // behind what may fail, so that no file is left then
    WallClock m_clock;
    RecorderFigures m_figures;
    bool m_flushFailed = false;
    bool m_refusalTold = false;
    asio::steady_timer m_timer{m_io};
    asio::steady_timer m_acceptTimer{m_io};
    std::map<std::uint64_t, std::shared_ptr<Conversation>> m_conversations;
    std::uint64_t m_lastNumber = 0;
};

/// One client and its connection to the server: two streams, each of which reads a piece, hands it on, records it, and
/// reads the next.
class Recorder::Proxy::Conversation : public std::enable_shared_from_this<Conversation> {
public:
    Conversation(Proxy& proxy, std::uint64_t number, tcp::socket client)
        : m_proxy(proxy),
          m_number(number), m_client{Side::kClient, std::move(client), SampleMute(Side::kClient)},
          m_server{Side::kServer, tcp::socket(proxy.m_io), SampleMute(Side::kServer)} {}

    void Start();
    bool HalfEnded() const { return m_client.ended != m_server.ended; }

private:
    struct End {
        Side side;
        tcp::socket socket;
        SampleMute mute;
        bool ended = false; // its sending side
        std::vector<char> piece = std::vector<char>(CaptureWriter::kMostBytes);
    };

    void Connected(const asio::error_code& error);
    void Read(End& from);
    void HandOn(End& from, std::size_t count);
    void Record(End& from, std::int64_t time, std::size_t count);
    void Close(End& from);
    void Reset(End& from);
    void Leave();
    End& Other(const End& end) { return &end == &m_client ? m_server : m_client; }

    Proxy& m_proxy;
    std::uint64_t m_number;
    End m_client;
    End m_server;
};

void Recorder::Proxy::Conversation::Start() {
    m_server.socket.async_connect(
        m_proxy.m_server,
        [self = shared_from_this()](const asio::error_code& error) { self->Connected(error); });
}

void Recorder::Proxy::Conversation::Connected(const asio::error_code& error) {
    if (error == asio::error::operation_aborted) return;
    asio::error_code gone; // a client that has gone shows up at the first read
    const Endpoint client = EndpointOf(m_client.socket.remote_endpoint(gone));
    const std::int64_t now = m_proxy.m_clock.Now();
    if (error) {
        m_proxy.m_writer.Refuse(client, EndpointOf(m_proxy.m_server), now);
        m_proxy.Flush();
        if (!std::exchange(m_proxy.m_refusalTold, true))
            m_proxy.Tell(EndpointOf(m_proxy.m_server).address + ":" +
                         std::to_string(m_proxy.m_server.port()) + " cannot be reached: " + error.message() +
                         "; clients are refused until it can");
        m_client.socket.set_option(asio::socket_base::linger(true, 0), gone);
        return Leave();
    }
    m_proxy.m_refusalTold = false;
    m_proxy.m_writer.Open(m_number, client, EndpointOf(m_proxy.m_server), now);
    for (End* end : {&m_client, &m_server}) {
        end->socket.set_option(tcp::no_delay(true), gone);
        end->socket.non_blocking(true, gone);
        Read(*end);
    }
}

void Recorder::Proxy::Conversation::Read(End& from) {
    from.socket.async_read_some(
        asio::buffer(from.piece),
        [self = shared_from_this(), &from](const asio::error_code& error, std::size_t count) {
            if (error == asio::error::operation_aborted) return;
            if (error == asio::error::eof) return self->Close(from);
            if (error) return self->Reset(from);
            self->HandOn(from, count);
        });
}

/// Hands the piece on first: recording it does not delay it.
void Recorder::Proxy::Conversation::HandOn(End& from, std::size_t count) {
    const std::int64_t now = m_proxy.m_clock.Now();
    End& to = Other(from);
    asio::error_code error;
    const std::size_t sent = to.socket.write_some(asio::buffer(from.piece.data(), count), error);
    Record(from, now, count);
    if (error && error != asio::error::would_block) return Reset(to);
    if (sent == count) return Read(from);
    asio::async_write(to.socket, asio::buffer(from.piece.data() + sent, count - sent),
                      [self = shared_from_this(), &from, &to](const asio::error_code& failed, std::size_t) {
                          if (failed == asio::error::operation_aborted) return;
                          if (failed) return self->Reset(to);
                          self->Read(from);
                      });
}

void Recorder::Proxy::Conversation::Record(End& from, std::int64_t time, std::size_t count) {
    const bool request = from.side == Side::kClient;
    (request ? m_proxy.m_figures.requestBytes : m_proxy.m_figures.replyBytes) += count;
    std::string_view bytes(from.piece.data(), count);
    std::string muted;
    if (m_proxy.m_options.mute) {
        muted = bytes;
        from.mute.Apply(muted);
        bytes = muted;
    }
    m_proxy.m_writer.Bytes(m_number, from.side, time, bytes);
    if (!request) m_proxy.Flush();
}

void Recorder::Proxy::Conversation::Close(End& from) {
    from.ended = true;
    m_proxy.m_writer.Close(m_number, from.side, m_proxy.m_clock.Now());
    m_proxy.Flush();
    asio::error_code ignored; // the other side may have gone
    End& to = Other(from);
    to.socket.shutdown(tcp::socket::shutdown_send, ignored);
    if (to.ended) Leave();
}

void Recorder::Proxy::Conversation::Reset(End& from) {
    m_proxy.m_writer.Reset(m_number, from.side, m_proxy.m_clock.Now());
    m_proxy.Flush();
    asio::error_code ignored;
    Other(from).socket.set_option(asio::socket_base::linger(true, 0), ignored);
    Leave();
}

void Recorder::Proxy::Conversation::Leave() {
    asio::error_code ignored;
    m_client.socket.close(ignored);
    m_server.socket.close(ignored);
    m_proxy.m_conversations.erase(m_number);
}

Recorder::Proxy::Proxy(RecorderOptions options)
    : m_options(std::move(options)), m_server(FindServer(m_io, m_options)),
      m_acceptor(Listen(m_io, m_options.listenPort)), m_writer(m_options.file, m_options.overwrite) {}

void Recorder::Proxy::Run(const std::function<bool()>& stopped) {
    Accept();
    AskWhetherStopped(stopped);
    m_io.run();
    m_io.restart();
    const auto until = std::chrono::steady_clock::now() + kLastBytes;
    const auto halfEnded = [](const auto& each) { return each.second->HalfEnded(); };
    do m_io.poll();
    while (std::ranges::any_of(m_conversations, halfEnded) && m_io.run_one_until(until) > 0);
    Flush();
}

void Recorder::Proxy::Accept() {
    m_acceptor.async_accept([this](const asio::error_code& error, tcp::socket socket) {
        if (error == asio::error::operation_aborted) return;
        if (error) return AcceptLater();
        ++m_figures.clients;
        const auto conversation = std::make_shared<Conversation>(*this, ++m_lastNumber, std::move(socket));
        m_conversations.emplace(m_lastNumber, conversation);
        conversation->Start();
        Accept();
    });
}

void Recorder::Proxy::AcceptLater() {
    m_acceptTimer.expires_after(kRetryAccept);
    m_acceptTimer.async_wait([this](const asio::error_code& error) {
        if (!error) Accept();
    });
}

void Recorder::Proxy::AskWhetherStopped(const std::function<bool()>& stopped) {
    if (stopped()) {
        asio::error_code ignored;
        m_acceptor.close(ignored);
        return m_io.stop();
    }
    m_timer.expires_after(kAskWhetherStopped);
    m_timer.async_wait([this, &stopped](const asio::error_code& error) {
        if (!error) AskWhetherStopped(stopped);
    });
}

void Recorder::Proxy::Flush() {
    if (m_flushFailed) return;
    m_flushFailed = !m_writer.Flush();
    m_figures.fileBytes = m_writer.Bytes();
    if (m_flushFailed)
        Tell(m_options.file + ": the recording ends here: " + m_writer.Error() +
             "; what goes over the wire goes on");
}

Recorder::Recorder(RecorderOptions options) : m_proxy(std::make_unique<Proxy>(std::move(options))) {}

Recorder::~Recorder() = default;

int Recorder::Port() const {
    return m_proxy->Port();
}

void Recorder::Run(const std::function<bool()>& stopped) {
    m_proxy->Run(stopped);
}

const RecorderFigures& Recorder::Figures() const {
    return m_proxy->Figures();
}

const std::string& Recorder::Error() const {
    return m_proxy->Error();
}

BackgroundRecorder::BackgroundRecorder(RecorderOptions options) : m_recorder(std::move(options)) {
    // Signals are for the command's own thread.
    sigset_t all;
    sigset_t before;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    m_thread = std::thread([this] { m_recorder.Run([this] { return m_stop.load(); }); });
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

BackgroundRecorder::~BackgroundRecorder() {
    m_stop = true;
    m_thread.join();
}

} // namespace vrx::tool
