#include "tests/support/ScriptedServer.h"
#include "tests/tools/VrxRun.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// At 100 frames a second the smallest block lasts 160 ms, with which a loaded machine keeps up.
TEST(Sweep, EndsWithATableAndTheSmallestSafeBlock) {
    const ServeProcess server;
    const auto end =
        Vrx({"sweep", "--servport", server.Port(), "--rate", "100", "--to", "64", "--seconds", "0.3"});
    const auto lines = Lines(end.out);
    ASSERT_GE(lines.size(), 4U) << end.out << end.err;
    EXPECT_EQ(lines[0].substr(0, 6), "frames");
    EXPECT_EQ(lines[1].substr(0, 16), "    16    160 ms");
    EXPECT_EQ(lines[2].substr(0, 16), "    32    320 ms");
    EXPECT_EQ(lines[3].substr(0, 16), "    64    640 ms");
    ASSERT_EQ(end.exitCode, 0) << end.out << end.err;
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[4], "smallest safe block: 16 frames");
}

TEST(Sweep, FindsThatASlowServerNeedsLargerBlocks) {
    const ServeProcess server({"--faults", "late=250ms"});
    const auto end = Vrx(
        {"sweep", "--servport", server.Port(), "--rate", "100", "--to", "64", "--seconds", "0.5", "--json"});
    ASSERT_EQ(end.exitCode, 0) << end.out << end.err;
    ASSERT_TRUE(IsOneLine(end.out)) << end.out;
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(object.at("sample_rate"), 100);
    ASSERT_EQ(object.at("blocks").size(), 3U);
    const auto& smallest = object.at("blocks")[0];
    EXPECT_EQ(smallest.at("block_frames"), 16);
    EXPECT_EQ(smallest.at("deadline_milliseconds"), 160);
    EXPECT_EQ(smallest.at("missed"), smallest.at("blocks"));
    EXPECT_EQ(smallest.at("safe"), false);
    EXPECT_GE(smallest.at("milliseconds_since_due").at("p50"), 250);
    EXPECT_EQ(object.at("smallest_safe_block"), 32);
}

TEST(Sweep, SaysWhenNoBlockIsSafe) {
    const ServeProcess server({"--faults", "negative-status"});
    for (const char* option : {"--json", "--clport=1"}) {
        const auto end =
            Vrx({"sweep", "--servport", server.Port(), "--to", "32", "--seconds", "0.02", option});
        EXPECT_EQ(end.exitCode, 4);
        EXPECT_EQ(end.err, "vrx sweep: no safe block up to 32 frames at 127.0.0.1:" + server.Port() +
                               ": try larger ones with --to, or a faster server\n");
        EXPECT_EQ(end.out.find("smallest safe block: "), std::string::npos);
        EXPECT_NE(
            end.out.find(*option == '-' && option[2] == 'j' ? "\"smallest_safe_block\":null" : " refused\n"),
            std::string::npos)
            << end.out;
    }
}

TEST(Sweep, GoesOnBehindASizeThatDoesNotGetThrough) {
    const ServeProcess server({"--block-limit", "64"}); // longer blocks get a text
    const auto end = Vrx({"sweep", "--servport", server.Port(), "--rate", "100", "--channels", "1", "--from",
                          "32", "--to", "128", "--seconds", "0.01"});
    EXPECT_EQ(end.exitCode, 0) << end.out << end.err;
    EXPECT_NE(end.out.find("no: result -1000: the reply was no packet\n"), std::string::npos) << end.out;
    EXPECT_NE(end.out.find("smallest safe block: 32 frames\n"), std::string::npos) << end.out;
}

TEST(Sweep, RefusesWrongUsageAndAMissingServer) {
    EXPECT_EQ(Vrx({"sweep"}).exitCode, 1);
    const auto backwards = Vrx({"sweep", "--servport", "7000", "--from", "64", "--to", "32"});
    EXPECT_EQ(backwards.exitCode, 1);
    EXPECT_EQ(backwards.err, "vrx sweep: --to is below --from: there is no block size to try\n");
    EXPECT_EQ(Vrx({"sweep", "--servport", "7000", "--to", "262137"}).exitCode, 1)
        << "two channels do not fit";
    const auto refused = Vrx({"sweep", "--servport", std::to_string(RefusedPort())});
    EXPECT_EQ(refused.exitCode, 3);
    EXPECT_TRUE(IsOneLine(refused.err)) << refused.err;
}

} // namespace
