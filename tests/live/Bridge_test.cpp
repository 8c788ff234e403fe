#include "live/Bridge.h"
#include "tests/live/FakeParts.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <future>
#include <latch>
#include <memory>
#include <pthread.h>
#include <random>
#include <sched.h>
#include <thread>
#include <utility>
#include <vector>

using namespace vrx::live;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t kBlock = 32;
// At so low a rate a fade is one frame long.
constexpr Shape kShape{1, 1000, kBlock, kBlock, 2 * kBlock, Late::kDry};

/// Feeds a bridge with 1, 2, 3... and checks that each number comes out after the latency, wet or dry. The first frame
/// of a block may belong to a fade.
class Feeder {
public:
    explicit Feeder(Bridge& bridge) : m_bridge(bridge) {}

    void Callback() {
        float buffer[kBlock];
        for (float& sample : buffer) sample = static_cast<float>(++m_in);
        const float* in[] = {buffer};
        float* out[] = {buffer};
        m_bridge.Process(in, out, kBlock);
        for (const float sample : buffer) {
            ++m_out;
            const std::uint64_t latency = m_bridge.Measures().latencyFrames;
            const float want = m_out <= latency ? 0 : static_cast<float>(m_out - latency);
            EXPECT_NEAR(sample, want, (m_out - 1) % kBlock == 0 ? 1 : 0);
        }
    }
    void Callbacks(int count) {
        while (count-- > 0) Callback();
    }
    /// Gives the worker time between the callbacks until a block is not late.
    void UntilOneIsBack() {
        const auto until = Clock::now() + std::chrono::seconds(20);
        const auto back = [&] { return m_bridge.Count().blocks - m_bridge.Count().late; };
        for (const std::uint64_t before = back(); back() == before && Clock::now() < until;) {
            Callback();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_LT(Clock::now(), until);
    }

private:
    Bridge& m_bridge;
    std::uint64_t m_in = 0;
    std::uint64_t m_out = 0;
};

TEST(Bridge, BlocksGoThroughTheTalker) {
    std::atomic<int> blocks = 0;
    Bridge bridge(kShape, Parts([&](const void* in, void* out, unsigned words) {
                      ++blocks;
                      return Echo(in, out, words);
                  }));
    Feeder feeder(bridge);
    feeder.UntilOneIsBack();
    EXPECT_TRUE(bridge.Stop());
    EXPECT_GT(blocks, 0);
    EXPECT_FALSE(bridge.Count().outage);
    feeder.Callbacks(10); // dry from here on
    const Bridge::Counts counts = bridge.Count();
    EXPECT_EQ(counts.frames, (counts.blocks + 2) * kBlock);
    EXPECT_LT(counts.late, counts.blocks);
    EXPECT_EQ(counts.lost, 0U);
}

TEST(Bridge, TellsEachExchangeWithItsBlock) {
    std::atomic<std::uint64_t> last = 0;
    std::atomic<bool> right = true;
    BridgeParts parts = Parts(Echo);
    parts.exchanged = [&](const vrx::host::BlockRecord& record, const std::uint32_t* in,
                          const std::uint32_t* out) {
        right = right && record.number > last && std::memcmp(in, out, kBlock * 4) == 0;
        float first;
        std::memcpy(&first, in, 4);
        right = right && first == static_cast<float>((record.number - 1) * kBlock + 1);
        last = record.number;
    };
    Bridge bridge(kShape, std::move(parts));
    Feeder(bridge).UntilOneIsBack();
    bridge.Stop();
    EXPECT_GT(last, 0U);
    EXPECT_TRUE(right);
}

TEST(Bridge, FreewheelingWaitsForEveryReply) {
    Bridge bridge(kShape, Parts([](const void* in, void* out, unsigned words) {
                      std::this_thread::sleep_for(std::chrono::microseconds(300)); // a slow server
                      return Echo(in, out, words);
                  }));
    bridge.Freewheel(true);
    Feeder feeder(bridge);
    feeder.Callbacks(300);
    EXPECT_EQ(bridge.Count().late, 0U);
    EXPECT_EQ(bridge.Count().blocks, 298U);
}

TEST(Bridge, FreewheelingOutlastsAnOutage) {
    std::atomic<int> n = 0;
    Bridge bridge(kShape, Parts([&](const void* in, void* out, unsigned words) {
                      return n++ == 5 ? CVRXTalker::kPeerClosed : Echo(in, out, words);
                  }));
    bridge.Freewheel(true);
    Feeder(bridge).Callbacks(20);
    EXPECT_EQ(bridge.Count().late, 0U);
    EXPECT_EQ(bridge.Count().reconnects, 1U);
}

/// A talker whose first block gets stuck until the test lets it go.
class StuckTalker : public testing::Test {
protected:
    struct State {
        std::latch stuck{1};
        std::latch let{1};
    };
    BridgeParts StuckParts() const {
        return Parts([held = m_held](const void* in, void* out, unsigned words) {
            held->stuck.count_down();
            held->let.wait();
            return Echo(in, out, words);
        });
    }
    void WaitUntilStuck() { m_held->stuck.wait(); }
    bool Held() const { return m_held.use_count() > 1; }
    /// Waits until nobody but the test holds what the talker held.
    void LetGo() {
        m_held->let.count_down();
        const auto until = Clock::now() + std::chrono::seconds(20);
        while (Held() && Clock::now() < until) std::this_thread::yield();
        EXPECT_FALSE(Held());
    }

private:
    std::shared_ptr<State> m_held = std::make_shared<State>();
};

TEST_F(StuckTalker, StoppingEndsAWaitInFreewheel) {
    auto bridge = std::make_unique<Bridge>(kShape, StuckParts());
    bridge->Freewheel(true);
    std::thread callback([&] { Feeder(*bridge).Callbacks(4); });
    WaitUntilStuck();
    const auto begin = Clock::now();
    EXPECT_FALSE(bridge->Stop());
    callback.join();
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5)); // far below its patience
    bridge.reset();
    LetGo();
}

/// What a let-go worker needs lives on with it, and goes when it ends.
TEST_F(StuckTalker, IsLetGoWithEverythingItNeeds) {
    auto bridge = std::make_unique<Bridge>(kShape, StuckParts());
    Feeder feeder(*bridge);
    feeder.Callback();
    WaitUntilStuck();
    feeder.Callbacks(100); // and the callback goes on, dry
    EXPECT_EQ(bridge->Count().late, bridge->Count().blocks);
    const auto begin = Clock::now();
    EXPECT_FALSE(bridge->Stop());
    bridge.reset();
    EXPECT_LT(Clock::now() - begin,
              std::chrono::milliseconds(500)); // promised: 200; the rest is for a busy machine
    EXPECT_TRUE(Held());
    LetGo();
}

TEST(Bridge, AWorkerInAnOutageEndsAtOnce) {
    std::latch out(1);
    BridgeParts parts = Parts([&](const void*, void*, unsigned) { return CVRXTalker::kNoConnection; });
    parts.outage = [&](const std::string&) { out.count_down(); };
    Bridge bridge(kShape, std::move(parts));
    Feeder(bridge).Callback();
    out.wait();
    EXPECT_TRUE(bridge.Count().outage);
    EXPECT_TRUE(bridge.Stop());
    EXPECT_TRUE(bridge.Stop());
}

TEST(Bridge, TheWorkerTakesNoSignals) {
    std::latch pumped(1);
    sigset_t blocked;
    sigemptyset(&blocked);
    Bridge bridge(kShape, Parts([&](const void* in, void* out, unsigned words) {
                      pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
                      pumped.count_down();
                      return Echo(in, out, words);
                  }));
    Feeder(bridge).Callback();
    pumped.wait();
    bridge.Stop();
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
    EXPECT_EQ(sigismember(&blocked, SIGPROF), 1);
    sigset_t here;
    pthread_sigmask(SIG_SETMASK, nullptr, &here);
    EXPECT_EQ(sigismember(&here, SIGPROF), 0);
}

/// Where the system does not allow that, the worker is an ordinary thread.
TEST(Bridge, TheWorkerRunsInRealTimeWhereItMay) {
    constexpr int kPriority = 3;
    const auto asked = [](int priority) {
        std::latch pumped(1);
        int policy = -1;
        sched_param got = {};
        BridgeParts parts = Parts([&](const void* in, void* out, unsigned words) {
            if (policy < 0) {
                pthread_getschedparam(pthread_self(), &policy, &got);
                pumped.count_down();
            }
            return Echo(in, out, words);
        });
        parts.priority = priority;
        Bridge bridge(kShape, std::move(parts));
        Feeder(bridge).Callback();
        pumped.wait();
        bridge.Stop();
        return std::pair(policy, got.sched_priority);
    };
    const bool may = std::async(std::launch::async, [] {
                         const sched_param urgent{.sched_priority = kPriority};
                         return pthread_setschedparam(pthread_self(), SCHED_FIFO, &urgent) == 0;
                     }).get();
    EXPECT_EQ(asked(0), (std::pair<int, int>(SCHED_OTHER, 0)));
    EXPECT_EQ(asked(kPriority),
              may ? (std::pair<int, int>(SCHED_FIFO, kPriority)) : (std::pair<int, int>(SCHED_OTHER, 0)));
}

/// Both sides as they come: replies early, late and failing, whatever the scheduler does.
TEST(Bridge, NothingIsLostOrShiftedBetweenTwoThreads) {
    std::minstd_rand random(1);
    Bridge bridge(kShape, Parts([&](const void* in, void* out, unsigned words) {
                      const unsigned roll = static_cast<unsigned>(random() % 100);
                      if (roll < 5) return -5;
                      if (roll < 30) std::this_thread::yield();
                      if (roll > 95) std::this_thread::sleep_for(std::chrono::microseconds(roll));
                      return Echo(in, out, words);
                  }));
    Feeder feeder(bridge);
    for (int i = 0; i < 20000; ++i) {
        feeder.Callback();
        if (i % 5 == 0) std::this_thread::yield();
        if (i % 100 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
        if (i % 777 == 0) bridge.Bypass(i % 2 == 0);
    }
    const Bridge::Counts counts = bridge.Count();
    EXPECT_EQ(counts.blocks, 19998U);
    EXPECT_LE(counts.lost, counts.late);
}

} // namespace
