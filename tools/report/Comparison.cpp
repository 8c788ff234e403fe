#include "tools/report/Comparison.h"

#include "tools/program/Numbers.h"

#include <cmath>
#include <vector>

namespace vrx::tool {

namespace {

constexpr double kWorthMention = 0.05;

std::string Whole(double value) {
    return Fixed(value, 0);
}

std::string Padded(const std::string& text, std::size_t width) {
    return std::string(text.size() < width ? width - text.size() : 0, ' ') + text;
}

/// "same", "-40 %", "12 times"; "+3" from 0.
std::string Change(double a, double b) {
    if (!(a < b) && !(b < a)) return "same";
    if (!(a > 0)) return "+" + Brief(b);
    constexpr double kManyTimes = 10;
    if (b / a >= kManyTimes) return Brief(b / a) + " times";
    const double percent = (b / a - 1) * 100;
    return (percent > 0 ? "+" : "") + (std::abs(percent) < 10 ? Fixed(percent, 1) : Whole(percent)) + " %";
}

double Share(double part, double whole) {
    return whole > 0 ? part / whole : 0;
}

std::string PartOf(double part, double whole) {
    return Whole(part) + " of " + Whole(whole);
}

} // namespace

RunFigures ReadFigures(const nlohmann::json& summary) {
    RunFigures run;
    run.paced = summary.at("paced").get<bool>();
    run.finished = !summary.at("output").is_null();
    run.blocks = summary.at("blocks").get<double>();
    run.blockFrames = summary.at("block_frames").get<double>();
    run.failed = summary.at("failed").get<double>();
    run.retried = summary.at("retried").get<double>();
    if (run.paced) run.missed = summary.at("missed").get<double>();
    const nlohmann::json& times = summary.at(run.paced ? "milliseconds_since_due" : "milliseconds");
    run.p50 = times.at("p50").get<double>();
    run.p95 = times.at("p95").get<double>();
    run.p99 = times.at("p99").get<double>();
    run.p999 = times.at("p99.9").get<double>();
    run.max = times.at("max").get<double>();
    run.realtimeFactor = summary.at("realtime_factor").get<double>();
    run.averageCycles = summary.at("cycles").at("average").get<double>();
    run.what = summary.at("input").get<std::string>() + " through " +
               summary.at("server").get<std::string>() + ":" + std::to_string(summary.at("port").get<int>()) +
               ", blocks of " + Whole(run.blockFrames) + " frames" + (run.paced ? ", paced" : "");
    return run;
}

Verdict Compare(const RunFigures& a, const RunFigures& b) {
    const auto better = [](bool first) { return first ? 'A' : 'B'; };
    if (a.finished != b.finished) return {better(a.finished), "the other run did not reach its end"};

    if ((a.blocks > 0) != (b.blocks > 0)) return {better(a.blocks > 0), "the other run sent no block"};
    if (!(a.blocks > 0)) return {0, "neither run sent a block"};

    struct Count {
        bool counts;
        const char* what;
        double a;
        double b;
    };
    const Count counts[] = {{true, "blocks failed", a.failed, b.failed},
                            {a.paced && b.paced, "deadlines were missed", a.missed, b.missed},
                            {true, "blocks were sent again", a.retried, b.retried}};
    for (const Count& count : counts) {
        const double ofA = Share(count.a, a.blocks);
        const double ofB = Share(count.b, b.blocks);
        if (!count.counts || (!(ofA < ofB) && !(ofB < ofA))) continue;
        const std::string inA = PartOf(count.a, a.blocks);
        const std::string inB = PartOf(count.b, b.blocks);
        return {better(ofA < ofB),
                (ofA < ofB ? inA : inB) + " " + count.what + " instead of " + (ofA < ofB ? inB : inA)};
    }

    if (a.paced != b.paced)
        return {0, "one run was paced and the other was not: their times mean different things"};
    const double less = std::min(a.p99, b.p99);
    const double more = std::max(a.p99, b.p99);
    if (!(less < more * (1 - kWorthMention))) return {0, "their p99 differ by less than 5 %"};
    return {better(a.p99 < b.p99), "p99 is " + Brief(less) + " ms instead of " + Brief(more) + " ms, " +
                                       Whole((1 - less / more) * 100) + " % less"};
}

std::string ComparisonTable(const RunFigures& a, const RunFigures& b) {
    struct Row {
        std::string name;
        double a;
        double b;
        bool whole;
    };
    std::vector<Row> rows = {{"blocks", a.blocks, b.blocks, true},
                             {"failed", a.failed, b.failed, true},
                             {"sent again", a.retried, b.retried, true}};
    if (a.paced && b.paced) rows.push_back({"missed deadlines", a.missed, b.missed, true});
    rows.insert(rows.end(), {{"p50 ms", a.p50, b.p50, false},
                             {"p95 ms", a.p95, b.p95, false},
                             {"p99 ms", a.p99, b.p99, false},
                             {"p99.9 ms", a.p999, b.p999, false},
                             {"max ms", a.max, b.max, false},
                             {"times real time", a.realtimeFactor, b.realtimeFactor, false},
                             {"average cycles", a.averageCycles, b.averageCycles, true}});
    std::string table = Padded("A", 30) + Padded("B", 12) + Padded("B against A", 14) + "\n";
    for (const Row& row : rows) {
        const auto shown = [&](double value) { return row.whole ? Whole(value) : Brief(value); };
        std::string name = row.name;
        name.resize(18, ' ');
        table += name + Padded(shown(row.a), 12) + Padded(shown(row.b), 12) +
                 Padded(Change(row.a, row.b), 14) + "\n";
    }
    return table;
}

} // namespace vrx::tool
