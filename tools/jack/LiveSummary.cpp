#include "tools/jack/LiveSummary.h"

#include "live/Latency.h"
#include "tools/program/Numbers.h"

namespace vrx::tool {

namespace {

std::string PeriodText(const live::Shape& shape) {
    return std::to_string(shape.periodFrames) + " frames";
}

std::string LatencyText(const live::Shape& shape) {
    return std::to_string(shape.latencyFrames) + " frames (" +
           Fixed(static_cast<double>(shape.latencyFrames) / shape.sampleRate * 1000, 1) + " ms)";
}

/// What would have helped; "" when nothing was late, or only what failed.
std::string Advice(const LiveSummary& run) {
    if (run.counts.late == run.counts.lost || run.roundTrips.Count() == 0) return {};
    host::BlockTimes times;
    times.p999 = run.roundTrips.Percentile(99.9);
    const std::size_t safe = live::SafeLatency(run.shape, times);
    if (safe > run.shape.latencyFrames) return "try --latency " + std::to_string(safe);
    return {};
}

std::string Verdict(const LiveSummary& run) {
    if (!run.ended.empty()) return "The run ended early: " + run.ended + ".";
    if (run.counts.blocks == 0) return "No block came through.";
    if (run.counts.late == 0) return "All " + Counted(run.counts.blocks, "block") + " came back in time.";
    const std::string advice = Advice(run);
    return std::to_string(run.counts.late) + " of " + Counted(run.counts.blocks, "block") + " came too late" +
           (advice.empty() ? "." : ": " + advice + ".");
}

} // namespace

std::string LiveSummary::Text() const {
    const std::string advice = Advice(*this);
    return name + ": " + Counted(counts.blocks, "block") + " of " + std::to_string(shape.blockFrames) +
           " frames through " + server.Place() + " in " + Fixed(seconds, 1) + " s\n  late " +
           std::to_string(counts.late) + ", of them lost " + std::to_string(counts.lost) + "; reconnects " +
           std::to_string(counts.reconnects) + ", xruns " + std::to_string(xruns) +
           (advice.empty() ? "" : "; " + advice) + "\n  round trip p50 " + Brief(roundTrips.Percentile(50)) +
           " ms, p99 " + Brief(roundTrips.Percentile(99)) + " ms, max " + Brief(roundTrips.Longest()) +
           " ms\n  callback p50 " + Brief(process.Percentile(50)) + " ms, p99 " +
           Brief(process.Percentile(99)) + " ms, max " + Brief(process.Longest()) + " ms; latency " +
           LatencyText(shape) + "\n";
}

nlohmann::json LiveSummary::Json() const {
    return {{"sample_rate", static_cast<std::uint64_t>(shape.sampleRate)},
            {"period_frames", shape.periodFrames},
            {"block_frames", shape.blockFrames},
            {"latency_frames", shape.latencyFrames},
            {"channels", shape.channels},
            {"frames", counts.frames},
            {"blocks", counts.blocks},
            {"late", counts.late},
            {"lost", counts.lost},
            {"reconnects", counts.reconnects},
            {"xruns", xruns},
            {"round_trip",
             {{"p50", roundTrips.Percentile(50)},
              {"p99", roundTrips.Percentile(99)},
              {"p99_9", roundTrips.Percentile(99.9)},
              {"max", roundTrips.Longest()}}},
            {"process",
             {{"p50", process.Percentile(50)}, {"p99", process.Percentile(99)}, {"max", process.Longest()}}}};
}

ReportTexts LivePageTexts(const LiveSummary& run) {
    const live::Shape& shape = run.shape;
    ReportTexts texts;
    texts.title = "vrx live: " + run.name + " through " + run.server.Place();
    texts.verdict = Verdict(run);
    texts.good = run.ended.empty() && run.counts.late == 0 && run.xruns == 0;
    texts.figures = {
        {"Blocks", std::to_string(run.counts.blocks)},
        {"Late", std::to_string(run.counts.late)},
        {"Lost", std::to_string(run.counts.lost)},
        {"Reconnects", std::to_string(run.counts.reconnects)},
        {"Xruns", std::to_string(run.xruns)},
        {"Round trip p99", BriefMilliseconds(run.roundTrips.Percentile(99))},
        {"Callback p99", BriefMilliseconds(run.process.Percentile(99))},
        {"Latency", LatencyText(shape)},
    };
    texts.facts = {
        {"Client", run.name},
        {"Server", run.server.Place()},
        {"Objects", run.server.input + " to " + run.server.output + ", layout " + run.server.layout},
        {"Stream", Counted(shape.channels, "channel") + " at " + Fixed(shape.sampleRate, 0) + " Hz"},
        {"Period", PeriodText(shape)},
        {"Block", std::to_string(shape.blockFrames) + " frames"},
        {"In place of late blocks", shape.late == live::Late::kDry ? "the dry input" : "silence"},
        {"Longest round trip", BriefMilliseconds(run.roundTrips.Longest())},
        {"Longest callback", BriefMilliseconds(run.process.Longest())},
        {"Time taken", Brief(run.seconds) + " s"},
        {"Versions", "vrx " + run.version},
    };
    return texts;
}

} // namespace vrx::tool
