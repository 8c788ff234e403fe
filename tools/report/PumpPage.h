#pragma once

#include "host/Session.h"
#include "tools/report/HtmlReport.h"
#include "tools/report/RunSummary.h"

#include <cstdint>
#include <optional>
#include <string>

namespace vrx::tool {

/// What the page about a pumped file says beside the summary.
struct PumpPage {
    const RunSummary& run;
    std::string input;
    std::optional<host::PinValues> pins; ///< empty: the server did not say
    host::SampleFormat words = host::SampleFormat::kF32;
    std::uint64_t tail = 0;
    unsigned retries = 0;
    std::string pluginFile;
    std::string version; ///< of the program
    std::string ended;   ///< why the run ended early; "": it did not
};

ReportTexts PumpPageTexts(const PumpPage& page);

} // namespace vrx::tool
