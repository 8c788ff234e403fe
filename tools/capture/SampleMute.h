#pragma once

#include "tools/capture/Exchange.h"
#include "tools/capture/FrameTracker.h"

#include <span>
#include <string>

namespace vrx::tool {

/// Replaces the samples in what one side of a connection sends by zeroes, and leaves texts and packet headers alone.
class SampleMute {
public:
    explicit SampleMute(Side from) : m_from(from) {}

    /// `bytes` are the next ones, in one piece as they came.
    void Apply(std::span<char> bytes);

private:
    std::uint64_t SamplesBegin() const;
    std::uint64_t SamplesEnd() const;

    Side m_from;
    FrameTracker m_frame;
    std::string m_header; // as far as the samples' place is said there
};

} // namespace vrx::tool
