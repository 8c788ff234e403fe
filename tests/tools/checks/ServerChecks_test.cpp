#include "tests/checks/WrongOnes.h"
#include "tests/tools/VrxRun.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

class WrongServer : public testing::TestWithParam<WrongOne> {};

TEST_P(WrongServer, IsFound) {
    Subprocess server({VRX_OTHER_SERVER, GetParam().name});
    const auto end = RunProgram({VRX_PROGRAM, "check", "server", "127.0.0.1", server.ReadLine(), "--only",
                                 std::string("^") + GetParam().check + "$", "--level", "10", "--json"},
                                std::chrono::seconds(100));
    ASSERT_TRUE(IsOneLine(end.out)) << end.out << end.err;
    const auto result = nlohmann::json::parse(end.out).at("checks").at(0);
    EXPECT_EQ(result.at("state"), GetParam().state) << result;
    EXPECT_EQ(end.exitCode, GetParam().state == std::string("warned") ? 0 : 4) << end.err;
}

INSTANTIATE_TEST_SUITE_P(EachSwitch, WrongServer, testing::ValuesIn(kWrongServers), [](const auto& row) {
    std::string name = std::string(row.param.name) + "_" + row.param.check;
    std::ranges::replace(name, '-', '_');
    return name;
});

struct Fault {
    const char* scenario;
    const char* check;
};

/// What vrx serve can be told to spoil.
TEST(SpoiltServer, IsFound) {
    constexpr Fault kFaults[] = {
        {"pieces=100", "one-piece"},         {"stall=50ms", "one-piece"},
        {"stall-header=50ms", "one-piece"},  {"cut=20", "takes-blocks"},
        {"reset", "takes-blocks"},           {"wrong-length=20", "block-reply"},
        {"negative-status", "takes-blocks"}, {"text", "takes-blocks"},
        {"endless-text", "takes-blocks"},    {"duplicate", "one-reply"},
        {"refuse=2s", "takes-blocks"},
    };
    for (const Fault& fault : kFaults) {
        const ServeProcess server({"--faults", fault.scenario});
        const auto end = Vrx(
            {"check", "server", "127.0.0.1", server.Port(), "--only", std::string("^") + fault.check + "$"});
        EXPECT_EQ(end.exitCode, 4) << fault.scenario << "\n" << end.out;
        EXPECT_TRUE(end.err.ends_with(std::string(" is wrong: ") + fault.check + "\n")) << end.err;
    }
}

/// Serving one client at a time is a merely different server's right, until many clients are asked for.
TEST(RightServer, MayTakeOneClientAtATime) {
    Subprocess server({VRX_OTHER_SERVER, "one-client-at-a-time"});
    const auto end = RunProgram({VRX_PROGRAM, "check", "server", "127.0.0.1", server.ReadLine(), "--only",
                                 "^(pins-repeat|takes-blocks|reconnects|through-talker)$"},
                                std::chrono::seconds(60));
    EXPECT_EQ(end.exitCode, 0) << end.out << end.err;
}

TEST(RightServer, OfAnotherMakePasses) {
    Subprocess server({VRX_OTHER_SERVER});
    const auto end =
        RunProgram({VRX_PROGRAM, "check", "server", "127.0.0.1", server.ReadLine(), "--level", "8"},
                   std::chrono::seconds(180));
    EXPECT_EQ(end.exitCode, 0) << end.out << end.err;
    EXPECT_EQ(end.err, "");
}

} // namespace
