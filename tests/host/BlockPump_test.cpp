#include "host/BlockPump.h"

#include "tests/support/FakeTalker.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx::host;

/// Time that passes only in sleeps.
class SleepClock : public RunClock {
public:
    double Now() const override { return m_now; }
    void SleepUntil(double seconds) override {
        if (seconds <= m_now) return;
        m_sleeps.push_back(seconds - m_now);
        m_now = seconds;
    }
    std::vector<double> m_sleeps;

private:
    double m_now = 0;
};

class BlockPumpTest : public testing::Test {
protected:
    std::shared_ptr<FakeServer> m_server = std::make_shared<FakeServer>();
    bool m_stopped = false;
    Session m_session{
        {},
        {[this] { return std::make_unique<FakeTalker>(m_server); }, nullptr, [this] { return m_stopped; }}};
    SleepClock m_clock;
    const std::vector<std::uint32_t> m_in = {1, 2};
    std::vector<std::uint32_t> m_out = {99, 99};
    BlockRecord m_block;

    Sent Send(BlockPump& pump) { return pump.Send(m_in.data(), m_out.data(), m_block); }
};

TEST_F(BlockPumpTest, NumbersBlocksAndNotesTheFigures) {
    BlockPump pump(m_session, m_clock, 2, 0);
    EXPECT_EQ(Send(pump), Sent::kReplied);
    EXPECT_EQ(Send(pump), Sent::kReplied);
    EXPECT_EQ(m_block.number, 2U);
    EXPECT_EQ(m_block.retries, 0U);
    EXPECT_EQ(m_block.averageCycles, 16.0F);
    EXPECT_EQ(m_out, (std::vector<std::uint32_t>{2, 3}));
}

TEST_F(BlockPumpTest, SendsEachBlockWhenItIsDue) {
    BlockPump pump(m_session, m_clock, 2, 0, 0.25);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Send(pump), Sent::kReplied);
    EXPECT_EQ(m_block.dueAt, 0.5);
    EXPECT_EQ(m_clock.m_sleeps, (std::vector<double>{0.25, 0.25}));
}

TEST_F(BlockPumpTest, ARefusedBlockIsNotSentAgainAndBecomesSilence) {
    m_server->results = {-5};
    BlockPump pump(m_session, m_clock, 2, 3);
    EXPECT_EQ(Send(pump), Sent::kReplied);
    EXPECT_EQ(m_block.result, -5);
    EXPECT_EQ(m_out, (std::vector<std::uint32_t>{0, 0}));
    EXPECT_EQ(m_server->blocks.size(), 1U);
}

TEST_F(BlockPumpTest, SendsALostBlockAgainAfterAPause) {
    m_server->results = {-9995, -9999, 3};
    BlockPump pump(m_session, m_clock, 2, 2);
    EXPECT_EQ(Send(pump), Sent::kReplied);
    EXPECT_EQ(m_block.result, 3);
    EXPECT_EQ(m_block.retries, 2U);
    EXPECT_EQ(m_clock.m_sleeps, (std::vector<double>{0.5, 1}));
    EXPECT_EQ(m_server->blocks.size(), 3U);
    EXPECT_DOUBLE_EQ(m_block.sinceDue, 1500);
    EXPECT_EQ(m_out, (std::vector<std::uint32_t>{2, 3}));
}

TEST_F(BlockPumpTest, AReconnectThatFailsUsesARetryToo) {
    m_server->results = {-9995};
    m_server->connects = {false, true};
    BlockPump pump(m_session, m_clock, 2, 2);
    EXPECT_EQ(Send(pump), Sent::kReplied);
    EXPECT_EQ(m_block.retries, 2U);
    m_server->results = {-9995};
    m_server->connects = {false, false, true};
    EXPECT_EQ(Send(pump), Sent::kLost);
    EXPECT_EQ(m_block.result, -9995);
    EXPECT_EQ(m_block.retries, 2U);
}

TEST_F(BlockPumpTest, WithoutRetriesALostBlockIsLostAtOnce) {
    m_server->results = {-1};
    BlockPump pump(m_session, m_clock, 2, 0);
    EXPECT_EQ(Send(pump), Sent::kLost);
    EXPECT_EQ(m_block.result, -1);
    EXPECT_TRUE(m_clock.m_sleeps.empty());
    EXPECT_TRUE(m_server->configured.empty());
}

TEST_F(BlockPumpTest, StopsBeforeABlockAndBetweenRetries) {
    BlockPump pump(m_session, m_clock, 2, 5);
    m_server->results = {-9995};
    m_server->beforeConnect = [this] { m_stopped = true; };
    m_server->connects = {false};
    EXPECT_EQ(Send(pump), Sent::kStopped);
    EXPECT_EQ(m_server->blocks.size(), 1U);
    EXPECT_EQ(Send(pump), Sent::kStopped);
    EXPECT_EQ(m_server->blocks.size(), 1U) << "nothing is sent any more";
}

TEST(RetryPause, DoublesUpToFiveSeconds) {
    const int kWant[] = {500, 1000, 2000, 4000, 5000, 5000};
    for (unsigned retry = 1; retry <= std::size(kWant); ++retry)
        EXPECT_EQ(RetryPause(retry), kWant[retry - 1]) << retry;
    EXPECT_EQ(RetryPause(4000000000), 5000);
}

} // namespace
