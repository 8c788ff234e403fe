#include "tools/server/Connection.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <optional>
#include <utility>

namespace vrx::tool {

namespace {

/// A client that sends ahead gives way to the others after so many frames.
constexpr int kFramesPerTurn = 16;

/// As of the system's last tick, some milliseconds ago at most: what idle times need, without reading a counter
/// for it.
Clock::time_point RoughlyNow() {
    timespec now{};
    (void)::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return Clock::time_point(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

} // namespace

Connection::Connection(Socket socket, Service& service, Workers& workers, ReadySockets& ready,
                       uint64_t number)
    : m_strand(socket.get_executor()), m_socket(socket.release()), m_service(service), m_workers(workers),
      m_ready(ready), m_pause(m_strand), m_dice(service.options.faultSeed, number) {}

Connection::~Connection() {
    Disconnect();
    m_service.stock.Return(std::move(m_processor));
}

/// The one that this thread keeps for the next connection; may be null.
std::unique_ptr<Connection::Work>& Connection::SpareWork() {
    thread_local std::unique_ptr<Work> spare;
    return spare;
}

template <class Handler>
void Connection::OnStrand(Handler handler) {
    asio::dispatch(m_strand,
                   [self = shared_from_this(), handler = std::move(handler)]() mutable { handler(*self); });
}

void Connection::Start() {
    OnStrand([](Connection& self) {
        self.m_counted = true;
        if (self.Attend()) self.Rest();
    });
}

void Connection::TurnAway(std::string line) {
    OnStrand([line = std::move(line)](Connection& self) {
        if (self.Attend()) self.SendAway(line);
    });
}

/// From now on Ready is called. False when the connection had to be closed instead.
bool Connection::Attend() {
    if (m_ready.Add(m_socket.Descriptor(), *this)) return true;
    Close();
    return false;
}

void Connection::Ready(bool last, bool alone) {
    if (alone) return GoOn(last);
    asio::post(m_strand, [self = shared_from_this(), last] { self->GoOn(last); });
}

void Connection::GoOn(bool last) {
    m_readable = true;
    m_ended |= last;
    if (!m_socket.IsOpen()) return;
    if (m_leaving) return Drain();
    if (!m_unsent.empty()) {
        const size_t unsent = m_unsent.size();
        const bool done = SendUnsent();
        if (m_unsent.size() < unsent) m_lastActive = RoughlyNow();
        return done ? Proceed() : void();
    }
    if (std::exchange(m_waiting, false)) Serve();
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
    return (!m_work || m_work->frames.Empty()) && !m_socket.HasWaitingBytes();
}

/// Answers every frame that is there, then waits for more.
void Connection::Serve() {
    for (int turn = 0; turn < kFramesPerTurn; ++turn) {
        const Frame frame = NextFrame();
        if (frame.kind != Frame::kIncomplete) {
            if (!AnswerFrame(frame)) return;
        } else if (!Receive()) {
            return;
        }
    }
    asio::post(m_strand, [self = shared_from_this()] { self->Serve(); });
}

Frame Connection::NextFrame() {
    return m_work ? m_work->frames.Next() : Frame{};
}

/// False when there is nothing to receive, or the connection has ended.
bool Connection::Receive() {
    if (!m_readable) {
        Rest();
        return false;
    }
    if (!m_work) m_work = std::move(SpareWork());
    if (!m_work) m_work = std::make_unique<Work>(m_service.options);
    const auto space = m_work->frames.Space();
    const auto count = m_socket.Receive(space);
    if (!count) {
        Close();
        return false;
    }
    m_readable = m_ended || *count == space.size(); // less is all there is: Ready tells of what comes later
    if (*count > 0) m_lastActive = RoughlyNow();
    m_work->frames.Received(*count);
    return true;
}

/// Until the client says more.
void Connection::Rest() {
    if (m_finishing && NothingIsUnderWay()) return Close();
    m_waiting = true;
    if (m_work && m_work->frames.Empty()) SpareWork() = std::move(m_work);
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
    const std::string error = m_work->requests.Read(packet, request);
    if (!error.empty()) return SendError(error);
    if (!request.info) return AnswerBlock(packet, request);
    ++m_service.questions;
    FillInfo(request);
    return Send({Reply().data(), Reply().size()});
}

bool Connection::AnswerBlock(std::string_view packet, const Request& request) {
    if (!m_processor) m_processor = m_service.stock.Take();
    if (!m_processor) {
        OrderProcessor(packet);
        return false;
    }
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
            asio::post(self->m_strand, [self, packet, made, error] {
                self->m_pausing = false;
                self->m_lastActive = RoughlyNow();
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
    StartReply(m_work->reply, outWords);
    m_work->reply.resize(host::kReplyDataAt + std::max(inWords, outWords));
    const auto data = std::span(m_work->reply).subspan(host::kReplyDataAt);
    if (inWords > 0) std::memcpy(data.data(), request.dataBytes.data(), request.dataBytes.size());
    m_processor->Run(data.first(inWords));
    if (outWords > inWords) std::ranges::fill(data.subspan(inWords), 0U);
    m_work->reply.resize(host::kReplyDataAt + outWords);
    CountBlock(began, Clock::now());
}

void Connection::CountBlock(Clock::time_point began, Clock::time_point ended) {
    const std::chrono::nanoseconds took = ended - began;
    const auto nanoseconds = static_cast<double>(took.count());
    m_blockNanoseconds += nanoseconds;
    ++m_blocks;
    m_work->reply[host::kReplyHeaderWords + 1] =
        CycleWord(m_blockNanoseconds / static_cast<double>(m_blocks));
    m_work->reply[host::kReplyHeaderWords + 2] = CycleWord(nanoseconds);

    ++m_service.blocks;
    m_service.busy.Add(took);
    m_service.latencyFrames.store(m_processor->Latency(), std::memory_order_relaxed);
    if (took > Workers::kLong) m_workers.ShareWork(ended);
}

void Connection::FillInfo(const Request& request) {
    const ServerOptions& options = m_service.options;
    const PinInfo pin{options.pinFrames, options.shape.channels,
                      options.shape.format == host::SampleFormat::kF32};
    StartReply(m_work->reply, request.replyDataWords);
    std::fill(m_work->reply.begin() + host::kReplyDataAt, m_work->reply.end(), PackPinInfo(pin));
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
    m_unsent = bytes;
    return SendUnsent();
}

/// False when the system takes no more for now, or the connection has ended.
bool Connection::SendUnsent() {
    while (!m_unsent.empty()) {
        const auto count = m_socket.Send(m_unsent);
        if (!count) Close();
        if (count.value_or(0) == 0) return false;
        m_unsent.remove_prefix(*count);
    }
    return true;
}

/// Goes on where an answer had to wait.
void Connection::Proceed() {
    if (!m_endless.empty()) return SendForever(m_endless);
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
        self->m_lastActive = RoughlyNow();
        self->Proceed();
    });
}

void Connection::SendForever(std::string_view bytes) {
    m_endless = bytes;
    m_lastActive = RoughlyNow();
    if (Send(bytes)) asio::post(m_strand, [self = shared_from_this()] { self->Proceed(); });
}

void Connection::Reset() {
    m_ready.Remove(m_socket.Descriptor());
    m_socket.Reset();
    Close();
}

void Connection::SendAway(const std::string& line) {
    (void)m_socket.Send(line + '\n'); // a line that a stuck peer cannot take is not worth waiting for
    Leave();
}

/// Ends the sending side and reads on until the peer closes too: closing over unread bytes would reset the
/// connection and could take the last line with it.
void Connection::Leave() {
    m_socket.SendNoMore();
    m_leaving = true;
    m_unsent = {};
    StopCounting();
    m_lastActive = RoughlyNow();
    Drain();
}

void Connection::Drain() {
    std::array<char, 4096> unwanted;
    for (int turn = 0; turn < kFramesPerTurn; ++turn) {
        const auto count = m_socket.Receive(unwanted);
        if (!count) return Close();
        if (*count == 0) return; // Ready goes on
    }
    asio::post(m_strand, [self = shared_from_this()] { self->Drain(); });
}

void Connection::Close() {
    Disconnect();
    m_pause.cancel();
    StopCounting();
    m_service.Remove(shared_from_this());
}

void Connection::Disconnect() {
    if (!m_socket.IsOpen()) return;
    m_ready.Remove(m_socket.Descriptor());
    m_socket.Close();
}

void Connection::StopCounting() {
    if (std::exchange(m_counted, false)) --m_service.served;
}

} // namespace vrx::tool
