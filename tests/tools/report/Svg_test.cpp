#include "tools/program/Numbers.h"
#include "tools/report/Svg.h"

#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace vrx::tool;

TEST(Brief, KeepsThreeDigitsThatMatter) {
    struct Case {
        double value;
        const char* want;
    };
    const Case cases[] = {{0, "0"},           {0.05123, "0.0512"}, {0.5, "0.5"}, {1, "1"},
                          {3.14159, "3.14"},  {12.345, "12.3"},    {100, "100"}, {123.4, "123"},
                          {12345.6, "12346"}, {-0.25, "-0.25"},    {10, "10"},   {1000000, "1000000"}};
    for (const Case& c : cases) EXPECT_EQ(Brief(c.value), c.want);
}

TEST(EscapeMarkup, LeavesNothingThatMarkupCouldTake) {
    struct Case {
        const char* name;
        std::string text;
        std::string want;
    };
    const std::string bad = "\xEF\xBF\xBD";
    const Case cases[] = {
        {"nothing", "", ""},
        {"plain", "in.wav", "in.wav"},
        {"markup", "<a b=\"c\">&", "&lt;a b=&quot;c&quot;&gt;&amp;"},
        {"letters beyond ASCII", "h\xC3\xB6r \xE2\x82\xAC \xF0\x9F\x8E\xB5",
         "h\xC3\xB6r \xE2\x82\xAC \xF0\x9F\x8E\xB5"},
        {"control characters", std::string("a\0b\nc\x7F", 6), "a" + bad + "b" + bad + "c" + bad},
        {"a lone byte",
         "a\xFF"
         "b",
         "a" + bad + "b"},
        {"a character cut short", "a\xE2\x82", "a" + bad + bad},
        {"an overlong slash", "\xC0\xAF", bad + bad},
        {"an overlong form of three bytes", "\xE0\x80\x80", bad + bad + bad},
        {"a surrogate", "\xED\xA0\x80", bad + bad + bad},
        {"beyond the last character", "\xF4\x90\x80\x80", bad + bad + bad + bad},
        {"no character at all", "\xEF\xBF\xBE", bad + bad + bad},
    };
    for (const Case& c : cases) EXPECT_EQ(EscapeMarkup(c.text), c.want) << c.name;
}

TEST(Scale, LaysValuesAlongIt) {
    const Scale linear{-1, 3};
    EXPECT_EQ(linear.Part(-1), 0);
    EXPECT_EQ(linear.Part(0), 0.25);
    EXPECT_EQ(linear.Part(3), 1);
    EXPECT_EQ(linear.Part(-9), 0);
    EXPECT_EQ(linear.Part(9), 1);
    EXPECT_EQ(linear.Part(std::numeric_limits<double>::quiet_NaN()), 0);
    const Scale logarithmic{0.1, 1000, true};
    EXPECT_DOUBLE_EQ(logarithmic.Part(1), 0.25);
    EXPECT_EQ(logarithmic.Part(0), 0);
    const Scale point{2, 2};
    EXPECT_EQ(point.Part(2), 0);
}

TEST(Scale, TicksAreRoundAndInside) {
    using Values = std::vector<double>;
    struct Case {
        Scale scale;
        int count;
        Values want;
    };
    const Case cases[] = {
        {{0, 20}, 5, {0, 5, 10, 15, 20}},         {{0, 7}, 4, {0, 2, 4, 6}},
        {{-1, 1}, 4, {-1, -0.5, 0, 0.5, 1}},      {{1, 1}, 4, {}},
        {{0.5, 10, true}, 4, {0.5, 1, 2, 5, 10}}, {{0.02, 1000, true}, 4, {0.1, 1, 10, 100, 1000}},
    };
    for (const Case& c : cases) {
        const Values ticks = c.scale.Ticks(c.count);
        ASSERT_EQ(ticks.size(), c.want.size());
        for (std::size_t i = 0; i < ticks.size(); ++i) EXPECT_NEAR(ticks[i], c.want[i], 1e-9);
    }
}

TEST(LogarithmicScale, LeavesRoomAtBothEnds) {
    for (const double value : {0.0001, 0.07, 1.0, 2.0, 5.0, 730.0}) {
        const Scale scale = LogarithmicScale(value, value);
        EXPECT_LT(scale.low, value);
        EXPECT_GT(scale.high, value);
        EXPECT_LE(scale.high / scale.low, 11);
    }
}

TEST(Chart, DrawsStepsInTheirPlace) {
    Chart chart("A & B", {0, 4}, {0, 10}, 100);
    chart.Steps("blue", {{0, 5}, {2.5, 10}}, 2, 3);
    EXPECT_NE(chart.Markup().find("<title>A &amp; B</title>"), std::string::npos);
    EXPECT_NE(chart.Markup().find(R"(d="M0.0 500.0H500.0V0.0H750.0V750.0H500.0V1000.0H0.0Z")"),
              std::string::npos)
        << chart.Markup();
}

TEST(Chart, PlacesDotsBarsAndLines) {
    Chart chart("", {0, 4}, {0, 10}, 100);
    chart.Dot("failed", 1, 5);
    chart.Bar("blue", 1, 2, 10);
    chart.Across("deadline", 10, "<late>");
    const std::string markup = chart.Markup();
    EXPECT_NE(markup.find(R"(<circle class="failed" cx="25.00%" cy="56.0")"), std::string::npos) << markup;
    EXPECT_NE(markup.find(R"(d="M250.0 1000V0.0H500.0V1000Z")"), std::string::npos) << markup;
    EXPECT_NE(markup.find("&lt;late&gt;"), std::string::npos) << markup;
}

} // namespace
