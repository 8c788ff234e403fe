#include "tools/server/Connection.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

namespace vrx::tool {

namespace {

/// A client that sends ahead gives way to the others after so many frames.
constexpr int kFramesPerTurn = 16;

} // namespace

Connection::Connection(Socket socket, Service& service, Workers& workers, uint64_t number)
    : m_socket(std::move(socket)), m_service(service), m_workers(workers),
      m_frames(service.options.largestPacket), m_pause(m_socket.get_executor()),
      m_dice(service.options.faultSeed, number) {}

Connection::~Connection() {
    m_service.stock.Return(std::move(m_processor));
}

template <class Handler>
void Connection::OnStrand(Handler handler) {
    asio::dispatch(m_socket.get_executor(),
                   [self = shared_from_this(), handler = std::move(handler)]() mutable { handler(*self); });
}

void Connection::Start() {
    OnStrand([](Connection& self) {
        self.m_counted = true;
        self.Serve();
    });
}

void Connection::TurnAway(std::string line) {
    OnStrand([line = std::move(line)](Connection& self) { self.SendAway(line); });
}

void Connection::CloseIfIdle(Clock::time_point now) {
    OnStrand([now](Connection& self) {
        if (self.m_pausing) return;
        const auto allowed = self.m_leaving ? kFarewell : self.m_service.options.idle;
        if (now - self.m_lastActive > allowed) self.Close();
    });
}

void Connection::Finish() {
    OnStrand([](Connection& self) {
        self.m_finishing = true;
        if (self.m_leaving || (self.m_waiting && self.NothingIsUnderWay())) self.Close();
    });
}

/// No byte of a request has come that is not answered yet.
bool Connection::NothingIsUnderWay() const {
    asio::error_code ignored;
    return m_frames.Empty() && m_socket.available(ignored) == 0;
}

void Connection::Read() {
    const auto space = m_frames.Space();
    m_waiting = true;
    m_socket.async_read_some(asio::buffer(space.data(), space.size()),
                             [self = shared_from_this()](const asio::error_code& error, size_t count) {
                                 self->m_waiting = false;
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
        if (frame.kind == Frame::kIncomplete) return m_finishing && NothingIsUnderWay() ? Close() : Read();
        if (!AnswerFrame(frame)) return;
    }
    asio::post(m_socket.get_executor(), [self = shared_from_this()] { self->Serve(); });
}

/// False when the answer is still under way or the connection has ended: then Serve is not to go on.
bool Connection::AnswerFrame(const Frame& frame) {
    if (frame.kind == Frame::kLine) return AnswerText(frame.bytes);
    if (frame.kind == Frame::kPacket) return AnswerPacket(frame.bytes);
    ++m_service.errors;
    SendAway("error: " + frame.error);
    return false;
}

bool Connection::AnswerText(std::string_view line) {
    const std::string answer = AnswerLine(line, m_service.Figures());
    if (answer.starts_with("error: ")) ++m_service.errors;
    return SendLine(answer);
}

bool Connection::AnswerPacket(std::string_view packet) {
    Request request;
    const std::string error = ParseRequest(packet, m_service.options.rules, request);
    if (!error.empty()) return SendError(error);
    if (!request.info) return AnswerBlock(packet, request);
    ++m_service.packets;
    FillInfo(request);
    return Send({Reply().data(), Reply().size()});
}

bool Connection::AnswerBlock(std::string_view packet, const Request& request) {
    if (!m_processor) m_processor = m_service.stock.Take();
    if (!m_processor) {
        OrderProcessor(packet);
        return false;
    }
    ++m_service.packets;
    FillReply(request);
    const Fault* const fault = m_dice.Roll(m_service.options.faults, m_service.options.faultRate);
    if (fault == nullptr || !m_service.CountFault()) return Send({Reply().data(), Reply().size()});
    m_faultPlan = FaultPlan(*fault, Reply());
    return RunFaultSteps();
}

/// Waits for the processing, then answers the packet.
void Connection::OrderProcessor(std::string_view packet) {
    m_pausing = true;
    m_service.stock.Order(
        [self = shared_from_this(), packet](std::unique_ptr<Processor> processor, const std::string& error) {
            auto made = std::make_shared<std::unique_ptr<Processor>>(std::move(processor));
            asio::post(self->m_socket.get_executor(), [self, packet, made, error] {
                self->m_pausing = false;
                self->m_lastActive = Clock::now();
                self->m_processor = std::move(*made);
                if (self->m_processor ? self->AnswerPacket(packet) : self->SendError(error)) self->Serve();
            });
        });
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
    m_processor->Run(data.first(inWords));
    if (outWords > inWords) std::ranges::fill(data.subspan(inWords), 0U);
    m_reply.resize(host::kReplyDataAt + outWords);
    CountBlock(began, Clock::now());
}

void Connection::CountBlock(Clock::time_point began, Clock::time_point ended) {
    const std::chrono::nanoseconds took = ended - began;
    const auto nanoseconds = static_cast<double>(took.count());
    m_blockNanoseconds += nanoseconds;
    ++m_blocks;
    m_reply[host::kReplyHeaderWords + 1] = CycleWord(m_blockNanoseconds / static_cast<double>(m_blocks));
    m_reply[host::kReplyHeaderWords + 2] = CycleWord(nanoseconds);

    ++m_service.blocks;
    m_service.busy.Add(took);
    m_service.latencyFrames.store(m_processor->Latency(), std::memory_order_relaxed);
    if (took > Workers::kLong) m_workers.ShareWork(ended);
}

void Connection::FillInfo(const Request& request) {
    const ServerOptions& options = m_service.options;
    const PinInfo pin{options.pinFrames, options.shape.channels,
                      options.shape.format == host::SampleFormat::kF32};
    StartReply(m_reply, request.replyDataWords);
    std::fill(m_reply.begin() + host::kReplyDataAt, m_reply.end(), PackPinInfo(pin));
}

bool Connection::SendLine(std::string_view line) {
    m_line.assign(line);
    m_line += '\n';
    return Send(m_line);
}

bool Connection::SendError(std::string_view error) {
    ++m_service.errors;
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
    while (const auto step = m_faultPlan.Next()) {
        if (!RunFaultStep(*step)) return false;
    }
    return true;
}

bool Connection::RunFaultStep(const FaultStep& step) {
    switch (step.kind) {
    case FaultStep::kSend:
    case FaultStep::kSendInPieces: // which a plan hands out one by one
        return Send(step.bytes);
    case FaultStep::kRefuse:
        Refuse(step.time);
        break;
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

void Connection::Refuse(std::chrono::milliseconds time) {
    m_pausing = true;
    m_service.refuseFor(time, [self = shared_from_this()] {
        self->OnStrand([](Connection& connection) {
            connection.m_pausing = false;
            connection.Proceed();
        });
    });
}

void Connection::Pause(std::chrono::milliseconds time) {
    m_pausing = true;
    m_pause.expires_after(time);
    m_pause.async_wait([self = shared_from_this()](const asio::error_code& error) {
        if (error) return;
        self->m_pausing = false;
        self->m_lastActive = Clock::now();
        self->Proceed();
    });
}

void Connection::SendForever(std::string_view bytes) {
    m_socket.async_write_some(asio::buffer(bytes),
                              [self = shared_from_this(), bytes](const asio::error_code& error, size_t) {
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
    m_socket.shutdown(asio::socket_base::shutdown_send, ignored);
    m_leaving = true;
    StopCounting();
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
    StopCounting();
    m_service.Remove(shared_from_this());
}

void Connection::StopCounting() {
    if (std::exchange(m_counted, false)) --m_service.served;
}

} // namespace vrx::tool
