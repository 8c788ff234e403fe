#pragma once

#include <chrono>
#include <cstdint>

namespace vrx::tool {

/// Nanoseconds since 1970 that never go back: those of the steady clock, from when this was made.
class WallClock {
public:
    std::int64_t Now() const { return At(Nanoseconds(Steady::now())); }

    /// The same for a time of the steady clock, in nanoseconds.
    std::int64_t At(std::int64_t steady) const { return m_base + steady; }

private:
    using Steady = std::chrono::steady_clock;

    template <class Time>
    static std::int64_t Nanoseconds(Time time) {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
    }

    std::int64_t m_base = Nanoseconds(std::chrono::system_clock::now()) - Nanoseconds(Steady::now());
};

} // namespace vrx::tool
