#include "tests/checks/WrongOnes.h"
#include "tests/tools/VrxRun.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string_view>

namespace {

/// What one check says about the other talker with this switch; "" is the right one.
nlohmann::json Check(const std::string& wrong, const std::string& check) {
    ::setenv("VRX_WRONG", wrong.c_str(), 1);
    const auto end = RunProgram({VRX_PROGRAM, "check", "plugin", VRX_OTHER_PLUGIN, "--only",
                                 "^" + check + "$", "--level", "10", "--json"},
                                std::chrono::seconds(120));
    ::unsetenv("VRX_WRONG");
    EXPECT_TRUE(IsOneLine(end.out)) << end.out << end.err;
    const auto report = nlohmann::json::parse(end.out, nullptr, false);
    EXPECT_EQ(end.exitCode, report.value("ok", false) ? 0 : 4) << end.err;
    EXPECT_EQ(end.err.empty(), end.exitCode == 0) << end.err;
    return report.at("checks").at(0);
}

class WrongPlugin : public testing::TestWithParam<WrongOne> {};

TEST_P(WrongPlugin, IsFound) {
    const auto result = Check(GetParam().name, GetParam().check);
    const bool needsStrace = std::string_view(GetParam().check) == "system-calls";
    if (needsStrace && result.at("state") == "skipped") GTEST_SKIP() << result.at("got");
    EXPECT_EQ(result.at("state"), GetParam().state) << result;
    for (const char* key : {"expected", "got", "means"}) EXPECT_NE(result.at(key), "") << key;
}

INSTANTIATE_TEST_SUITE_P(EachSwitch, WrongPlugin, testing::ValuesIn(kWrongPlugins), [](const auto& row) {
    std::string name = std::string(row.param.name) + "_" + row.param.check;
    std::ranges::replace(name, '-', '_');
    return name;
});

/// Ours is checked by the CI jobs that docs/checking.md shows.
TEST(RightPlugin, OfAnotherMakePasses) {
    ::unsetenv("VRX_WRONG");
    const auto end = RunProgram({VRX_PROGRAM, "check", "plugin", VRX_OTHER_PLUGIN, "--level", "5"},
                                std::chrono::seconds(180));
    EXPECT_EQ(end.exitCode, 0) << end.out << end.err;
    EXPECT_EQ(end.err, "");
}

} // namespace
