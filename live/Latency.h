#pragma once

#include "host/Pacing.h"
#include "host/RunStatistics.h"
#include "host/Session.h"
#include "live/Shape.h"

#include <cstddef>

namespace vrx::live {

/// The least latency with which the reply to a block has a whole period to come back.
///
/// steady   every call of the real-time side brings `periodFrames`; else any number up to that
std::size_t LeastLatency(std::size_t blockFrames, std::size_t periodFrames, bool steady = true);

/// `frames`, or the next larger latency that is the least one and whole blocks beyond it.
std::size_t RoundedLatency(std::size_t frames, std::size_t blockFrames, std::size_t periodFrames,
                           bool steady = true);

/// The frames of a block that suit a period: as long as the period when a whole reply can hold that, else the largest
/// part of it that a whole reply can hold, a divisor of the period where there is one not much smaller.
std::size_t SuitingBlock(std::size_t periodFrames, std::size_t channels);

/// As `SuitingBlock`, but several periods long where the server takes longer to answer than that block lasts: it gets
/// one block at a time, so a block must last longer than its exchange. Asks with a few blocks of silence; `session` is
/// connected.
std::size_t SuitingBlock(host::Session& session, host::RunClock& clock, const Shape& shape);

/// How long the server takes for a period's worth of blocks.
struct Measured {
    host::BlockTimes times; ///< milliseconds from when a period's blocks are due to the last of their replies
    std::uint64_t periods = 0; ///< measured; the ones with failed exchanges do not count
    bool keepsUp = true;       ///< the server's time is shorter than that of the sound, on the average
};

/// Sends silence as a bridge of this shape would, for so many seconds. `session` is connected; after a failed exchange it
/// is connected again, and where that fails the measurement ends early.
Measured MeasureServer(host::Session& session, host::RunClock& clock, const Shape& shape, double seconds);

/// The latency with which replies that take as long as measured come in time, with a margin: half as much again, at least
/// a millisecond. At most a second beyond the least latency. `shape`'s own latency does not matter.
std::size_t SafeLatency(const Shape& shape, const host::BlockTimes& measured, bool steady = true);

} // namespace vrx::live
