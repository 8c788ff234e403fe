#include "tools/audio/FilePump.h"

#include "tools/program/Errors.h"
#include "tools/program/Interrupt.h"

#include <algorithm>
#include <vector>

namespace vrx {

namespace {

constexpr std::size_t kReceiveBuffer = 1048576;
constexpr std::size_t kReplyHeader = 28;

void StopIfInterrupted() {
    if (Interrupted()) throw Failure{kInterrupted, "interrupted"};
}

} // namespace

BlockPump::BlockPump(Session& session, unsigned words, unsigned retries, double period)
    : m_session(session), m_words(words), m_retries(retries), m_pacing(m_clock, period) {}

BlockRecord BlockPump::Send(const std::uint32_t* in, std::uint32_t* out) {
    BlockRecord block;
    block.number = ++m_blocks;
    block.dueAt = m_pacing.AwaitNext();
    StopIfInterrupted();
    for (;;) {
        block.sentAt = Elapsed();
        block.result = m_session.PumpAudio(in, out, m_words);
        const double repliedAt = Elapsed();
        block.milliseconds = (repliedAt - block.sentAt) * 1000;
        block.sinceDue = (repliedAt - block.dueAt) * 1000;
        if (!block.Failed() || !m_session.TransportFault()) break;
        Recover(block.result, block);
    }
    if (block.Failed()) std::fill_n(out, m_words, 0U);
    block.averageCycles = m_session.AverageCycles();
    block.pumpCycles = m_session.PumpCycles();
    return block;
}

void BlockPump::Recover(int result, BlockRecord& block) {
    do {
        StopIfInterrupted();
        if (block.retries == m_retries)
            throw LostBlock{{kRunFailed, "block " + std::to_string(block.number) + " failed at " +
                                             m_session.Server().Place() + " after " +
                                             std::to_string(m_retries) + " retries (" +
                                             m_session.Describe(result) +
                                             "): check the server, or allow more --retries"},
                            result};
        PauseUnlessInterrupted(RetryPause(++block.retries));
        StopIfInterrupted();
    } while (!m_session.Reconnect(result));
}

int RetryPause(unsigned retry) {
    return retry > 4 ? 5000 : 500 << (retry - 1);
}

std::size_t MostFramesPerBlock(std::size_t channels) {
    return (kReceiveBuffer - kReplyHeader) / 4 / channels;
}

std::size_t PreferredBlock(const PinValues& pins, const ServerSettings& server, std::size_t channels) {
    const std::size_t asked = pins.in[0];
    return asked > 0 && asked <= MostFramesPerBlock(channels) ? asked : FramesPerSegment(server, channels);
}

void PumpFile(BlockPump& pump, AudioReader& reader, AudioWriter& writer, const FileRun& run,
              const BlockDone& done) {
    const std::size_t words = run.blockFrames * reader.Channels();
    std::vector<std::uint32_t> in(words);
    std::vector<std::uint32_t> out(words);
    std::uint64_t tail = run.tail;
    for (bool ended = false;;) {
        const std::size_t fromFile = ended ? 0 : reader.Read(in.data(), run.blockFrames, run.words);
        std::fill(in.begin() + static_cast<std::ptrdiff_t>(fromFile * reader.Channels()), in.end(), 0U);
        ended = fromFile < run.blockFrames;
        const auto fromTail =
            static_cast<std::size_t>(std::min<std::uint64_t>(tail, run.blockFrames - fromFile));
        tail -= fromTail;
        const std::size_t frames = fromFile + fromTail;
        if (frames == 0) return;

        const BlockRecord block = pump.Send(in.data(), out.data());
        writer.Write(out.data(), frames, run.words);
        done({block, in.data(), out.data(), frames});
        StopIfInterrupted();
    }
}

} // namespace vrx
