#include "live/Worker.h"

#include "host/BlockSize.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

namespace vrx::live {

namespace {

constexpr std::chrono::milliseconds kStep{20}; // how soon the worker notices that it is to stop
constexpr unsigned kNoRetries = 0;             // by the pump: whether a block is worth one changes with time
constexpr unsigned kMostQuestions = 3;

/// After these the talker opens its connection again by itself.
bool NextCallReconnects(int result) {
    return result == CVRXTalker::kPeerClosed || result == CVRXTalker::kReceiveFailed ||
           result == CVRXTalker::kTimedOut;
}

} // namespace

Worker::Worker(BridgeParts& parts, std::size_t samples, Slots& slots, WorkerState& state)
    : m_parts(parts), m_slots(slots), m_state(state), m_words(parts.words), m_in(samples), m_out(samples),
      m_pump(*parts.session, *parts.clock, static_cast<unsigned>(samples), kNoRetries) {
    m_parts.session->TakeReplies(host::SuitingReplies(samples));
}

void Worker::Run() {
    Connect();
    while (!Stopped()) Step(kStep);
}

void Worker::Connect() {
    if (!m_parts.session->Connect()) Recover(CVRXTalker::kNoConnection, m_parts.session->WhyNotConnected());
}

void Worker::Step(std::chrono::microseconds patience) {
    m_block = m_slots.Take(patience);
    if (!m_block) return;
    m_exchangeFailed = false;
    // Its turn may pass while the server is being reached again.
    while (m_block && !Stopped() && m_slots.Wanted(*m_block)) Exchange();
    if (m_block) GiveUp();
}

void Worker::Exchange() {
    if (!m_words) return AskWords(); // which takes its time, too
    for (std::size_t i = 0; i < m_in.size(); ++i)
        m_in[i] = host::WordFromSample(static_cast<double>(m_block->samples[i]), *m_words);
    const std::uint64_t number = m_block->number + 1;
    host::BlockRecord record;
    switch (m_pump.Send(m_in.data(), m_out.data(), record)) {
    case host::Sent::kReplied:
        record.number = number;
        return Replied(record);
    case host::Sent::kLost:
        return ExchangeFailed(record.result);
    case host::Sent::kStopped:
        return GiveUp();
    }
}

/// When that fails on the way, it has to be asked again. Servers that end the connection instead of an answer, time and
/// again, have none.
void Worker::AskWords() {
    host::PinValues pins;
    const int result = m_parts.session->PinProps(pins);
    const bool failed = result < 0 && m_parts.session->TransportFault();
    if (!failed || ++m_questions == kMostQuestions)
        m_words = result < 0 ? host::SampleFormat::kF32 : host::PreferredWords(pins);
    if (failed) ExchangeFailed(result);
}

void Worker::Replied(const host::BlockRecord& record) {
    if (m_state.attempts.exchange(0) > 0) ++m_state.reconnects;
    if (record.Failed()) {
        m_exchangeFailed = true;
        GiveUp();
    } else {
        for (std::size_t i = 0; i < m_out.size(); ++i)
            m_block->samples[i] = static_cast<float>(host::SampleFromWord(m_out[i], *m_words));
        (void)m_slots.Finish(*m_block, true); // dropped when it came too late
        m_block.reset();
    }
    if (m_parts.exchanged) m_parts.exchanged(record, m_in.data(), m_out.data());
}

/// A failure that the real-time side does not see any more is counted here. A block that was never tried has not failed:
/// when all ends before its turn, that is left to pass.
void Worker::GiveUp() {
    const Slots::Block block = *std::exchange(m_block, {});
    if (!m_exchangeFailed && Stopped()) return;
    if (!m_slots.Finish(block, false) && m_exchangeFailed) ++m_state.failed;
}

void Worker::ExchangeFailed(int result) {
    m_exchangeFailed = true;
    Recover(result, m_parts.session->Describe(result));
}

/// Tries until the next exchange is worth it.
void Worker::Recover(int result, const std::string& why) {
    if (m_state.attempts == 0 && m_parts.outage) m_parts.outage(why);
    do {
        Pause(host::RetryPause(++m_state.attempts) / 1000.0);
        if (Stopped() || NextCallReconnects(result)) return;
    } while (!m_parts.session->Reconnect(result));
}

/// Meanwhile blocks whose turn passes give their slots back, so that the newest ones are there when it is over.
void Worker::Pause(double seconds) {
    constexpr double kLook = 0.01;
    const double end = m_parts.clock->Now() + seconds;
    for (double now = end - seconds; now < end && !Stopped(); now = m_parts.clock->Now()) {
        m_parts.clock->SleepUntil(std::min(end, now + kLook));
        if (m_block && !m_slots.Wanted(*m_block)) GiveUp();
        m_slots.Drain();
    }
}

} // namespace vrx::live
