#include "tools/server/AddressRange.h"

#include <gtest/gtest.h>

namespace {

using vrx::tool::AddressRange;

struct RangeCase {
    const char* text;
    uint32_t network;
    uint32_t mask;
};
constexpr RangeCase kRanges[] = {
    {"10.1.0.0/16", 0x0A010000, 0xFFFF0000},        {"10.1.2.3", 0x0A010203, 0xFFFFFFFF},
    {"10.1.2.3/32", 0x0A010203, 0xFFFFFFFF},        {"0.0.0.0/0", 0, 0},
    {"128.0.0.0/1", 0x80000000, 0x80000000},        {"127.0.0.0/8", 0x7F000000, 0xFF000000},
    {"255.255.255.254/31", 0xFFFFFFFE, 0xFFFFFFFE},
};

TEST(ParseAddressRange, ReadsAddressesAndNetworks) {
    for (const RangeCase& c : kRanges) {
        SCOPED_TRACE(c.text);
        AddressRange range;
        EXPECT_EQ(vrx::tool::ParseAddressRange(c.text, range), "");
        EXPECT_EQ(range.network, c.network);
        EXPECT_EQ(range.mask, c.mask);
    }
}

TEST(ParseAddressRange, SaysWhatIsWrong) {
    for (const char* text : {"", "/", "10.0.0.0/", "10.0.0.0/33", "10.0.0.0/-1", "10.0.0.0/8x", "10.0.0/8",
                             "ten", "::1", "10.0.0.0/8/8", "256.0.0.0/8"}) {
        AddressRange range{7, 7};
        EXPECT_EQ(vrx::tool::ParseAddressRange(text, range),
                  "'" + std::string(text) + "' is not ADDRESS/BITS, such as 192.168.1.0/24");
        EXPECT_EQ(range.network, 7U);
    }
    AddressRange range;
    EXPECT_EQ(vrx::tool::ParseAddressRange("10.1.2.3/8", range),
              "'10.1.2.3/8' has bits behind its first 8; 10.0.0.0/8 is that network");
}

TEST(AddressRange, ContainsWhatSharesItsFirstBits) {
    AddressRange range;
    ASSERT_EQ(vrx::tool::ParseAddressRange("192.168.4.0/22", range), "");
    EXPECT_TRUE(range.Contains(0xC0A80400));  // 192.168.4.0
    EXPECT_TRUE(range.Contains(0xC0A807FF));  // 192.168.7.255
    EXPECT_FALSE(range.Contains(0xC0A80800)); // 192.168.8.0
    EXPECT_FALSE(range.Contains(0xC0A803FF)); // 192.168.3.255
    EXPECT_TRUE((AddressRange{0, 0}.Contains(0xFFFFFFFF)));
}

} // namespace
