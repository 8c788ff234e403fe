#include "tools/capture/DifferencePicture.h"

#include "tools/program/Numbers.h"
#include "tools/report/HtmlPage.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace vrx::tool {

namespace {

constexpr double kFloor = -200;  // decibels of full scale: below the last bit of an integer
constexpr double kCeiling = 100; // for stray huge floats

/// Bars from the bottom of the chart up to each column.
void Bars(Chart& chart, const char* style, const Envelope& values, double bottom) {
    std::vector<Envelope::Column> columns = values.Columns();
    for (Envelope::Column& column : columns) column.low = bottom;
    chart.Steps(style, columns, static_cast<double>(values.PerColumn()), static_cast<double>(values.Count()));
}

/// The place of exchange 1 reaches from 0 to 1.
void ExchangeTicks(Chart& chart, const Scale& places) {
    for (const double at : places.Ticks(6))
        if (at >= 1 && std::floor(at) >= at) chart.XTick(at - 0.5, Brief(at));
}

/// Whether the worst of a column is this or worse.
bool Reaches(double worst, DifferencePicture::Kind kind) {
    return worst >= static_cast<double>(kind);
}

Scale Places(const Envelope& values) {
    return {0, static_cast<double>(values.Count())};
}

} // namespace

void DifferencePicture::Add(Kind kind, const SignalDistance& signals) {
    m_kind.Add(static_cast<double>(kind));
    const auto samples = static_cast<double>(signals.samples);
    m_percent.Add(samples > 0 ? 100 * static_cast<double>(signals.differing) / samples : 0);
    if (!(signals.largest > 0)) return m_decibels.Add(kFloor);
    const double decibels = std::clamp(20 * std::log10(signals.largest), kFloor, kCeiling);
    m_decibels.Add(decibels);
    m_smallest = std::min(m_smallest, decibels);
    if (signals.largest <= m_largest) return;
    m_largest = signals.largest;
    m_farthest = m_decibels.Count();
}

std::string DifferencePicture::Figures(std::optional<double> toleranceDb) const {
    return m_kind.Count() == 0 ? "" : Distances(toleranceDb) + Shares();
}

std::string DifferencePicture::Distances(std::optional<double> toleranceDb) const {
    constexpr double kSteps = 20; // the scale ends at whole ones
    const double smallest = std::min({m_smallest, toleranceDb.value_or(0), -kSteps});
    const Scale level{kSteps * std::floor(std::max(smallest - 1, kFloor) / kSteps),
                      std::max(0.0, kSteps * std::ceil(m_decibels.Highest() / kSteps))};
    Chart chart("Largest distance of two samples", Places(m_decibels), level, 200);
    ExchangeTicks(chart, Places(m_decibels));
    for (const double at : level.Ticks(5)) chart.YTick(at, Brief(at) + " dB");
    Bars(chart, "blue", m_decibels, level.low);
    if (toleranceDb && *toleranceDb >= level.low && *toleranceDb <= level.high)
        chart.Across("deadline", *toleranceDb, "tolerance " + Brief(*toleranceDb) + " dB");
    const auto& kinds = m_kind.Columns();
    const auto width = static_cast<double>(m_kind.PerColumn());
    for (std::size_t i = 0; i < kinds.size(); ++i)
        if (Reaches(kinds[i].high, kOtherwise))
            chart.Dot(Reaches(kinds[i].high, kMissing) ? "failed" : "retried",
                      (static_cast<double>(i) + 0.5) * width, level.low);

    std::string legend = "decibels of full scale, in the replies to each exchange;" + Key("blue", "distance");
    if (Reaches(m_kind.Highest(), kOtherwise))
        legend += Key("retried", "something else differs") + Key("failed", "only one side has it");
    return Figure("Largest distance of two samples", legend, chart);
}

std::string DifferencePicture::Shares() const {
    const Scale percent{0, 100};
    Chart chart("Samples that differ", Places(m_percent), percent, 110);
    ExchangeTicks(chart, Places(m_percent));
    for (const double at : {0.0, 50.0, 100.0}) chart.YTick(at, Brief(at) + " %");
    Bars(chart, "teal", m_percent, 0);
    return Figure("Samples that differ", "percent of those of each exchange, beyond the tolerance", chart);
}

} // namespace vrx::tool
