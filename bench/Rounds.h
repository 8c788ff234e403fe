#pragma once

#include <benchmark/benchmark.h>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// Comparisons of one operation with its peers on the same input, measured in interleaved rounds.
///
/// Each iteration of the Google Benchmark that stands for a row is one round: it times a batch of ours, a
/// batch of the first peer, a batch of the second and so on, in processor time. The row's counters are
/// medians over the rounds of the ratio, taken within each round, of ours to the contestant:
///
/// | counter | meaning |
/// |---|---|
/// | `vs NAME` | ratio to a peer |
/// | `floor NAME` | ratio to the least work that the operation can do |
/// | `limit KEY` | the value that the counter KEY is to stay within |
///
/// Every run makes its result anew and frees it, ours and the peers' alike.
namespace bench {

/// How a program of this folder fills its part of the table. Called once, before anything runs.
void AddRows();

/// A peer, whose result must equal ours before anything is timed.
template <class Run>
struct Peer {
    Peer(std::string peerName, Run peerRun, double highestRatio = 1.0)
        : name(std::move(peerName)), run(std::move(peerRun)), limit(highestRatio) {}

    std::string name;
    Run run;
    double limit;
};

/// A peer that is shown beside, without a limit of its own.
inline constexpr double kNoLimit = 0.0;

/// What no implementation can do without, such as copying the result; its result is not looked at.
template <class Run>
struct Floor {
    Floor(std::string floorName, Run floorRun) : name(std::move(floorName)), run(std::move(floorRun)) {}

    std::string name;
    Run run;
};

/// Something to do before the row is run, such as choosing a time zone.
template <class Run>
struct Before {
    explicit Before(Run beforeRun) : run(std::move(beforeRun)) {}

    Run run;
};

/// An operation in place, timed without the making of what it works on. `bytes`: size of one such object; so
/// many are made ahead as stay in the processor's caches.
template <class Make, class Run>
struct InPlace {
    InPlace(size_t objectBytes, Make makeObject, Run runOnObject)
        : bytes(objectBytes), make(std::move(makeObject)), run(std::move(runOnObject)) {}

    /// What a single check runs.
    auto operator()() const {
        auto object = make();
        run(object);
        return object;
    }

    size_t bytes;
    Make make;
    Run run;
};

/// One contestant of a row.
struct Contestant {
    std::string counter; // "" for ours
    double limit;
    std::function<double(int64_t)> time; // processor seconds of so many runs
    int64_t mostRuns;                    // in one batch
};

struct Row {
    std::string name;
    std::vector<Contestant> contestants; // ours first
    std::vector<std::pair<std::string, std::function<bool()>>> checks;
    std::function<void()> before = [] {};
};

void Register(Row row);

/// Processor time of this thread, in seconds.
double Now();

constexpr int64_t kUnlimited = INT64_MAX;
constexpr size_t kCacheBytes = 1 << 20;

template <class Run>
Contestant MakeContestant(std::string counter, double limit, Run run) {
    auto time = [run = std::move(run)](int64_t runs) mutable {
        const double start = Now();
        for (int64_t i = 0; i < runs; ++i) {
            auto result = run();
            benchmark::DoNotOptimize(result);
            benchmark::ClobberMemory();
        }
        return Now() - start;
    };
    return {std::move(counter), limit, std::move(time), kUnlimited};
}

template <class Make, class Run>
Contestant MakeContestant(std::string counter, double limit, InPlace<Make, Run> inPlace) {
    auto time = [inPlace](int64_t runs) {
        std::vector<decltype(inPlace.make())> objects;
        for (int64_t i = 0; i < runs; ++i) objects.push_back(inPlace.make());
        const double start = Now();
        for (auto& object : objects) {
            inPlace.run(object);
            benchmark::DoNotOptimize(object);
            benchmark::ClobberMemory();
        }
        return Now() - start;
    };
    const size_t runs = kCacheBytes / inPlace.bytes;
    return {std::move(counter), limit, std::move(time), static_cast<int64_t>(runs > 0 ? runs : 1)};
}

template <class Ours, class Run>
void Add(Row& row, const Ours& ours, Peer<Run> peer) {
    row.checks.emplace_back(peer.name, [ours = ours, run = peer.run]() mutable { return ours() == run(); });
    row.contestants.push_back(MakeContestant("vs " + peer.name, peer.limit, std::move(peer.run)));
}

template <class Ours, class Run>
void Add(Row& row, const Ours&, Floor<Run> floor) {
    row.contestants.push_back(MakeContestant("floor " + floor.name, kNoLimit, std::move(floor.run)));
}

template <class Ours, class Run>
void Add(Row& row, const Ours&, Before<Run> before) {
    row.before = std::move(before.run);
}

/// Registers a row: an operation, its input in words (without a slash), ours, and the others.
template <class Ours, class... Others>
void Compare(const std::string& operation, const std::string& input, Ours ours, Others... others) {
    Row row;
    row.name = operation + "/" + input;
    row.contestants.push_back(MakeContestant("", kNoLimit, ours));
    (Add(row, ours, std::move(others)), ...);
    Register(std::move(row));
}

/// Registers a row that shows how an operation grows: `make(n)` gives a run on an input of n times the least
/// size. Four times the input may take 4.6 times as long.
template <class Make>
void Grow(const std::string& operation, const std::string& input, Make make) {
    Row row;
    row.name = operation + "/" + input;
    row.contestants.push_back(MakeContestant("", kNoLimit, make(4)));
    row.contestants.push_back(MakeContestant("vs a quarter of the input", 4.6, make(1)));
    Register(std::move(row));
}

/// The median of the ratios that two contestants have to each other within each round.
double MedianRatio(const std::vector<double>& ours, const std::vector<double>& theirs);

} // namespace bench
