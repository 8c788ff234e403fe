#include "tools/report/ProgressLine.h"

#include "host/RunStatistics.h"

#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace vrx::tool {

ProgressLine::ProgressLine(std::uint64_t frames, int sampleRate)
    : m_shown(::isatty(STDERR_FILENO) == 1), m_frames(frames), m_sampleRate(sampleRate) {}

ProgressLine::~ProgressLine() {
    if (m_shown) (void)std::fputs("\r\033[K", stderr);
}

void ProgressLine::Show(std::uint64_t done, double seconds) {
    constexpr double kInterval = 0.1;
    if (!m_shown || seconds < m_next) return;
    m_next = seconds + kInterval;
    const double speed = host::TimesRealTime(done, m_sampleRate, seconds);
    if (m_frames < done || m_frames == 0 || done == 0) { // the header did not say how long the input is
        (void)std::fprintf(stderr, "\r%.1f s, %.1f times real time\033[K", seconds, speed);
        return;
    }
    const double part = static_cast<double>(done) / static_cast<double>(m_frames);
    const auto left = std::lround(seconds / part - seconds);
    (void)std::fprintf(stderr, "\r%3.0f %%, %.1f times real time, %ld:%02ld left\033[K", 100 * part, speed,
                       left / 60, left % 60);
}

} // namespace vrx::tool
