#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace vrx::host {

/// The time of one run, in seconds from its start.
class RunClock {
public:
    virtual ~RunClock() = default;
    virtual double Now() const = 0;
    /// Returns at that moment, at once when it is over, and early when the run is to stop.
    virtual void SleepUntil(double seconds) = 0;
};

/// The machine's steady clock, started when this object is made.
class SteadyRunClock : public RunClock {
public:
    /// Asks the kernel for exact wake-ups of the calling thread.
    ///
    /// stopped   looked at every 20 ms of a sleep, which ends when it says true; null: never
    explicit SteadyRunClock(std::function<bool()> stopped = nullptr);
    double Now() const override;
    void SleepUntil(double seconds) override;

private:
    using Clock = std::chrono::steady_clock;
    std::function<bool()> m_stopped;
    Clock::time_point m_start;
};

/// Says when the blocks of a stream are due: the first at once, each further one a period after the one
/// before, whatever happened meanwhile. A stream that fell behind is sent without pauses until it has caught
/// up.
class Pacing {
public:
    /// period   seconds that a block lasts; 0: every block is due as soon as it is asked for
    Pacing(RunClock& clock, double period) : m_clock(clock), m_period(period) {}

    /// Waits until the next block is due and returns that moment.
    double AwaitNext();

private:
    RunClock& m_clock;
    double m_period;
    double m_first = 0;
    std::uint64_t m_blocks = 0;
};

} // namespace vrx::host
