#include "tests/support/TemporaryFolder.h"
#include "tests/tools/VrxRun.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

class CompareRuns : public testing::Test {
protected:
    /// Pumps a file and keeps the summary.
    std::string Run(const char* name, const ServeProcess& server) {
        const std::string in = m_folder.Write("in.wav", Wav16(1, Noise(1000)));
        const auto end = Vrx({"pump", in, m_folder / "out.wav", "--force", "--servport", server.Port(),
                              "--json", "--block", "100", "--samples", "f32"});
        return m_folder.Write(name, end.out);
    }
    TemporaryFolder m_folder;
};

TEST_F(CompareRuns, SaysWhichWasBetterOnOneScreen) {
    const std::string a = Run("a.json", ServeProcess({"--faults", "negative-status", "--fault-limit", "2"}));
    const std::string b = Run("b.json", ServeProcess());
    const auto end = Vrx({"compare", a, b});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_LE(std::count(end.out.begin(), end.out.end(), '\n'), 24);
    EXPECT_NE(end.out.find("A  " + a + ": "), std::string::npos) << end.out;
    EXPECT_NE(end.out.find("\nfailed                       2           0"), std::string::npos) << end.out;
    EXPECT_NE(end.out.find("\nB was better: 0 of 10 blocks failed instead of 2 of 10\n"), std::string::npos)
        << end.out;

    const auto json = Vrx({"compare", "--json", b, a});
    EXPECT_EQ(json.exitCode, 0) << json.err;
    EXPECT_TRUE(IsOneLine(json.out)) << json.out;
    EXPECT_EQ(nlohmann::json::parse(json.out).at("better"), "A");
    EXPECT_EQ(nlohmann::json::parse(json.out).at("why"), "0 of 10 blocks failed instead of 2 of 10");
}

TEST_F(CompareRuns, FindsARunNoBetterThanItself) {
    const std::string a = Run("a.json", ServeProcess());
    const auto end = Vrx({"compare", a, a});
    EXPECT_NE(end.out.find("\nNeither was better: their p99 differ by less than 5 %\n"), std::string::npos)
        << end.out;
    const auto json = nlohmann::json::parse(Vrx({"compare", "--json", a, a}).out);
    EXPECT_TRUE(json.at("better").is_null());
    EXPECT_EQ(json.at("p99_ratio"), 1);
}

TEST_F(CompareRuns, ReportsFilesThatAreNoSummaries) {
    const std::string good = Run("a.json", ServeProcess());
    for (const char* text : {"", "no JSON", "[]", "{}", "{\"paced\":1}",
                             "{\"paced\":false,\"output\":1,\"blocks\":\"x\"}", "\xFF\xFE"}) {
        SCOPED_TRACE(text);
        const std::string bad = m_folder.Write("bad.json", text);
        const auto end = Vrx({"compare", good, bad});
        EXPECT_EQ(end.exitCode, 2);
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        EXPECT_EQ(end.err.rfind("vrx compare: " + bad + ": is no summary that vrx pump --json printed: ", 0),
                  0U)
            << end.err;
        EXPECT_EQ(end.out, "");
    }
    const auto none = Vrx({"compare", m_folder / "none.json", good});
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_EQ(none.err,
              "vrx compare: " + m_folder / "none.json" + ": cannot be read: No such file or directory\n");
    EXPECT_EQ(Vrx({"compare", good}).exitCode, 1);
}

} // namespace
