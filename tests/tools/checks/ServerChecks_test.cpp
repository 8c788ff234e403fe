#include "tests/tools/VrxRun.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

struct Wrong {
    const char* name;
    const char* check;
    const char* state = "failed";
};

class WrongServer : public testing::TestWithParam<Wrong> {};

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

constexpr Wrong kWrong[] = {
    {"greets", "listens"},
    {"no-line-feed", "answers-connect"},
    {"two-lines", "answers-connect"},
    {"connects-once", "connects-again"},
    {"pins-too-long", "pins"},
    {"pins-differ", "pins-repeat"},
    {"negative-status", "takes-blocks"},
    {"wrong-marker", "takes-blocks"},
    {"one-word-short", "block-reply"},
    {"length-counts-more", "block-reply"},
    {"replies-twice", "one-reply"},
    {"input-count", "counts"},
    {"two-pieces", "one-piece"},
    {"two-pieces", "pins-in-one-piece"},
    {"nan", "finite-floats"},
    {"block-stalls", "no-stalls", "warned"},
    {"ignores-unknown-names", "unknown-names"},
    {"closes-on-names", "unknown-names"},
    {"ignores-text", "unknown-text"},
    {"closes-on-text", "unknown-text"},
    {"text-answers-twice", "unknown-text"},
    {"closes-on-command", "unknown-command"},
    {"ignores-text", "text-and-blocks"},
    {"ten-connections", "reconnects"},
    {"closes-on-text", "through-talker"},
    {"needs-whole-requests", "in-pieces"},
    {"forgets-the-rest", "two-at-a-time"},
    {"dies-on-cut", "abrupt-ends"},
    {"short-at-2040", "whole-replies"},
    {"twenty-clients", "many-clients"},
    {"mixes-clients", "separate-state"},
    {"one-client-at-a-time", "slow-clients"},
    {"trusts-lengths", "malformed-requests"},
    {"trusts-counts", "malformed-requests"},
    {"waits-for-short-lengths", "malformed-requests"},
    {"lines-hold-up", "endless-line"},
    {"fails-in-time", "pace"},
    {"fails-in-time", "random-conversation"},
    {"zero-in-line", "answers-connect"},
    {"drops-carriage-returns", "any-words"},
    {"ignores-strangers", "block-without-connect"},
    {"refuses-strangers", "block-without-connect", "warned"},
    {"dies-on-unended-paths", "odd-paths"},
    {"dies-on-long-lengths", "random-requests"},
    {"three-hundred-connections", "many-connections"},
};

INSTANTIATE_TEST_SUITE_P(EachSwitch, WrongServer, testing::ValuesIn(kWrong), [](const auto& row) {
    std::string name = std::string(row.param.name) + "_" + row.param.check;
    std::ranges::replace(name, '-', '_');
    return name;
});

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
