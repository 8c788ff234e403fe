#include "tests/support/WellFormed.h"
#include "tools/report/HtmlReport.h"

#include <bit>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace vrx;
using namespace vrx::tool;

class Report : public testing::Test {
protected:
    HtmlReport m_report{{host::SampleFormat::kF32, 1, 8000, 80, true}};
    host::RunStatistics m_statistics{10};
    ReportTexts m_texts{"title", "verdict", true, {{"Blocks", "1"}}, {{"Server", "a:1"}}};

    void Add(double milliseconds, int result = 0, unsigned retries = 0) {
        host::BlockRecord block;
        block.number = m_statistics.Blocks() + 1;
        block.milliseconds = block.sinceDue = milliseconds;
        block.result = result;
        block.retries = retries;
        block.averageCycles = block.pumpCycles = 500;
        const std::vector<std::uint32_t> words(80, std::bit_cast<std::uint32_t>(0.5F));
        m_report.Add(block, words.data(), words.data(), words.size());
        m_statistics.Add(block);
    }
    std::string Page() const { return m_report.Page(m_texts, m_statistics); }
    bool PageHas(const std::string& text) const { return Page().find(text) != std::string::npos; }
};

TEST_F(Report, IsWellFormedWithoutABlockWithOneAndWithFaults) {
    EXPECT_EQ(WhyNotWellFormed(Page()), "");
    Add(1);
    EXPECT_EQ(WhyNotWellFormed(Page()), "");
    Add(0);
    Add(25, -5);
    Add(700, 0, 3);
    EXPECT_EQ(WhyNotWellFormed(Page()), "");
}

TEST_F(Report, NeedsNothingFromOutside) {
    Add(1);
    const std::string page = Page();
    for (const char* word : {"<script", "src=", "href=", "url(", "@import", "<link"})
        EXPECT_EQ(page.find(word), std::string::npos) << word;
    EXPECT_NE(page.find("default-src 'none'"), std::string::npos);
    EXPECT_NE(page.find("prefers-color-scheme: dark"), std::string::npos);
    EXPECT_NE(page.find("width=device-width"), std::string::npos);
}

TEST_F(Report, EscapesEveryText) {
    const std::string nasty = "</title><script>alert(\"1\")</script>&\xFF";
    m_texts = {nasty, nasty, false, {{nasty, nasty}}, {{nasty, nasty}}};
    Add(1);
    EXPECT_EQ(WhyNotWellFormed(Page()), "");
    EXPECT_FALSE(PageHas("<script"));
    EXPECT_TRUE(PageHas("&lt;/title&gt;&lt;script&gt;alert(&quot;1&quot;)&lt;/script&gt;&amp;\xEF\xBF\xBD"));
}

TEST_F(Report, MarksTheDeadlineThePercentilesAndTheTroubles) {
    for (int i = 1; i <= 1000; ++i) Add(i * 0.01);
    for (const char* text : {"deadline 10 ms", "p50 5 ms", "p95 9.5 ms", "p99 9.9 ms", "p99.9 9.99 ms",
                             "max 10 ms", "peak: -6.0 dB of full scale", "Server cycles"})
        EXPECT_TRUE(PageHas(text)) << text;

    for (const char* style : {"class=\"failed\"", "class=\"retried\""}) EXPECT_FALSE(PageHas(style)) << style;
    Add(0.5, -5);
    Add(0.5, 0, 1);
    Add(0.5, 0, 1);
    for (const char* style : {"class=\"failed\"", "class=\"retried\""}) EXPECT_TRUE(PageHas(style)) << style;
}

TEST_F(Report, StaysSmallForALongRun) {
    for (int i = 0; i < 100000; ++i) Add(0.05 + (i * 7919 % 1000) * 0.01, i % 3 == 0 ? -5 : 0);
    EXPECT_LT(Page().size(), 400000U);
    EXPECT_EQ(WhyNotWellFormed(Page()), "");
}

TEST_F(Report, DrawsWhatIsNoNumberAndWhatIsHuge) {
    const float samples[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                             -std::numeric_limits<float>::infinity(), 3e38F};
    std::vector<std::uint32_t> words;
    for (const float sample : samples) words.push_back(std::bit_cast<std::uint32_t>(sample));
    host::BlockRecord block;
    block.milliseconds = 1;
    m_report.Add(block, words.data(), words.data(), words.size());
    m_statistics.Add(block);
    EXPECT_EQ(WhyNotWellFormed(Page()), "");
    for (const char* text : {"nan", "inf"}) EXPECT_FALSE(PageHas(std::string(">") + text)) << text;
    EXPECT_TRUE(PageHas("peak: 120.0 dB of full scale"));
}

} // namespace
