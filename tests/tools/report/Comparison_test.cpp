#include "tools/report/Comparison.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx::tool;

RunFigures Good() {
    RunFigures run;
    run.finished = true;
    run.blocks = 100;
    run.p99 = 1;
    return run;
}

template <class Change>
RunFigures With(Change change) {
    RunFigures run = Good();
    change(run);
    return run;
}

TEST(Compare, WeighsInItsOrder) {
    const RunFigures good = Good();
    const auto unfinished = With([](RunFigures& run) { run.finished = false; });
    const auto failed = With([](RunFigures& run) { run.failed = 2; });
    const auto failedOfMore = With([](RunFigures& run) {
        run.failed = 3;
        run.blocks = 1000;
    });
    const auto retried = With([](RunFigures& run) { run.retried = 1; });
    const auto slow = With([](RunFigures& run) { run.p99 = 2; });
    const auto barelySlower = With([](RunFigures& run) { run.p99 = 1.05; });
    const auto paced = With([](RunFigures& run) { run.paced = true; });
    const auto late = With([](RunFigures& run) {
        run.paced = true;
        run.missed = 7;
        run.p99 = 0.1;
    });
    const auto empty = With([](RunFigures& run) { run.blocks = run.p99 = 0; });
    const auto timeless = With([](RunFigures& run) { run.p99 = 0; });
    struct Case {
        const char* name;
        const RunFigures& a;
        const RunFigures& b;
        char better;
        const char* why;
    };
    const Case cases[] = {
        {"two empty runs", empty, empty, 0, "neither run sent a block"},
        {"an empty one", empty, good, 'B', "the other run sent no block"},
        {"no time at all", timeless, timeless, 0, "their p99 differ by less than 5 %"},
        {"the same", good, good, 0, "their p99 differ by less than 5 %"},
        {"one did not end", unfinished, failed, 'B', "the other run did not reach its end"},
        {"failed blocks", failed, retried, 'B', "0 of 100 blocks failed instead of 2 of 100"},
        {"their share counts", failed, failedOfMore, 'B', "3 of 1000 blocks failed instead of 2 of 100"},
        {"missed deadlines before p99", paced, late, 'A',
         "0 of 100 deadlines were missed instead of 7 of 100"},
        {"blocks sent again before p99", slow, retried, 'A',
         "0 of 100 blocks were sent again instead of 1 of 100"},
        {"p99", slow, good, 'B', "p99 is 1 ms instead of 2 ms, 50 % less"},
        {"p99 the other way round", good, slow, 'A', "p99 is 1 ms instead of 2 ms, 50 % less"},
        {"too little to matter", good, barelySlower, 0, "their p99 differ by less than 5 %"},
        {"different kinds", good, paced, 0,
         "one run was paced and the other was not: their times mean different things"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Verdict verdict = Compare(c.a, c.b);
        EXPECT_EQ(verdict.better, c.better);
        EXPECT_EQ(verdict.why, c.why);
    }
}

TEST(ComparisonTable, ShowsWhatBChanged) {
    RunFigures a = Good();
    a.failed = 0;
    a.p50 = 0.5;
    a.p95 = 0.05;
    a.realtimeFactor = 200;
    RunFigures b = a;
    b.failed = 3;
    b.p50 = 0.25;
    b.p95 = 6;
    b.realtimeFactor = 203;
    const std::string table = ComparisonTable(a, b);
    for (const char* line : {"                             A           B   B against A\n",
                             "blocks                     100         100          same\n",
                             "failed                       0           3            +3\n",
                             "p50 ms                     0.5        0.25         -50 %\n",
                             "p95 ms                    0.05           6     120 times\n",
                             "times real time            200         203        +1.5 %\n"})
        EXPECT_NE(table.find(line), std::string::npos) << line << table;
    EXPECT_EQ(table.find("missed"), std::string::npos) << "not paced";
    EXPECT_LT(std::count(table.begin(), table.end(), '\n'), 18) << "fits a screen";
}

TEST(ReadFigures, CountsAPacedRunFromWhenItsBlocksWereDue) {
    nlohmann::json summary = {
        {"input", "in.wav"},
        {"output", "out.wav"},
        {"server", "studio"},
        {"port", 7000},
        {"blocks", 5},
        {"block_frames", 480},
        {"failed", 1},
        {"retried", 2},
        {"realtime_factor", 1.5},
        {"paced", false},
        {"cycles", {{"average", 16}, {"pump", 32}}},
        {"milliseconds", {{"p50", 1}, {"p95", 2}, {"p99", 3}, {"p99.9", 4}, {"max", 5}}}};
    RunFigures run = ReadFigures(summary);
    EXPECT_EQ(run.what, "in.wav through studio:7000, blocks of 480 frames");
    EXPECT_TRUE(run.finished);
    EXPECT_EQ(run.p999, 4);
    EXPECT_EQ(run.averageCycles, 16);

    summary["output"] = nullptr;
    summary["paced"] = true;
    EXPECT_THROW(ReadFigures(summary), nlohmann::json::exception) << "no count of missed deadlines";
    summary["missed"] = 4;
    summary["milliseconds_since_due"] = {{"p50", 10}, {"p95", 20}, {"p99", 30}, {"p99.9", 40}, {"max", 50}};
    run = ReadFigures(summary);
    EXPECT_EQ(run.what, "in.wav through studio:7000, blocks of 480 frames, paced");
    EXPECT_FALSE(run.finished);
    EXPECT_EQ(run.missed, 4);
    EXPECT_EQ(run.max, 50);
}

} // namespace
