#include "tools/report/RunSummary.h"

#include "tools/program/Errors.h"
#include "tools/program/Numbers.h"

namespace vrx::tool {

namespace {

constexpr std::size_t kColumns = 100;

/// A name without control characters and cut in front to at most `width` bytes: its end tells more. Never cuts a UTF-8
/// character.
std::string Shortened(const std::string& name, std::size_t width) {
    constexpr std::string_view kCut = "...";
    std::string text = WithoutControls(name);
    if (text.size() <= width) return text;
    std::size_t from = text.size() - (width - kCut.size());
    while (from < text.size() && (static_cast<unsigned char>(text[from]) & 0xC0) == 0x80) ++from;
    return std::string(kCut) + text.substr(from);
}

std::string ExactMilliseconds(double value) {
    return Fixed(value, 3) + " ms";
}

} // namespace

std::string RunSummary::Text() const {
    const host::BlockTimes times = statistics.Times();
    const host::BlockRecord& last = statistics.Last();
    constexpr std::size_t kNameWidth = (kColumns - 4) / 2;
    const std::string missed = std::to_string(statistics.Missed()) + " missed (longest run " +
                               std::to_string(statistics.LongestMissedRun()) + "), ";
    const std::string sizes = Counted(statistics.Blocks(), "block") + " of " + Counted(blockFrames, "frame") +
                              " (" + Counted(channels, "channel") + " at " + std::to_string(sampleRate) +
                              " Hz) through ";
    return Shortened(input, kNameWidth) + " -> " +
           (output.empty() ? "nothing written" : Shortened(output, kNameWidth)) + "\n  " + sizes +
           Shortened(server.Place(), kColumns - 2 - sizes.size()) + "\n  " + Counted(frames, "frame") + ", " +
           std::to_string(statistics.Failed()) + " failed, " + std::to_string(statistics.Retried()) +
           " retried, " + (paced ? missed : "") + Fixed(host::TimesRealTime(frames, sampleRate, seconds), 1) +
           " times real time\n  round trip p50 " + ExactMilliseconds(times.p50) + ", p95 " +
           ExactMilliseconds(times.p95) + ", p99 " + ExactMilliseconds(times.p99) + ", max " +
           ExactMilliseconds(times.max) + "\n  cycles " + Fixed(double{last.averageCycles}, 0) +
           " average, " + Fixed(double{last.pumpCycles}, 0) + " pump\n";
}

nlohmann::json RunSummary::Json() const {
    const host::BlockRecord& last = statistics.Last();
    nlohmann::json object = {
        {"input", input},
        {"output", output.empty() ? nlohmann::json() : nlohmann::json(output)},
        {"server", server.host},
        {"port", server.port},
        {"blocks", statistics.Blocks()},
        {"block_frames", blockFrames},
        {"frames", frames},
        {"channels", channels},
        {"sample_rate", sampleRate},
        {"failed", statistics.Failed()},
        {"retried", statistics.Retried()},
        {"realtime_factor", host::TimesRealTime(frames, sampleRate, seconds)},
        {"milliseconds", TimesAsJson(statistics.Times())},
        {"cycles", {{"average", last.averageCycles}, {"pump", last.pumpCycles}}},
        {"paced", paced},
        {"replies", replies == host::Replies::kWhole ? "whole" : "single"},
    };
    if (paced) {
        object["deadline_milliseconds"] = statistics.Deadline();
        object["missed"] = statistics.Missed();
        object["longest_missed_run"] = statistics.LongestMissedRun();
        object["milliseconds_since_due"] = TimesAsJson(statistics.TimesSinceDue());
    }
    return object;
}

nlohmann::json TimesAsJson(const host::BlockTimes& times) {
    return {{"p50", times.p50},
            {"p95", times.p95},
            {"p99", times.p99},
            {"p99.9", times.p999},
            {"max", times.max}};
}

std::string JsonLine(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

} // namespace vrx::tool
