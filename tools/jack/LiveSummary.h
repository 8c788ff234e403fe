#pragma once

#include "host/ServerSettings.h"
#include "live/Bridge.h"
#include "live/TimeHistogram.h"
#include "tools/report/HtmlReport.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace vrx::tool {

/// What a live run's summary tells, as text, as JSON and on its page.
struct LiveSummary {
    std::string name; ///< of the client
    const host::ServerSettings& server;
    live::Shape shape;
    live::Bridge::Counts counts;
    std::uint64_t xruns = 0;
    const live::TimeHistogram& roundTrips;
    const live::TimeHistogram& process; ///< the callback
    double seconds = 0;                 ///< that the run took
    std::string ended;                  ///< why it ended early; "": it did not
    std::string version;                ///< of the program

    /// Several short lines.
    std::string Text() const;
    nlohmann::json Json() const;
};

ReportTexts LivePageTexts(const LiveSummary& run);

} // namespace vrx::tool
