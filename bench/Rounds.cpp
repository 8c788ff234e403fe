#include "bench/Rounds.h"

#include <algorithm>
#include <ctime>

namespace bench {
namespace {

constexpr double kBatchSeconds = 0.003;
constexpr int kRounds = 15;

/// How many runs make up a batch of the wanted length.
int64_t RunsPerBatch(const Contestant& contestant) {
    for (int64_t runs = 1;; runs *= 2) {
        if (runs >= contestant.mostRuns) return contestant.mostRuns;
        const double seconds = contestant.time(runs);
        if (seconds >= kBatchSeconds) return runs;
    }
}

void RunRow(benchmark::State& state, const Row& row) {
    row.before();
    for (const auto& [peer, sameAnswer] : row.checks) {
        if (!sameAnswer()) return state.SkipWithError(("another answer than " + peer).c_str());
    }
    const size_t count = row.contestants.size();
    std::vector<int64_t> runs;
    for (const Contestant& contestant : row.contestants) runs.push_back(RunsPerBatch(contestant));

    std::vector<std::vector<double>> seconds(count);
    for (auto _ : state) {
        for (size_t i = 0; i < count; ++i)
            seconds[i].push_back(row.contestants[i].time(runs[i]) / static_cast<double>(runs[i]));
    }
    for (size_t i = 1; i < count; ++i) {
        const Contestant& contestant = row.contestants[i];
        state.counters[contestant.counter] = MedianRatio(seconds[0], seconds[i]);
        if (contestant.limit != kNoLimit) state.counters["limit " + contestant.counter] = contestant.limit;
    }
}

} // namespace

double Now() {
    timespec now;
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double MedianRatio(const std::vector<double>& ours, const std::vector<double>& theirs) {
    std::vector<double> ratios;
    for (size_t round = 0; round < ours.size(); ++round) ratios.push_back(ours[round] / theirs[round]);
    const auto middle = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2);
    std::nth_element(ratios.begin(), middle, ratios.end());
    return *middle;
}

void Register(Row row) {
    const std::string name = row.name;
    benchmark::RegisterBenchmark(name.c_str(),
                                 [row = std::move(row)](benchmark::State& state) { RunRow(state, row); })
        ->Iterations(kRounds)
        ->Unit(benchmark::kMillisecond);
}

} // namespace bench

int main(int argc, char** argv) {
    bench::AddRows();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
