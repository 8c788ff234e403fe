#include "tools/server/ProcessorStock.h"

#include "tests/support/Await.h"
#include "tools/program/Errors.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <span>
#include <string>
#include <thread>

namespace {

using vrx::tool::Processor;
using vrx::tool::ProcessorStock;
using vrx::tool::ProcessStep;
using vrx::tool::Stage;

/// Counts the blocks that it was run on into their first word, and has a latency from the first on.
class Counter : public Stage {
public:
    void Run(std::span<uint32_t> words) override { words[0] = ++m_runs; }
    uint32_t Latency() const override { return m_runs > 0 ? 77 : 0; }

private:
    uint32_t m_runs = 0;
};

/// What a stock did with its step.
struct Made {
    std::atomic<int> count = 0;
    std::atomic<int> most = 1000; // more cannot be made
    std::atomic<std::thread::id> maker;
};

ProcessStep CounterStep(Made& made, bool costly) {
    return {[&made]() -> std::unique_ptr<Stage> {
                if (made.count == made.most) throw vrx::tool::Failure{vrx::tool::kRunFailed, "no more"};
                ++made.count;
                made.maker = std::this_thread::get_id();
                return std::make_unique<Counter>();
            },
            costly};
}

uint32_t BlocksBefore(Processor& processor) {
    uint32_t block[1] = {};
    processor.Run(block);
    return block[0] - 1;
}

TEST(ProcessorStock, TellsTheLatencyBeforeAnyClientHasComeAndGivesNobodyAUsedOne) {
    for (const bool costly : {false, true}) {
        Made made;
        ProcessorStock stock({CounterStep(made, costly)});
        EXPECT_EQ(stock.Latency(), 77U);
        std::unique_ptr<Processor> processor;
        ASSERT_TRUE(Await([&] { return (processor = stock.Take()) != nullptr; }));
        EXPECT_EQ(BlocksBefore(*processor), 0U);
    }
}

TEST(ProcessorStock, MakesWhatIsCheapWhereItIsTaken) {
    Made made;
    ProcessorStock stock({CounterStep(made, false)});
    for (int taken = 0; taken < 3; ++taken) ASSERT_NE(stock.Take(), nullptr);
    EXPECT_EQ(made.count, 4);
    EXPECT_EQ(made.maker, std::this_thread::get_id());
}

TEST(ProcessorStock, MakesWhatIsCostlyElsewhereAndKeepsOneReady) {
    Made made;
    ProcessorStock stock({CounterStep(made, true)});
    for (int taken = 1; taken <= 3; ++taken) {
        ASSERT_TRUE(Await([&] { return made.count == taken + 1; }));
        ASSERT_TRUE(Await([&] { return stock.Take() != nullptr; }));
        EXPECT_NE(made.maker, std::this_thread::get_id());
    }
    ASSERT_TRUE(Await([&] { return made.count == 5; })); // the one that is ready now
}

TEST(ProcessorStock, DeliversAnOrderOrSaysWhyNot) {
    Made made;
    made.most = 2;
    ProcessorStock stock({CounterStep(made, true)});
    const auto order = [&stock] {
        std::promise<std::string> delivered;
        stock.Order([&delivered](std::unique_ptr<Processor> processor, const std::string& error) {
            delivered.set_value(processor ? "made" : error);
        });
        return delivered.get_future().get();
    };
    EXPECT_EQ(order(), "made");
    EXPECT_EQ(order(), "no more");
}

TEST(ProcessorStock, SaysAtOnceWhenNoneCanBeMade) {
    Made made;
    made.most = 0;
    EXPECT_THROW(ProcessorStock({CounterStep(made, true)}), vrx::tool::Failure);
}

} // namespace
