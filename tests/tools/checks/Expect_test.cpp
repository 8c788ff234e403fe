#include "tools/checks/Expect.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx::tool;

/// What a check that fails says; everything empty when it does not fail.
template <class Run>
Observation Said(const Run& run) {
    try {
        run();
    } catch (const Mismatch& mismatch) {
        return mismatch.what;
    }
    return {};
}

TEST(Shown, MakesValuesReadable) {
    EXPECT_EQ(Shown(true), "true");
    EXPECT_EQ(Shown(-5), "-5");
    EXPECT_EQ(Shown(0.5F), "0.5");
    EXPECT_EQ(Shown(4294967296.0F), "4.2949673e+09");
    EXPECT_EQ(Shown(std::string_view("a b")), "\"a b\"");
    EXPECT_EQ(Shown(std::string_view("a\r\n\xFF")), "\"a\\x0d\\n\\xff\"");
    EXPECT_EQ(Shown(std::string_view("a\0b", 3)), "\"a\\x00b\"");
    EXPECT_EQ(Shown(std::string(200, 'x')), "\"" + std::string(160, 'x') + "\"... (200 bytes)");
    EXPECT_EQ(Hex(42), "0x0000002a");
}

TEST(Expect, FailsWithThreeSentencesOnlyWhenItDoesNotHold) {
    EXPECT_EQ(Said([] { Expect(true, "a", "b", "c"); }).expected, "");
    const Observation what = Said([] { Expect(false, "a", "b", "c"); });
    EXPECT_EQ(what.expected, "a");
    EXPECT_EQ(what.got, "b");
    EXPECT_EQ(what.means, "c");
}

TEST(ExpectSame, ShowsBothValuesBehindTheSameWords) {
    EXPECT_EQ(Said([] { ExpectSame("it returns", 1, 1, ""); }).got, "");
    const Observation what = Said([] { ExpectSame("it returns", 1, -9995, "hosts wait"); });
    EXPECT_EQ(what.expected, "it returns 1");
    EXPECT_EQ(what.got, "it returns -9995");
    EXPECT_EQ(what.means, "hosts wait");
}

struct BytesCase {
    const char* name;
    std::string expected;
    std::string got;
    const char* saysExpected;
    const char* saysGot;
};

TEST(ExpectBytes, ShowsBothAroundTheFirstDifference) {
    const BytesCase kCases[] = {
        {"the same", "abc", "abc", "", ""},
        {"one byte", "abc", "abd", "it sends, at byte 2 of 3: 63 \"c\"",
         "it sends, at byte 2 of 3: 64 \"d\""},
        {"too short", "abc", "ab", "it sends, at byte 2 of 3: 63 \"c\"", "it sends, the end after 2 bytes"},
        {"too long", "ab", "abc", "it sends, the end after 2 bytes", "it sends, at byte 2 of 3: 63 \"c\""},
        {"nothing", "ab", "", "it sends, at byte 0 of 2: 61 62 \"ab\"", "it sends, the end after 0 bytes"},
        {"a long rest", "0" + std::string(20, 'a'), "1",
         "it sends, at byte 0 of 21: 30 61 61 61 61 61 61 61 61 61 61 61 ... \"0aaaaaaaaaaa\"",
         "it sends, at byte 0 of 1: 31 \"1\""},
    };
    for (const BytesCase& row : kCases) {
        const Observation what = Said([&] { ExpectBytes("it sends", row.expected, row.got, "means"); });
        EXPECT_EQ(what.expected, row.saysExpected) << row.name;
        EXPECT_EQ(what.got, row.saysGot) << row.name;
    }
}

} // namespace
