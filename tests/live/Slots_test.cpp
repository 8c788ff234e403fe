#include "live/Slots.h"

#include <gtest/gtest.h>

#include <thread>

using vrx::live::Slots;
using vrx::live::SlotState;

namespace {

constexpr std::chrono::microseconds kNow{0};

Slots::Ticket Fill(Slots& slots, std::uint64_t block) {
    float* const samples = slots.Claim();
    EXPECT_NE(samples, nullptr);
    samples[0] = static_cast<float>(block);
    const Slots::Ticket ticket = slots.Queue(block);
    slots.Hand();
    return ticket;
}

TEST(Slots, ABlockGoesToTheWorkerAndBack) {
    Slots slots(2, 1);
    const Slots::Ticket ticket = Fill(slots, 7);
    const auto block = slots.Take(kNow);
    ASSERT_TRUE(block);
    EXPECT_EQ(block->number, 7U);
    EXPECT_EQ(block->samples[0], 7);
    EXPECT_TRUE(slots.Wanted(*block));
    block->samples[0] = 70;
    EXPECT_TRUE(slots.Finish(*block, true));
    EXPECT_EQ(slots.TakeTurn(ticket), SlotState::kReplied);
    EXPECT_EQ(slots.Reply(ticket)[0], 70);
    slots.Release(ticket);
    EXPECT_EQ(slots.Replies(), 1U);
}

TEST(Slots, ABlockWhoseTurnPassesBeforeItIsTakenIsNeverTaken) {
    Slots slots(2, 1);
    EXPECT_EQ(slots.TakeTurn(Fill(slots, 0)), SlotState::kLate);
    Fill(slots, 1);
    EXPECT_EQ(slots.Claim(), nullptr); // the first one is still the worker's
    const auto block = slots.Take(kNow);
    ASSERT_TRUE(block);
    EXPECT_EQ(block->number, 1U);
    EXPECT_NE(slots.Claim(), nullptr);
}

TEST(Slots, AReplyAfterTheTurnIsDropped) {
    Slots slots(1, 1);
    const Slots::Ticket ticket = Fill(slots, 0);
    const auto block = slots.Take(kNow);
    ASSERT_TRUE(block);
    EXPECT_EQ(slots.TakeTurn(ticket), SlotState::kLate);
    EXPECT_FALSE(slots.Wanted(*block));
    EXPECT_EQ(slots.Claim(), nullptr);
    EXPECT_FALSE(slots.Finish(*block, true));
    EXPECT_NE(slots.Claim(), nullptr);
}

TEST(Slots, AFailedBlockIsFreeAfterItsTurn) {
    Slots slots(1, 1);
    const Slots::Ticket ticket = Fill(slots, 0);
    const auto block = slots.Take(kNow);
    ASSERT_TRUE(block);
    EXPECT_TRUE(slots.Finish(*block, false));
    EXPECT_EQ(slots.Claim(), nullptr);
    EXPECT_EQ(slots.TakeTurn(ticket), SlotState::kFailed);
    EXPECT_NE(slots.Claim(), nullptr);
    EXPECT_EQ(slots.Replies(), 0U);
}

TEST(Slots, SeveralBlocksAreHandedAtOnce) {
    Slots slots(3, 1);
    for (std::uint64_t block = 0; block < 3; ++block) {
        ASSERT_NE(slots.Claim(), nullptr);
        slots.Queue(block);
    }
    EXPECT_FALSE(slots.Take(kNow));
    slots.Hand();
    for (std::uint64_t number = 0; number < 3; ++number) {
        const auto block = slots.Take(kNow);
        ASSERT_TRUE(block);
        EXPECT_EQ(block->number, number);
    }
}

TEST(Slots, DrainingMakesRoomForNewerBlocks) {
    Slots slots(3, 1);
    for (std::uint64_t block = 0; block < 300; ++block) {
        const Slots::Ticket ticket = Fill(slots, block);
        if (block < 299) {
            EXPECT_EQ(slots.TakeTurn(ticket), SlotState::kLate);
        }
        slots.Drain();
    }
    const auto block = slots.Take(kNow);
    ASSERT_TRUE(block);
    EXPECT_EQ(block->number, 299U);
}

TEST(Slots, AwaitingEndsWithTheReplyTheTimeOrTheClosing) {
    using Clock = std::chrono::steady_clock;
    Slots slots(2, 1);
    const Slots::Ticket first = Fill(slots, 0);
    EXPECT_FALSE(slots.Await(first, Clock::now()));
    std::thread worker([&] {
        const auto block = slots.Take(std::chrono::seconds(10));
        if (block) slots.Finish(*block, true);
    });
    EXPECT_TRUE(slots.Await(first, Clock::now() + std::chrono::seconds(10)));
    worker.join();
    const Slots::Ticket second = Fill(slots, 1);
    std::thread closer([&] { slots.Close(); });
    EXPECT_FALSE(slots.Await(second, Clock::now() + std::chrono::seconds(10)));
    closer.join();
}

/// Both sides at full speed: each block is replied with its own number, failed or late, and never anything else.
TEST(Slots, TwoThreadsNeverSeeAnothersSamples) {
    constexpr std::uint64_t kBlocks = 20000;
    constexpr std::size_t kSamples = 16;
    Slots slots(4, kSamples);
    std::atomic<bool> stopped = false;
    std::thread worker([&] {
        while (!stopped) {
            const auto block = slots.Take(std::chrono::milliseconds(1));
            if (!block) continue;
            for (std::size_t i = 0; i < kSamples; ++i) block->samples[i] = -block->samples[i];
            slots.Finish(*block, block->number % 7 != 0);
        }
    });
    std::uint64_t replied = 0;
    std::uint64_t late = 0;
    std::vector<std::pair<Slots::Ticket, std::uint64_t>> open;
    for (std::uint64_t number = 0; number < kBlocks; ++number) {
        if (float* const samples = slots.Claim()) {
            std::fill_n(samples, kSamples, static_cast<float>(number));
            open.emplace_back(slots.Queue(number), number);
            slots.Hand();
        }
        if (open.size() < number % 3 + 1) continue;
        const auto [ticket, turn] = open.front();
        open.erase(open.begin());
        const SlotState state = slots.TakeTurn(ticket);
        late += state == SlotState::kLate;
        if (state != SlotState::kReplied) continue;
        ++replied;
        EXPECT_NE(turn % 7, 0U);
        for (std::size_t i = 0; i < kSamples; ++i)
            EXPECT_EQ(slots.Reply(ticket)[i], -static_cast<float>(turn));
        slots.Release(ticket);
        if (number % 64 == 0) std::this_thread::yield();
    }
    stopped = true;
    worker.join();
    EXPECT_GT(replied + late, 0U);
}

} // namespace
