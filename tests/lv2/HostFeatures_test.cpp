#include "lv2/HostFeatures.h"

#include "tests/lv2/StrictHost.h"

#include <gtest/gtest.h>
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>

namespace {

using namespace vrx::lv2;
using stricthost::Features;

TEST(HostFeatures, NeedNotBeThere) {
    const LV2_Feature* const none = nullptr;
    for (const LV2_Feature* const* features : {static_cast<const LV2_Feature* const*>(nullptr), &none}) {
        const HostFeatures host(features);
        EXPECT_EQ(host.map, nullptr);
        EXPECT_EQ(host.options, nullptr);
        EXPECT_EQ(host.log, nullptr);
        EXPECT_EQ(host.BlockLength(), std::nullopt);
    }
}

TEST(HostFeatures, TellTheBlockLength) {
    struct Case {
        const char* name;
        std::vector<std::pair<const char*, int>> options;
        std::optional<std::size_t> length;
    };
    const Case cases[] = {
        {"nominal", {{LV2_BUF_SIZE__nominalBlockLength, 256}}, 256},
        {"most", {{LV2_BUF_SIZE__maxBlockLength, 512}}, 512},
        {"both", {{LV2_BUF_SIZE__maxBlockLength, 512}, {LV2_BUF_SIZE__nominalBlockLength, 256}}, 256},
        {"another one", {{LV2_BUF_SIZE__minBlockLength, 16}}, {}},
        {"none", {{LV2_BUF_SIZE__nominalBlockLength, 0}, {LV2_BUF_SIZE__maxBlockLength, -1}}, {}},
    };
    for (const Case& c : cases) {
        Features features;
        for (const auto& [uri, value] : c.options) features.WithOption(uri, value);
        EXPECT_EQ(HostFeatures(features.Get()).BlockLength(), c.length) << c.name;
    }
}

TEST(HostFeatures, LeaveOutOptionsOfAnotherType) {
    const LV2_URID_Map map{nullptr, [](LV2_URID_Map_Handle, const char* uri) -> LV2_URID {
                               return std::string(uri) == LV2_BUF_SIZE__nominalBlockLength ? 1 : 2;
                           }};
    const float length = 256;
    const LV2_Options_Option options[] = {{LV2_OPTIONS_INSTANCE, 0, 1, sizeof length, 3, &length}, {}};
    HostFeatures host(nullptr);
    host.map = &map;
    host.options = options;
    EXPECT_EQ(host.BlockLength(), std::nullopt);
    host.map = nullptr;
    EXPECT_EQ(host.BlockLength(), std::nullopt) << "options mean nothing without the map";
}

TEST(HostLog, WritesToTheHostsLog) {
    Features features;
    features.WithMap().WithLog();
    HostLog log{HostFeatures(features.Get())};
    log.Warn("100 %s");
    log.Close();
    log.Warn("too late");
    EXPECT_EQ(features.Logged(), std::vector<std::string>{"100 %s\nhttp://lv2plug.in/ns/ext/log#Warning"});
}

TEST(HostLog, WritesToStandardErrorWhereThereIsNoLog) {
    for (const bool withLog : {false, true}) {
        Features features;
        if (withLog) features.WithLog(); // of no use without the map
        HostLog log{HostFeatures(features.Get())};
        testing::internal::CaptureStderr();
        log.Warn("100 %s");
        log.Close();
        log.Warn("too late");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "100 %s\n");
        EXPECT_TRUE(features.Logged().empty());
    }
}

} // namespace
