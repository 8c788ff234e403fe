#include "tools/report/HtmlReport.h"

#include "tools/program/Numbers.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace vrx::tool {

namespace {

/// A place in the audio: "0.25 s", "1:05".
std::string Moment(double seconds, double range) {
    if (range < 60) return Brief(seconds) + " s";
    const auto whole = static_cast<long>(std::lround(seconds));
    const std::string rest = std::to_string(whole % 60);
    return std::to_string(whole / 60) + (rest.size() < 2 ? ":0" : ":") + rest;
}

void TimeTicks(Chart& chart, const Scale& time) {
    const double range = time.high;
    if (range < 60) {
        for (const double at : time.Ticks(5)) chart.XTick(at, Moment(at, range));
        return;
    }
    constexpr int kMost = 6;
    double step = 10;
    for (const double next : {15, 20, 30, 60, 120, 300, 600, 900, 1800, 3600})
        if (range / step > kMost) step = next;
    while (range / step > kMost) step *= 2;
    for (int i = 0; i * step <= range; ++i) chart.XTick(i * step, Moment(i * step, range));
}

/// How many blocks took how long; both sides logarithmic, so that single stragglers are seen.
std::string Distribution(const host::RunStatistics& statistics) {
    const std::vector<double> sorted = statistics.SortedMilliseconds();
    if (sorted.empty()) return "";
    const double shortest = std::max(sorted.front(), 1e-6);
    const Scale time = LogarithmicScale(shortest, std::max(sorted.back(), shortest));
    constexpr std::size_t kBins = 80;
    std::vector<double> counts(kBins, 0);
    for (const double milliseconds : sorted)
        ++counts[std::min(kBins - 1, static_cast<std::size_t>(time.Part(milliseconds) * kBins))];
    const Scale blocks = LogarithmicScale(0.8, *std::max_element(counts.begin(), counts.end()));

    constexpr int kMarks = 5;
    Chart chart("Distribution of the round trips", time, blocks, 200, kMarks);
    for (const double at : time.Ticks(5)) chart.XTick(at, BriefMilliseconds(at));
    for (const double at : blocks.Ticks(4))
        if (at >= 1) chart.YTick(at, Brief(at));
    const double ratio = time.high / time.low;
    for (std::size_t bin = 0; bin < kBins; ++bin) {
        if (counts[bin] == 0) continue;
        const auto edge = [&](std::size_t i) {
            return time.low * std::pow(ratio, static_cast<double>(i) / static_cast<double>(kBins));
        };
        chart.Bar("blue", edge(bin), edge(bin + 1), counts[bin]);
    }
    const host::BlockTimes times = statistics.Times();
    const std::pair<const char*, double> marks[kMarks] = {{"p50 ", times.p50},
                                                          {"p95 ", times.p95},
                                                          {"p99 ", times.p99},
                                                          {"p99.9 ", times.p999},
                                                          {"max ", times.max}};
    for (int row = 0; row < kMarks; ++row)
        chart.Upright("quantile", marks[row].second, marks[row].first + BriefMilliseconds(marks[row].second),
                      row);
    return Figure(
        "Distribution of the round trips",
        "blocks by their round trip, both on logarithmic scales; p95: 95 of 100 blocks took no longer",
        chart);
}

} // namespace

void HtmlReport::Add(const host::BlockRecord& block, const std::uint32_t* in, const std::uint32_t* out,
                     std::size_t frames) {
    AddTimes(block);
    AddWaveform(m_in, in, frames);
    AddWaveform(m_out, out, frames);
}

void HtmlReport::Add(const host::BlockRecord& block, const Envelope::Column& in,
                     const Envelope::Column& out) {
    AddTimes(block);
    m_placeFrames = m_stream.blockFrames;
    m_in.Add(in.low, in.high);
    m_out.Add(out.low, out.high);
}

void HtmlReport::AddTimes(const host::BlockRecord& block) {
    m_roundTrip.Add(block.milliseconds);
    m_sinceDue.Add(block.sinceDue);
    m_trouble.Add(block.Failed() ? 2 : block.retries > 0 ? 1 : 0);
    m_averageCycles.Add(double{block.averageCycles});
    m_pumpCycles.Add(double{block.pumpCycles});
}

void HtmlReport::AddWaveform(Envelope& waveform, const std::uint32_t* words, std::size_t frames) const {
    constexpr double kLoudest = 1e6; // a stray huge float must not end up as an endless number on the page
    for (std::size_t frame = 0; frame < frames; ++frame) {
        double low = kLoudest;
        double high = -kLoudest;
        for (unsigned channel = 0; channel < m_stream.channels; ++channel) {
            double sample = host::SampleFromWord(*words++, m_stream.words);
            if (std::isnan(sample)) sample = 0;
            low = std::clamp(sample, -kLoudest, low);
            high = std::clamp(sample, high, kLoudest);
        }
        waveform.Add(low, high);
    }
}

double HtmlReport::BlockSeconds() const {
    return static_cast<double>(m_stream.blockFrames) / m_stream.sampleRate;
}

double HtmlReport::Seconds() const {
    return static_cast<double>(m_roundTrip.Count()) * BlockSeconds();
}

std::string HtmlReport::RoundTrips(const host::RunStatistics& statistics) const {
    const Scale time{0, Seconds()};
    double lowest = m_roundTrip.Lowest();
    double highest = std::max(m_roundTrip.Highest(), statistics.Deadline());
    if (m_stream.paced) highest = std::max(highest, m_sinceDue.Highest());
    lowest = std::max(std::min(lowest, statistics.Deadline()), 1e-4);
    Chart chart("Round trip per block over time", time, LogarithmicScale(lowest, highest), 240);
    TimeTicks(chart, time);
    for (const double at : LogarithmicScale(lowest, highest).Ticks(4)) chart.YTick(at, BriefMilliseconds(at));

    const double width = static_cast<double>(m_roundTrip.PerColumn()) * BlockSeconds();
    if (m_stream.paced) chart.Steps("orange dim", m_sinceDue.Columns(), width, Seconds());
    chart.Steps("blue", m_roundTrip.Columns(), width, Seconds());
    chart.Across("deadline", statistics.Deadline(), "deadline " + BriefMilliseconds(statistics.Deadline()));
    const std::vector<Envelope::Column>& troubles = m_trouble.Columns();
    for (std::size_t i = 0; i < troubles.size(); ++i)
        if (troubles[i].high > 0)
            chart.Dot(troubles[i].high > 1 ? "failed" : "retried", (static_cast<double>(i) + 0.5) * width,
                      m_roundTrip.Columns()[i].high);

    std::string legend = "milliseconds on a logarithmic scale, at each block's place in the audio;" +
                         Key("blue", "round trip");
    if (m_stream.paced) legend += Key("orange", "since the block was due");
    if (m_trouble.Highest() > 0) legend += Key("retried", "sent again") + Key("failed", "failed");
    return Figure("Round trip per block", legend, chart);
}

std::string HtmlReport::Cycles() const {
    const Scale time{0, Seconds()};
    const double lowest = std::max(1.0, std::min(m_averageCycles.Lowest(), m_pumpCycles.Lowest()));
    const double highest = std::max({m_averageCycles.Highest(), m_pumpCycles.Highest(), lowest});
    const Scale cycles = LogarithmicScale(lowest, highest);
    Chart chart("Server cycles over time", time, cycles, 160);
    TimeTicks(chart, time);
    for (const double at : cycles.Ticks(4)) chart.YTick(at, Brief(at));
    const double width = static_cast<double>(m_pumpCycles.PerColumn()) * BlockSeconds();
    chart.Steps("teal dim", m_pumpCycles.Columns(), width, Seconds());
    chart.Steps("blue", m_averageCycles.Columns(), width, Seconds());
    return Figure("Server cycles",
                  "as the server counts them, on a logarithmic scale;" + Key("teal", "per block") +
                      Key("blue", "average"),
                  chart);
}

std::string HtmlReport::Waveform(const char* title, const Envelope& waveform) const {
    const Scale time{0, Seconds()};
    const double peak = std::max(-waveform.Lowest(), waveform.Highest());
    const double reach = std::max(1.0, peak);
    const Scale level{-reach, reach};
    Chart chart(title, time, level, 110);
    TimeTicks(chart, time);
    chart.YTick(0, "");
    chart.YTick(reach, Brief(reach));
    chart.YTick(-reach, Brief(-reach));
    const double place = static_cast<double>(m_placeFrames) / m_stream.sampleRate;
    const double width = static_cast<double>(waveform.PerColumn()) * place;
    chart.Steps("blue", waveform.Columns(), width, static_cast<double>(waveform.Count()) * place);
    const std::string peakText = peak > 0 ? Fixed(20 * std::log10(peak), 1) + " dB of full scale" : "silence";
    return Figure(title, "all channels; peak: " + peakText, chart);
}

std::string HtmlReport::Page(const ReportTexts& texts, const host::RunStatistics& statistics) const {
    if (statistics.Blocks() == 0) return HtmlPage(texts, "");
    return HtmlPage(texts, RoundTrips(statistics) + Distribution(statistics) + Cycles() +
                               Waveform("Input", m_in) + Waveform("Output", m_out));
}

} // namespace vrx::tool
