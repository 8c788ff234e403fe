#pragma once

#include "tools/capture/DifferenceSummary.h"
#include "tools/capture/Recording.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/OutputFile.h"

#include <initializer_list>
#include <optional>
#include <string>

namespace vrx::tool {

/// How two sides are compared and what is told of it.
struct DifferenceOptions {
    std::optional<double> tolerance;
    bool json = false;
    std::string report; // "": none
    bool force = false;
};

template <class Options>
void AddDifferenceOptions(Subcommand<Options>& command, DifferenceOptions& options) {
    command.Add("--tolerance", options.tolerance, "DB", "Samples this close are the same, below full scale")
        ->check(InRange(-1000.0, 1000.0));
    command.AddJson(options.json);
    command.Add("--report", options.report, "FILE", "Draw where and how much they differ: an HTML page");
    command.AddFlag("--force", options.force, "Overwrite the page");
}

/// A comparison of A and B under way, and what is told of it at the end.
class DifferenceReport {
public:
    /// Creates the page where one is asked for; throws Failure when that cannot be.
    ///
    /// recordings   that are read: the page may not take the place of one
    DifferenceReport(const DifferenceOptions& options, std::initializer_list<std::string> recordings);

    DifferenceSummary& Summary() { return m_summary; }

    /// Prints the summary, writes the page, and notes what readers of the recordings should know in the name of
    /// `command`. Returns kDone when both are the same, else throws Failure with the first difference.
    int Tell(const char* command, const std::string& a, const std::string& b,
             std::initializer_list<const Recording*> recordings);

private:
    const DifferenceOptions& m_options;
    DifferenceSummary m_summary;
    std::optional<OutputFile> m_page;
};

} // namespace vrx::tool
