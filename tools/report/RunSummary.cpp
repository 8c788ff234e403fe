#include "tools/report/RunSummary.h"

#include "tools/program/Numbers.h"

namespace vrx::tool {

std::string RunSummary::Line() const {
    const host::BlockTimes times = statistics.Times();
    const host::BlockRecord& last = statistics.Last();
    const std::string missed = paced ? std::to_string(statistics.Missed()) + " missed (longest run " +
                                           std::to_string(statistics.LongestMissedRun()) + "), "
                                     : "";
    return input + ": " + std::to_string(statistics.Blocks()) + " blocks of " + std::to_string(blockFrames) +
           " frames through " + server.Place() + ", " + std::to_string(frames) + " frames, " +
           std::to_string(statistics.Failed()) + " failed, " + std::to_string(statistics.Retried()) +
           " retried, " + missed + Fixed(host::TimesRealTime(frames, sampleRate, seconds), 1) +
           " times real time, p50 " + Fixed(times.p50, 3) + " ms, p95 " + Fixed(times.p95, 3) + " ms, p99 " +
           Fixed(times.p99, 3) + " ms, max " + Fixed(times.max, 3) + " ms, cycles " +
           Fixed(double{last.averageCycles}, 0) + " average " + Fixed(double{last.pumpCycles}, 0) +
           " pump -> " + (output.empty() ? "nothing written" : output) + "\n";
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
