#pragma once

#include "tools/report/Svg.h"

#include <string>
#include <vector>

namespace vrx::tool {

/// A name and its value, as the page shows them. Any text: it is escaped where it is written.
struct ReportFact {
    std::string name;
    std::string value;
};

/// What the page says in words.
struct ReportTexts {
    std::string title;
    std::string verdict;
    bool good = false;               ///< the verdict's colour
    std::vector<ReportFact> figures; ///< the few that matter most, shown large
    std::vector<ReportFact> facts;
    std::string about = "The run"; ///< what the facts are about
};

/// A coloured mark and what it stands for, for a legend. Both are markup.
std::string Key(const char* style, const char* text);

/// A chart under its title and legend, which are markup.
std::string Figure(const char* title, const std::string& legend, const Chart& chart);

/// A single HTML page that needs nothing else: inline SVG, no scripts, no fonts or pictures from outside; light or
/// dark as the reader's system asks. `figures` are what Figure gave, one after the other.
std::string HtmlPage(const ReportTexts& texts, const std::string& figures);

} // namespace vrx::tool
