#pragma once

#include <chrono>

namespace vrx::fuzz {

/// Lets slow cases have a first second and then a tenth of the time, so that the others keep their pace.
class Allowance {
public:
    /// Whether a case that takes about `seconds` may run now.
    bool Take(double seconds) {
        const std::chrono::duration<double> elapsed = Clock::now() - m_start;
        if (m_taken > 1 + elapsed.count() / 10) return false;
        m_taken += seconds;
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;
    const Clock::time_point m_start = Clock::now();
    double m_taken = 0;
};

} // namespace vrx::fuzz
