#pragma once

#include "host/RunStatistics.h"
#include "host/Session.h"

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace vrx::tool {

/// What the summary of a run tells, as text and as JSON.
struct RunSummary {
    std::string input;
    std::string output; ///< "": nothing was written
    const host::ServerSettings& server;
    const host::RunStatistics& statistics;
    std::size_t blockFrames = 0;
    std::uint64_t frames = 0; ///< in the output
    unsigned channels = 0;
    int sampleRate = 0;
    double seconds = 0; ///< that the run took
    bool paced = false;
    host::Replies replies = host::Replies::kSingle;

    /// Several short lines, none wider than 100 columns.
    std::string Text() const;
    nlohmann::json Json() const;
};

/// {"p50":..., "p95":..., "p99":..., "p99.9":..., "max":...}
nlohmann::json TimesAsJson(const host::BlockTimes& times);

/// One line with its line feed. Texts are bytes (file names): what is no UTF-8 in them is replaced.
std::string JsonLine(const nlohmann::json& value);

} // namespace vrx::tool
