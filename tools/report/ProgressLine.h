#pragma once

#include <cstdint>

namespace vrx::tool {

/// The line on a terminal that shows how far a run has come; silent elsewhere.
class ProgressLine {
public:
    /// frames   in the whole run; 0: not known
    ProgressLine(std::uint64_t frames, int sampleRate);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// `done` frames within `seconds`; draws at most ten times a second.
    void Show(std::uint64_t done, double seconds);

private:
    bool m_shown;
    std::uint64_t m_frames;
    int m_sampleRate;
    double m_next = 0;
};

} // namespace vrx::tool
