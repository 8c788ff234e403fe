#include "tools/commands/Differences.h"

#include "tools/program/SameFile.h"
#include "tools/program/StandardOutput.h"

namespace vrx::tool {

DifferenceReport::DifferenceReport(const DifferenceOptions& options,
                                   std::initializer_list<std::string> recordings)
    : m_options(options), m_summary(options.tolerance) {
    if (options.report.empty()) return;
    for (const std::string& recording : recordings)
        RefuseSameFiles({{"the recording", recording}, {"--report", options.report}});
    m_page.emplace(options.report, options.force);
}

int DifferenceReport::Tell(const char* command, const std::string& a, const std::string& b,
                           std::initializer_list<const Recording*> recordings) {
    Print(m_options.json ? m_summary.Json().dump() + "\n" : m_summary.Table());
    if (m_page) {
        m_page->Write(m_summary.Page(a, b));
        m_page->Finish();
    }
    for (const Recording* recording : recordings)
        for (const std::string& note : recording->Notes()) PrintError(command, note);
    if (m_summary.Same()) return kDone;
    throw Failure{kRunFailed, m_summary.FirstInWords(a, b)};
}

} // namespace vrx::tool
