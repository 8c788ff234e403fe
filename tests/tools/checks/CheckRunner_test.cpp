#include "tools/checks/CheckRunner.h"

#include "tools/program/Errors.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sched.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace {

using namespace vrx::tool;

/// A check of level 1 without needs and with a generous time-out.
Check Row(const char* name, void (*run)(Trial&), const char* needs = "", int seconds = 20) {
    return {name, CheckTarget::kPlugin, 1, "It proves something.", needs, seconds, run};
}

std::vector<CheckResult> RunAll(const std::vector<Check>& checks, const RunOptions& options = {},
                                std::uint64_t seed = 1) {
    std::vector<const Check*> pointers;
    for (const Check& check : checks) pointers.push_back(&check);
    CheckTarget target;
    target.seed = seed;
    return RunChecks(pointers, target, options);
}

CheckResult RunOne(void (*run)(Trial&), int seconds = 20) {
    return RunAll({Row("one", run, "", seconds)}).at(0);
}

void Passes(Trial&) {}

void Fails(Trial&) {
    throw Mismatch{{"this", "that", "woe"}};
}

void Hangs(Trial& trial) {
    trial.Doing("in PumpAudio");
    for (;;) ::pause();
}

struct Ending {
    const char* name;
    void (*run)(Trial&);
    CheckState state;
    const char* expected;
    const char* got;
};

TEST(RunChecks, SaysHowEachCheckEnded) {
    const Ending kEndings[] = {
        {"passes", Passes, CheckState::kPassed, "", ""},
        {"fails", Fails, CheckState::kFailed, "this", "that"},
        {"cannot be tried", [](Trial&) { throw Untried{"there is no such thing"}; }, CheckState::kSkipped, "",
         "there is no such thing"},
        {"warns",
         [](Trial& trial) {
             trial.Warn({"quick", "slow", "a pause"});
             trial.Warn({"quiet", "loud", "a noise"});
         },
         CheckState::kWarned, "quick", "slow"},
        {"warns and fails",
         [](Trial& trial) {
             trial.Warn({"quick", "slow", "a pause"});
             Fails(trial);
         },
         CheckState::kFailed, "this", "that"},
        {"throws", [](Trial&) { throw std::runtime_error("not today"); }, CheckState::kFailed, "no exception",
         "an exception: not today"},
        {"throws something else", [](Trial&) { throw 42; }, CheckState::kFailed, "no exception",
         "an exception of an unknown type"},
        {"lacks something itself",
         [](Trial&) {
             throw Failure{vrx::tool::kRunFailed, "cannot listen on 127.0.0.1"};
         },
         CheckState::kSkipped, "", "cannot listen on 127.0.0.1"},
        {"aborts",
         [](Trial& trial) {
             trial.Doing("in TalkerFactory");
             std::abort();
         },
         CheckState::kCrashed, "the process lives on", "ended by SIGABRT: in TalkerFactory"},
        {"is ended by SIGPIPE", [](Trial&) { (void)::raise(SIGPIPE); }, CheckState::kCrashed,
         "the process lives on", "ended by SIGPIPE: at the start"},
        {"exits", [](Trial&) { std::_Exit(0); }, CheckState::kCrashed, "the process lives on",
         "the process was ended with exit code 0: at the start"},
    };
    for (const Ending& row : kEndings) {
        const CheckResult result = RunOne(row.run);
        EXPECT_EQ(StateName(result.state), std::string(StateName(row.state))) << row.name;
        EXPECT_EQ(result.what.expected, row.expected) << row.name;
        EXPECT_EQ(result.what.got, row.got) << row.name;
    }
}

TEST(RunChecks, EndsWhatHangsWithItsWholeGroup) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const CheckResult result = RunOne(
        [](Trial& trial) {
            if (::fork() == 0) Hangs(trial); // holds the pipe's end, too
            Hangs(trial);
        },
        1);
    EXPECT_EQ(result.state, CheckState::kTimedOut);
    EXPECT_EQ(result.what.got, "still busy: in PumpAudio");
    EXPECT_GE(result.seconds, 1);
    ::close(ends[1]);
    char byte;
    EXPECT_EQ(::read(ends[0], &byte, 1), 0) << "somebody still holds the other end";
    ::close(ends[0]);
}

/// Runs for so long, waiting included, on the first processor that this process may use.
void SpinOnFirstProcessor(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    cpu_set_t all;
    ASSERT_EQ(::sched_getaffinity(0, sizeof all, &all), 0);
    int first = 0;
    while (!CPU_ISSET(first, &all)) ++first;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    ASSERT_EQ(::sched_setaffinity(0, sizeof one, &one), 0);
    while (std::chrono::steady_clock::now() < end) {
    }
}

TEST(RunChecks, WaitsLongerForWhatWaitsForAProcessor) {
    const CheckResult result = RunOne(
        [](Trial&) {
            for (int i = 0; i < 2; ++i) {
                if (::fork() != 0) continue;
                SpinOnFirstProcessor(std::chrono::seconds(60)); // ended with the check
                ::_exit(0);
            }
            SpinOnFirstProcessor(std::chrono::milliseconds(1200)); // of which it runs a third
        },
        1);
    EXPECT_EQ(StateName(result.state), std::string("passed")) << "after " << result.seconds << " s";
}

TEST(RunChecks, KeepsTheOrderAndSkipsWhatNeedsAFailedCheck) {
    const std::vector<Check> checks = {
        Row("slow", [](Trial&) { std::this_thread::sleep_for(std::chrono::milliseconds(100)); }),
        Row("fails", Fails),
        Row("needs-slow", Passes, "slow"),
        Row("needs-fails", Passes, "fails"),
        Row("needs-skipped", Passes, "needs-fails"),
        Row("needs-one-that-is-not-run", Passes, "another"),
    };
    std::vector<std::string> order;
    RunOptions options;
    options.ended = [&order](const CheckResult& result) { order.emplace_back(result.check->name); };
    const auto results = RunAll(checks, options);
    ASSERT_EQ(results.size(), checks.size());
    ASSERT_EQ(order.size(), checks.size());
    constexpr CheckState kStates[] = {CheckState::kPassed,  CheckState::kFailed,  CheckState::kPassed,
                                      CheckState::kSkipped, CheckState::kSkipped, CheckState::kPassed};
    for (std::size_t i = 0; i < checks.size(); ++i) {
        EXPECT_EQ(order[i], checks[i].name);
        EXPECT_EQ(results[i].check->name, std::string(checks[i].name));
        EXPECT_EQ(StateName(results[i].state), std::string(StateName(kStates[i]))) << checks[i].name;
    }
    EXPECT_EQ(results[3].what.got, "it needs 'fails'");
}

TEST(RunChecks, GivesTheSameStatesForTheSameSeedAndCheck) {
    const auto number = [](const char* name, std::uint64_t seed) {
        const auto tell = [](Trial& trial) { trial.Warn({"", std::to_string(trial.Random()()), ""}); };
        return RunAll({Row(name, tell)}, {}, seed).at(0).what.got;
    };
    EXPECT_EQ(number("one", 1), number("one", 1));
    EXPECT_NE(number("one", 1), number("one", 2));
    EXPECT_NE(number("one", 1), number("other", 1));
}

TEST(RunChecks, BeginsNothingWhenTheTimeForAllIsOver) {
    RunOptions options;
    options.limit = std::chrono::seconds(0);
    const auto results = RunAll({Row("one", Hangs)}, options);
    EXPECT_EQ(results.at(0).state, CheckState::kSkipped);
    EXPECT_EQ(results.at(0).what.got, "the time for all checks was over");
}

TEST(RunChecks, BlamesNobodyWhenTheTimeForAllEndsBeforeACheck) {
    RunOptions options;
    options.limit = std::chrono::seconds(1);
    const auto results = RunAll({Row("one", Hangs), Row("other", Hangs, "", 0)}, options);
    EXPECT_EQ(results.at(0).state, CheckState::kSkipped);
    EXPECT_EQ(results.at(0).what.got, "the time for all checks was over");
    EXPECT_EQ(results.at(1).state, CheckState::kTimedOut) << "its own time was over";
}

TEST(RunChecks, StopsWhenToldTo) {
    RunOptions options;
    options.atOnce = 1;
    bool ended = false;
    options.ended = [&ended](const CheckResult&) { ended = true; };
    options.stopped = [&ended] { return ended; };
    EXPECT_EQ(RunAll({Row("one", Passes), Row("two", Hangs), Row("three", Passes)}, options).size(), 1U);
}

TEST(RunChecks, KeepsWhatACheckWritesAside) {
    const CheckResult result = RunOne([](Trial& trial) {
        (void)std::puts("to standard output");
        (void)std::fflush(stdout);
        (void)std::fputs("to standard error\n", stderr);
        Fails(trial);
    });
    EXPECT_EQ(result.output, "to standard error\n");
}

TEST(RunChecks, TakesTextsOfAnyBytes) {
    const CheckResult result = RunOne([](Trial&) {
        throw Mismatch{{"\xFF\xFE", std::string(100000, 'x'), "\x01"}};
    });
    EXPECT_EQ(result.state, CheckState::kFailed);
    EXPECT_EQ(result.what.got.size(), 100000U);
}

} // namespace
