#pragma once

#include "host/RunStatistics.h"
#include "host/Samples.h"
#include "tools/report/Envelope.h"
#include "tools/report/HtmlPage.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace vrx::tool {

/// Draws one run as a page. The page and the memory for it do not grow with the length of the run.
class HtmlReport {
public:
    struct Stream {
        host::SampleFormat words = host::SampleFormat::kF32;
        unsigned channels = 1;
        int sampleRate = 1;
        std::size_t blockFrames = 1;
        bool paced = false;
    };

    explicit HtmlReport(const Stream& stream) : m_stream(stream) {}

    /// Adds a block and `frames` frames of each side that count. A sample that is no number is drawn as 0.
    void Add(const host::BlockRecord& block, const std::uint32_t* in, const std::uint32_t* out,
             std::size_t frames);

    /// Adds a block of which only the lowest and highest samples of each side are known. A run is added either block
    /// by block in this way or in the other.
    void Add(const host::BlockRecord& block, const Envelope::Column& in, const Envelope::Column& out);

    std::string Page(const ReportTexts& texts, const host::RunStatistics& statistics) const;

private:
    void AddTimes(const host::BlockRecord& block);
    void AddWaveform(Envelope& waveform, const std::uint32_t* words, std::size_t frames) const;
    double BlockSeconds() const;
    double Seconds() const;
    std::string RoundTrips(const host::RunStatistics& statistics) const;
    std::string Cycles() const;
    std::string Waveform(const char* title, const Envelope& waveform) const;

    Stream m_stream;
    std::size_t m_placeFrames = 1; // that a place of the waveforms stands for
    Envelope m_roundTrip;
    Envelope m_sinceDue;
    Envelope m_trouble; // 1: sent again, 2: failed
    Envelope m_averageCycles;
    Envelope m_pumpCycles;
    Envelope m_in;
    Envelope m_out;
};

} // namespace vrx::tool
