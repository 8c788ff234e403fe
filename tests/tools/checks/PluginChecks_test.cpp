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
    const auto end =
        Vrx({"check", "plugin", VRX_OTHER_PLUGIN, "--only", "^" + check + "$", "--level", "10", "--json"});
    ::unsetenv("VRX_WRONG");
    EXPECT_TRUE(IsOneLine(end.out)) << end.out << end.err;
    const auto report = nlohmann::json::parse(end.out, nullptr, false);
    EXPECT_EQ(end.exitCode, report.value("ok", false) ? 0 : 4) << end.err;
    EXPECT_EQ(end.err.empty(), end.exitCode == 0) << end.err;
    return report.at("checks").at(0);
}

struct Wrong {
    const char* name;
    const char* check;
    const char* state = "failed";
};

class WrongPlugin : public testing::TestWithParam<Wrong> {};

TEST_P(WrongPlugin, IsFound) {
    const auto result = Check(GetParam().name, GetParam().check);
    EXPECT_EQ(result.at("state"), GetParam().state) << result;
    for (const char* key : {"expected", "got", "means"}) EXPECT_NE(result.at(key), "") << key;
}

constexpr Wrong kWrong[] = {
    {"factory-null", "loads"},
    {"factory-throws", "loads"},
    {"factory-exits", "loads", "crashed"},
    {"factory-crashes", "loads", "crashed"},
    {"factory-prints", "loads-quietly"},
    {"factory-same", "two-objects", "crashed"},
    {"early-socket", "no-network"},
    {"configure-false", "connects"},
    {"figures-not-zero", "figures-start-at-zero"},
    {"unconfigured-is-zero", "not-configured"},
    {"lines-to-stderr", "not-configured"},
    {"empty-args-print", "no-arguments"},
    {"checks-backwards", "missing-keys"},
    {"missing-is-fine", "missing-keys"},
    {"empty-values-count", "empty-values"},
    {"stores-before-checking", "failed-arguments-change-nothing"},
    {"needs-equals", "argument-forms"},
    {"last-key-counts", "duplicate-keys"},
    {"key-case", "key-case"},
    {"hexadecimal-ports", "port-numbers"},
    {"trims-values", "values-as-they-stand"},
    {"sends-address", "connect-bytes"},
    {"connect-blank", "connect-bytes"},
    {"new-connection-each-time", "connect-again"},
    {"follows-configure", "open-connection-stays"},
    {"wrong-tag", "block-bytes"},
    {"counts-short-at-large", "block-bytes"},
    {"counts-by-input", "block-counts"},
    {"cuts-large-blocks", "large-block-bytes"},
    {"pads-to-multiple", "path-padding"},
    {"names-to-63", "long-names"},
    {"pins-name-layout", "pin-bytes"},
    {"crlf", "text-bytes"},
    {"text-to-1024", "text-bytes"},
    {"sends-empty-text", "empty-text"},
    {"connection-per-text", "one-connection"},
    {"hides-status", "status"},
    {"prints-status", "status"},
    {"no-fraction", "cycle-figures"},
    {"logical-shift", "cycle-figures"},
    {"signed-figures", "cycle-figures"},
    {"swaps-figures", "cycle-figures"},
    {"pins-set-figures", "figures-stay-with-blocks"},
    {"writes-one-more", "data"},
    {"scribbles-on-in", "data"},
    {"clears-out-first", "data-in-place"},
    {"delivers-by-input", "data-counts"},
    {"empty-block-is-nothing", "no-words-out"},
    {"copies-all", "more-than-asked-for"},
    {"checks-length", "unread-head"},
    {"waits-for-whole", "short-reply"},
    {"sixteen-pin-bits", "pin-bits"},
    {"keeps-upper-bits", "pin-bits"},
    {"strips-cr", "text-replies"},
    {"line-in-one-receive", "text-replies"},
    {"packets-are-text", "packet-replies"},
    {"wants-ok", "any-answer-connects"},
    {"shares-figures", "separate-talkers"},
    {"stays-configured", "refused"},
    {"unknown-host-prints", "unknown-host"},
    {"decimal-code", "connect-closed"},
    {"reset-is-9995", "connect-reset"},
    {"clears-out", "peer-closed"},
    {"clears-figures", "peer-closed"},
    {"greets-again", "peer-closed"},
    {"closed-is-9996", "closed-between-blocks"},
    {"never-reconnects", "reset"},
    {"send-failure-closes", "dead-connection"},
    {"raises-sigpipe", "dead-connection", "crashed"},
    {"text-does-not-reconnect", "text-over-dead-connection"},
    {"half-reply", "message-fails"},
    {"message-failure-prints", "message-fails"},
    {"refused-is-1", "reconnect-refused"},
    {"no-packet-closes", "not-a-packet"},
    {"prints-text", "not-a-packet"},
    {"crashes-on-text", "not-a-packet", "crashed"},
    {"fifteen-seconds", "ten-seconds"},
    {"time-out-keeps-connection", "ten-seconds"},
    {"five-seconds", "slow-answers"},
    {"messages-give-up", "messages-wait"},
    {"chatters", "silent-success"},
    {"says-goodbye", "silent-success"},
    {"ignores-signals", "signals"},
    {"leaks-thread", "leaves-nothing"},
    {"failures-leak", "leaves-nothing"},
    {"refused-leaks", "leaves-nothing"},
    {"leaks-memory", "lifetimes"},
    {"no-lock", "one-talker-many-threads"},
    {"swaps-figures", "random-conversation"},
    {"writes-args", "texts-untouched", "crashed"},
    {"reads-one-more", "buffers-to-the-word", "crashed"},
    {"restores-in", "buffers-to-the-word", "crashed"},
    {"needs-alignment", "any-address"},
    {"clips", "any-words"},
    {"skips-silence", "any-words"},
    {"per-thread", "any-thread"},
    {"", "collected-replies", "warned"},
    {"keeps-old-connection", "reconfigure-fails"},
    {"heartbeat", "quiet-between-calls"},
    {"changes-folder", "hosts-own"},
    {"changes-environment", "hosts-own"},
    {"logs-to-stderr", "standard-error", "warned"},
    {"leaks-per-block", "long-life"},
    {"thread-each-configure", "many-configures"},
    {"thread-lives-on", "unloading", "crashed"},
    {"slow-delete", "quick-delete", "warned"},
    {"shares-replies", "many-talkers"},
    {"one-for-all", "independent-talkers"},
    {"locks-figures", "figures-while-waiting"},
    {"dies-on-short", "short-replies", "crashed"},
    {"dies-on-short", "rubbish", "crashed"},
    {"trusts-lengths", "absurd-lengths"},
    {"full-buffer-is-reply", "endless-text"},
    {"", "zero-in-text", "warned"},
    {"cut-is-reply", "cut-anywhere"},
    {"limits-the-whole", "slow-pieces"},
    {"reads-beyond", "beyond-the-buffer", "crashed"},
    {"raises-sigpipe", "block-cut-while-sending", "crashed"},
    {"fails-on-signals", "signals-while-waiting"},
    {"sleeps", "blocks-without-stalls", "warned"},
    {"many-calls", "system-calls", "warned"},
};

INSTANTIATE_TEST_SUITE_P(EachSwitch, WrongPlugin, testing::ValuesIn(kWrong), [](const auto& row) {
    std::string name = std::string(row.param.name) + "_" + row.param.check;
    std::ranges::replace(name, '-', '_');
    return name;
});

TEST(RightPlugin, OfAnotherMakePassesAsWellAsOurs) {
    ::unsetenv("VRX_WRONG");
    for (const char* plugin : {VRX_OTHER_PLUGIN, VRX_PLUGIN}) {
        const auto end =
            RunProgram({VRX_PROGRAM, "check", "plugin", plugin, "--level", "5"}, std::chrono::seconds(180));
        EXPECT_EQ(end.exitCode, 0) << end.out << end.err;
        EXPECT_EQ(end.err, "");
        const bool warned = end.out.find("warning") != std::string::npos;
        EXPECT_EQ(warned, plugin == std::string_view(VRX_OTHER_PLUGIN)) << end.out;
    }
}

} // namespace
