#include "host/BlockPump.h"

#include <algorithm>
#include <iterator>

namespace vrx::host {

BlockPump::BlockPump(Session& session, RunClock& clock, unsigned words, unsigned retries, double period)
    : m_session(session), m_clock(clock), m_words(words), m_retries(retries), m_pacing(clock, period) {}

Sent BlockPump::Send(const std::uint32_t* in, std::uint32_t* out, BlockRecord& block) {
    block = {};
    block.number = ++m_blocks;
    block.dueAt = m_pacing.AwaitNext();
    if (m_session.Stopped()) return Sent::kStopped;
    SendOnce(in, out, block);
    while (block.Failed() && m_session.TransportFault()) {
        const Sent recovered = Recover(block);
        if (recovered != Sent::kReplied) return recovered;
        SendOnce(in, out, block);
    }
    if (block.Failed()) std::fill_n(out, m_words, 0U);
    block.averageCycles = m_session.AverageCycles();
    block.pumpCycles = m_session.PumpCycles();
    return Sent::kReplied;
}

void BlockPump::SendOnce(const std::uint32_t* in, std::uint32_t* out, BlockRecord& block) {
    block.sentAt = Elapsed();
    block.result = m_session.PumpAudio(in, out, m_words);
    const double repliedAt = Elapsed();
    block.milliseconds = (repliedAt - block.sentAt) * 1000;
    block.sinceDue = (repliedAt - block.dueAt) * 1000;
}

Sent BlockPump::Recover(BlockRecord& block) {
    do {
        if (m_session.Stopped()) return Sent::kStopped;
        if (block.retries == m_retries) return Sent::kLost;
        m_clock.SleepUntil(Elapsed() + RetryPause(++block.retries) / 1000.0);
        if (m_session.Stopped()) return Sent::kStopped;
    } while (!m_session.Reconnect(block.result));
    return Sent::kReplied;
}

int RetryPause(unsigned retry) {
    constexpr int kPauses[] = {500, 1000, 2000, 4000, 5000};
    return kPauses[std::clamp<std::size_t>(retry, 1, std::size(kPauses)) - 1];
}

} // namespace vrx::host
