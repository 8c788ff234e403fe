#pragma once

#include "host/Pacing.h"
#include "host/RunStatistics.h"
#include "host/Session.h"

#include <cstdint>

namespace vrx::host {

/// How sending a block ended.
enum class Sent {
    kReplied, ///< the server answered, be it with a negative status
    kLost,    ///< it did not get through, and no retries are left
    kStopped, ///< the session's stop check said so before it got through
};

/// Sends blocks of one size through a session, each again after a transport fault.
class BlockPump {
public:
    /// clock     seconds from the start of the run; must live longer
    /// words     in every block, both ways
    /// retries   how often one block may be sent again, each time after a longer pause and a new connect
    /// period    seconds between the moments at which two blocks are due; 0: as fast as the replies come
    BlockPump(Session& session, RunClock& clock, unsigned words, unsigned retries, double period = 0);

    /// Waits until the block is due, sends it and waits for its reply; `block` says how that went. A block that
    /// the server answers with a negative status is a failed block: it is not sent again, and `out` becomes
    /// silence. After anything but kReplied `out` is undefined, and `block.result` is the talker's last
    /// result.
    Sent Send(const std::uint32_t* in, std::uint32_t* out, BlockRecord& block);

    /// Seconds of the clock.
    double Elapsed() const { return m_clock.Now(); }

private:
    void SendOnce(const std::uint32_t* in, std::uint32_t* out, BlockRecord& block);
    /// Pauses and reconnects until that works; kReplied when the block may be sent again.
    Sent Recover(BlockRecord& block);

    Session& m_session;
    RunClock& m_clock;
    unsigned m_words;
    unsigned m_retries;
    std::uint64_t m_blocks = 0;
    Pacing m_pacing;
};

/// Milliseconds to wait before the given retry of a block, counted from 1: 500, twice as long each time, at
/// most 5000.
int RetryPause(unsigned retry);

} // namespace vrx::host
