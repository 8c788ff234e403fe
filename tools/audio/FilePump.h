#pragma once

#include "host/Pacing.h"
#include "host/RunStatistics.h"
#include "host/Session.h"
#include "tools/audio/AudioFile.h"
#include "tools/program/Errors.h"

#include <cstdint>
#include <functional>

namespace vrx {

/// Thrown when a block did not get through and no retries are left.
struct LostBlock : Failure {
    int result; ///< the talker's
};

/// Sends blocks of one size through a session, each again after a transport fault.
class BlockPump {
public:
    /// words     in every block, both ways
    /// retries   how often one block may be sent again, each time after a longer pause and a new connect
    /// period    seconds between the moments at which two blocks are due; 0: as fast as the replies come
    BlockPump(Session& session, unsigned words, unsigned retries, double period = 0);

    /// Waits until the block is due, sends it and waits for its reply. A block that the server answers with a
    /// negative status is a failed block: it is not sent again, and `out` becomes silence. Throws LostBlock
    /// when the retries are used up, and Failure when an interrupt came in a pause.
    BlockRecord Send(const std::uint32_t* in, std::uint32_t* out);

    /// Seconds since this object was made.
    double Elapsed() const { return m_clock.Now(); }

private:
    void Recover(int result, BlockRecord& block);

    Session& m_session;
    unsigned m_words;
    unsigned m_retries;
    std::uint64_t m_blocks = 0;
    SteadyRunClock m_clock;
    Pacing m_pacing;
};

/// Milliseconds to wait before the given retry of a block, counted from 1: 500, twice as long each time, at
/// most 5000.
int RetryPause(unsigned retry);

/// The most frames whose reply fits the talker's receive buffer.
std::size_t MostFramesPerBlock(std::size_t channels);

/// The frames of a block that the input pin asks for; where it says nothing usable, as many as let request
/// and reply fit one segment.
std::size_t PreferredBlock(const PinValues& pins, const ServerSettings& server, std::size_t channels);

struct FileRun {
    SampleFormat words = SampleFormat::kF32;
    std::size_t blockFrames = 0;
    std::uint64_t tail = 0; ///< frames of silence to send after the end of the input
};

/// A block after its exchange, with the words of both sides.
struct PumpedBlock {
    const BlockRecord& record;
    const std::uint32_t* in;
    const std::uint32_t* out;
    std::size_t frames; ///< how many of them belong to the output
};

using BlockDone = std::function<void(const PumpedBlock& block)>;

/// Sends the whole input and the tail, the last block filled up with silence, and writes as many frames as
/// the two have; tells `done` after each block. Throws Failure; kInterrupted when an interrupt came, the block under way completed.
void PumpFile(BlockPump& pump, AudioReader& reader, AudioWriter& writer, const FileRun& run,
              const BlockDone& done);

} // namespace vrx
