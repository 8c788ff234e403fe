#include "tcpio/CTcpIOTalk.h"

#include "tests/support/ScriptedServer.h"
#include "tests/support/SystemCalls.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>

namespace {

using enum CTcpIOTalk::Result;

constexpr char kHost[] = "127.0.0.1";

/// Passes the time without giving the processor away, which would be far too coarse here.
void Spin(std::chrono::microseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
    }
}

/// The reply to the first exchange comes around the watchdog's last tick: the rounds sweep the moments before
/// and after it, so that either end of the race wins. The next exchange on the same object must find a
/// connection of its own.
TEST(Expiry, ReplyAtTheVeryMomentOfTheTimeOut) {
    constexpr int kRounds = 1000;
    calls::Reset();
    calls::SetTickMicroseconds(300);
    std::vector<ScriptedServer::Script> scripts;
    std::atomic<int> sweep = 0;
    for (int round = 0; round < 2 * kRounds; ++round) {
        scripts.push_back([&](Peer& peer) {
            for (std::string line = peer.ReadLine(); !line.empty(); line = peer.ReadLine()) {
                if (line == "race\n") {
                    calls::WaitForTicks(calls::Ticks() + 1);
                    Spin(std::chrono::microseconds(sweep++ % 50 * 12));
                }
                peer.Send(line);
            }
        });
    }
    ScriptedServer server(scripts);
    int replied = 0;
    int timedOut = 0;
    {
        const auto talk = std::make_unique<CTcpIOTalk>();
        std::string reply;
        void* data;
        int length;
        for (int round = 0; round < kRounds; ++round) {
            const int result = talk->SendTcpMessage(kHost, server.Port(), "race", reply, data, length, 20);
            ASSERT_TRUE(result == kReplied || result == kTimedOut) << result;
            (result == kReplied ? replied : timedOut)++;
            ASSERT_EQ(talk->SendTcpMessage(kHost, server.Port(), "next", reply, data, length, -1), 1)
                << round;
            ASSERT_EQ(reply, "next");
        }
    }
    EXPECT_GT(timedOut, kRounds / 20);
    EXPECT_GT(replied, kRounds / 20);
    RecordProperty("replied", replied);
    RecordProperty("timed_out", timedOut);

    // Every descriptor is closed, and closed once.
    EXPECT_EQ(calls::Count("socket"), calls::Count("close"));
    EXPECT_EQ(calls::CallsOnClosedDescriptors(), 0u);
}

} // namespace
