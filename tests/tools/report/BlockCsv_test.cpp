#include "tools/report/BlockCsv.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

using namespace vrx;
using namespace vrx::tool;

TEST(BlockCsv, WritesEachFieldInItsColumn) {
    host::BlockRecord block;
    block.number = 7;
    block.dueAt = 1.5;
    block.sentAt = 1.625;
    block.milliseconds = 0.25;
    block.sinceDue = 125.25;
    block.result = -5;
    block.retries = 2;
    block.averageCycles = 16;
    block.pumpCycles = 4294967296.0F;
    EXPECT_EQ(
        BlockCsv::Names(),
        "block,due_s,sent_s,round_trip_ms,since_due_ms,missed,status,retries,average_cycles,pump_cycles\n");
    EXPECT_EQ(BlockCsv::Row(block, 125), "7,1.500000,1.625000,0.2500,125.2500,1,-5,2,16,4294967296\n");
    EXPECT_EQ(BlockCsv::Row(block, 125.25), "7,1.500000,1.625000,0.2500,125.2500,0,-5,2,16,4294967296\n")
        << "the deadline itself is in time";
}

} // namespace
