#include "tools/report/PumpPage.h"

#include "tools/program/Numbers.h"

namespace vrx::tool {

namespace {

/// About a run that reached its end.
std::string VerdictOn(const RunSummary& run) {
    const host::RunStatistics& statistics = run.statistics;
    if (statistics.Blocks() == 0) return "There was nothing to send.";
    const std::string blocks = Counted(statistics.Blocks(), "block");
    if (statistics.Failed() > 0)
        return std::to_string(statistics.Failed()) + " of " + blocks + " failed: silence stands for them.";
    const std::string all = (statistics.Blocks() == 1 ? "The only block" : "All " + blocks) + " came back";
    if (!run.paced) return all + ".";
    if (statistics.Missed() == 0) return all + " in time.";
    return all + ", " + std::to_string(statistics.Missed()) +
           " of them after their deadline (the longest run of these: " +
           std::to_string(statistics.LongestMissedRun()) + ").";
}

bool IsGood(const PumpPage& page) {
    const host::RunStatistics& statistics = page.run.statistics;
    return page.ended.empty() && statistics.Failed() == 0 && (!page.run.paced || statistics.Missed() == 0);
}

std::vector<ReportFact> Figures(const RunSummary& run) {
    const host::RunStatistics& statistics = run.statistics;
    const host::BlockTimes times = statistics.Times();
    return {
        {"Blocks", std::to_string(statistics.Blocks())},
        {"Failed", std::to_string(statistics.Failed())},
        {"Sent again", std::to_string(statistics.Retried())},
        {run.paced ? "Missed deadlines" : "Over the deadline", std::to_string(statistics.Missed())},
        {"Round trip p50", BriefMilliseconds(times.p50)},
        {"p99", BriefMilliseconds(times.p99)},
        {"Longest", BriefMilliseconds(times.max)},
        {"Times real time", Brief(host::TimesRealTime(run.frames, run.sampleRate, run.seconds))},
    };
}

std::vector<ReportFact> Facts(const PumpPage& page) {
    const RunSummary& run = page.run;
    const host::RunStatistics& statistics = run.statistics;
    const auto pin = [&](const unsigned(host::PinValues::*values)[3]) {
        return page.pins ? host::PinText((*page.pins).*values) : std::string("the server did not say");
    };
    return {
        {"Input", page.input},
        {"Output", run.output.empty() ? "nothing was written" : run.output},
        {"Server", run.server.Place()},
        {"Objects", run.server.input + " to " + run.server.output + ", layout " + run.server.layout},
        {"Input pin", pin(&host::PinValues::in)},
        {"Output pin", pin(&host::PinValues::out)},
        {"Block", std::to_string(run.blockFrames) + " frames, " + BriefMilliseconds(statistics.Deadline())},
        {"Stream",
         Counted(run.channels, "channel") + " at " + std::to_string(run.sampleRate) + " Hz, " +
             (page.words == host::SampleFormat::kF32 ? "32-bit float words" : "32-bit integer words")},
        {"Replies", run.replies == host::Replies::kWhole ? "collected until they are whole"
                                                         : "what one receive delivers"},
        {"Pace", run.paced ? "each block when it was due in real time" : "as fast as the replies came"},
        {"Longest run of missed deadlines", std::to_string(statistics.LongestMissedRun())},
        {"Frames written",
         std::to_string(run.frames) + " (" + std::to_string(page.tail) + " asked for as tail)"},
        {"Time taken", Brief(run.seconds) + " s"},
        {"Retries", std::to_string(statistics.Retried()) + " blocks were sent again, each at most " +
                        std::to_string(page.retries) + " times"},
        {"Versions", "vrx " + page.version + ", plug-in " + page.pluginFile},
    };
}

} // namespace

ReportTexts PumpPageTexts(const PumpPage& page) {
    ReportTexts texts;
    texts.title = "vrx pump: " + page.input + " through " + page.run.server.Place();
    texts.verdict = page.ended.empty() ? VerdictOn(page.run) : "The run ended early: " + page.ended;
    texts.good = IsGood(page);
    texts.figures = Figures(page.run);
    texts.facts = Facts(page);
    return texts;
}

} // namespace vrx::tool
