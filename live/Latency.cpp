#include "live/Latency.h"

#include "host/BlockPump.h"
#include "host/BlockSize.h"
#include "host/Packet.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

namespace vrx::live {

namespace {

/// Sends blocks of silence.
class Probe {
public:
    Probe(host::Session& session, host::RunClock& clock, std::size_t words)
        : m_session(session), m_in(words), m_out(words),
          m_pump(session, clock, static_cast<unsigned>(words), 0) {
        session.TakeReplies(host::SuitingReplies(words));
    }

    /// False when the exchange failed.
    bool Send(host::BlockRecord& record) {
        const bool sent = m_pump.Send(m_in.data(), m_out.data(), record) == host::Sent::kReplied;
        m_connected = sent || m_session.Reconnect(record.result);
        return sent && !record.Failed();
    }
    /// False when the server was lost for good.
    bool Connected() const { return m_connected; }

private:
    host::Session& m_session;
    std::vector<std::uint32_t> m_in;
    std::vector<std::uint32_t> m_out;
    host::BlockPump m_pump;
    bool m_connected = true;
};

double Milliseconds(std::size_t frames, const Shape& shape) {
    return static_cast<double>(frames) / shape.sampleRate * 1000;
}

std::size_t DividedUp(std::size_t value, std::size_t by) {
    return (value + by - 1) / by;
}

} // namespace

std::size_t LeastLatency(std::size_t blockFrames, std::size_t periodFrames, bool steady) {
    return blockFrames + periodFrames - (steady ? std::gcd(blockFrames, periodFrames) : 1);
}

std::size_t RoundedLatency(std::size_t frames, std::size_t blockFrames, std::size_t periodFrames,
                           bool steady) {
    const std::size_t least = LeastLatency(blockFrames, periodFrames, steady);
    return frames <= least ? least : least + DividedUp(frames - least, blockFrames) * blockFrames;
}

std::size_t SuitingBlock(std::size_t periodFrames, std::size_t channels) {
    const std::size_t most = host::kWholeReplyWords / channels;
    const std::size_t parts = DividedUp(periodFrames, most);
    for (std::size_t count = parts; count <= 2 * parts; ++count)
        if (periodFrames % count == 0) return periodFrames / count;
    return most;
}

std::size_t SuitingBlock(host::Session& session, host::RunClock& clock, const Shape& shape) {
    constexpr int kExchanges = 9;
    constexpr double kShare = 0.7; // of a block's time that its exchange may take
    const std::size_t block = SuitingBlock(shape.periodFrames, shape.channels);
    Probe probe(session, clock, block * shape.channels);
    host::RunStatistics statistics;
    for (int i = 0; i < kExchanges && probe.Connected(); ++i) {
        host::BlockRecord record;
        if (probe.Send(record)) statistics.Add(record);
    }
    const std::size_t periods = host::kWholeReplyWords / shape.channels / shape.periodFrames;
    const double needed = statistics.Times().p50 / kShare / Milliseconds(shape.periodFrames, shape);
    if (block < shape.periodFrames || needed <= 1) return block;
    return std::min(periods, static_cast<std::size_t>(std::ceil(needed))) * shape.periodFrames;
}

Measured MeasureServer(host::Session& session, host::RunClock& clock, const Shape& shape, double seconds) {
    Probe probe(session, clock, shape.blockFrames * shape.channels);
    // Blocks go out in bursts, as the periods that complete them come.
    const std::size_t perBurst = DividedUp(shape.periodFrames, shape.blockFrames);
    const std::size_t frames = std::max(shape.periodFrames, shape.blockFrames);
    host::Pacing pacing(clock, static_cast<double>(frames) / shape.sampleRate);
    host::RunStatistics statistics;
    for (const double end = clock.Now() + seconds;
         clock.Now() < end && probe.Connected() && !session.Stopped();) {
        host::BlockRecord whole;
        whole.dueAt = pacing.AwaitNext();
        bool good = true;
        for (std::size_t i = 0; i < perBurst && good; ++i) {
            host::BlockRecord record;
            good = probe.Send(record);
            whole.milliseconds += record.milliseconds;
        }
        whole.sinceDue = (clock.Now() - whole.dueAt) * 1000;
        if (good) statistics.Add(whole);
    }
    Measured measured;
    measured.times = statistics.TimesSinceDue();
    measured.periods = statistics.Blocks();
    measured.keepsUp = statistics.Times().p50 < Milliseconds(frames, shape);
    return measured;
}

std::size_t SafeLatency(const Shape& shape, const host::BlockTimes& measured, bool steady) {
    constexpr double kLeastMargin = 1; // ms
    constexpr double kMost = 1000;     // ms
    const double needed = std::min(measured.p999 + std::max(kLeastMargin, measured.p999 / 2), kMost);
    const double missing =
        needed - Milliseconds(shape.periodFrames, shape); // a period comes with the least latency
    const double blocks = std::ceil(missing / Milliseconds(shape.blockFrames, shape));
    return LeastLatency(shape.blockFrames, shape.periodFrames, steady) +
           static_cast<std::size_t>(std::max(0.0, blocks)) * shape.blockFrames;
}

} // namespace vrx::live
