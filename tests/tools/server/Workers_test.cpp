#include "tools/server/Workers.h"

#include <future>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using vrx::tool::Clock;
using vrx::tool::Workers;
using Solitude = Workers::Solitude;

/// Long enough for a busy machine; nothing here waits so long unless it fails.
constexpr auto kLongest = 60s;

/// Runs a handler on so many threads, to its end.
template <class Handler>
void RunOn(unsigned threads, Handler handler) {
    Workers workers(threads);
    asio::post(workers.Io(), [&] { handler(workers); });
    workers.Start();
    EXPECT_TRUE(workers.AwaitEnd(kLongest));
}

/// Asks for help until what it is to do has happened: on a busy machine a helper may come too late for one call.
template <class Result>
bool ShareUntil(Workers& workers, const std::future<Result>& done) {
    const auto giveUp = Clock::now() + kLongest;
    while (done.wait_for(10ms) != std::future_status::ready) {
        if (Clock::now() > giveUp) return false;
        workers.ShareWork(Clock::now());
    }
    return true;
}

TEST(Workers, LeaveTheFirstThreadAloneWhileNobodyNeedsThem) {
    RunOn(3, [](Workers& workers) {
        EXPECT_TRUE(Solitude(workers).Lasts());
        Solitude again(workers);
        EXPECT_TRUE(again.Lasts());
        EXPECT_TRUE(again.Lasts());
    });
}

TEST(Workers, ComeWhenTheSolitudeEnds) {
    RunOn(2, [](Workers& workers) {
        std::promise<std::thread::id> ran;
        auto runner = ran.get_future();
        Solitude solitude(workers);
        asio::post(workers.Io(), [&ran] { ran.set_value(std::this_thread::get_id()); });
        workers.ShareWork(Clock::now());
        EXPECT_EQ(runner.wait_for(0s), std::future_status::timeout);
        EXPECT_FALSE(solitude.Lasts());
        ASSERT_TRUE(ShareUntil(workers, runner));
        EXPECT_NE(runner.get(), std::this_thread::get_id());
    });
}

TEST(Workers, ComeOnceTheSolitudeIsGone) {
    RunOn(2, [](Workers& workers) {
        std::promise<void> ran;
        {
            const Solitude solitude(workers);
            workers.ShareWork(Clock::now());
        }
        asio::post(workers.Io(), [&ran] { ran.set_value(); });
        EXPECT_TRUE(ShareUntil(workers, ran.get_future()));
    });
}

TEST(Workers, LeaveNobodyAloneWhileTheyHelp) {
    RunOn(2, [](Workers& workers) {
        std::promise<void> came;
        const auto isThere = came.get_future();
        std::promise<void> mayGo;
        std::promise<void> gone;
        asio::post(workers.Io(), [&] {
            came.set_value();
            mayGo.get_future().wait();
            gone.set_value();
        });
        EXPECT_TRUE(ShareUntil(workers, isThere));
        EXPECT_FALSE(Solitude(workers).Lasts());
        mayGo.set_value();
        gone.get_future().wait();
    });
}

TEST(Workers, AreNotCalledWhereThereIsOneThread) {
    RunOn(1, [](Workers& workers) {
        Solitude solitude(workers);
        workers.ShareWork(Clock::now());
        EXPECT_TRUE(solitude.Lasts());
    });
}

} // namespace
