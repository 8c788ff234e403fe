#include "base/StringText.h"
#include "tests/support/ScopedLocale.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

struct TextCase {
    const char* name;
    std::string text;
    std::string want;
};

// Longer than any block that a fast loop could work in.
const std::string kLongLower = "the quick brown fox jumps over the lazy dog, 0123456789 times @[`{";
const std::string kLongUpper = "THE QUICK BROWN FOX JUMPS OVER THE LAZY DOG, 0123456789 TIMES @[`{";

const TextCase kUppers[] = {
    {"empty", "", ""},
    {"letters and a digit", "ab1", "AB1"},
    {"capitals stay", "aBC", "ABC"},
    {"the ends of the alphabet and their neighbours", "`az{@AZ[", "`AZ{@AZ["},
    {"bytes above 0x7F", "\x80\xE4\xFF", "\x80\xE4\xFF"},
    {"a NUL ends the text", "ab\0cd"s, "AB"},
    {"a NUL in front", "\0ab"s, ""},
    {"a long text", kLongLower, kLongUpper},
    {"a long text with other bytes", kLongLower + "\xE4" + kLongLower, kLongUpper + "\xE4" + kLongUpper},
};

TEST(ToUpper, ChangesAsciiLettersByDefault) {
    for (const TextCase& c : kUppers) {
        SCOPED_TRACE(c.name);
        std::string text = c.text;
        String::ToUpper(text);
        EXPECT_EQ(text, c.want);
    }
}

const TextCase kLowers[] = {
    {"empty", "", ""},
    {"letters and a digit", "AB1", "ab1"},
    {"small letters stay", "Abc", "abc"},
    {"the ends of the alphabet and their neighbours", "@AZ[`az{", "@az[`az{"},
    {"bytes above 0x7F", "\x80\xC4\xFF", "\x80\xC4\xFF"},
    {"a NUL ends the text", "AB\0CD"s, "ab"},
    {"a NUL in front", "\0AB"s, ""},
    {"a long text", kLongUpper, kLongLower},
    {"a long text with other bytes", kLongUpper + "\xC4" + kLongUpper, kLongLower + "\xC4" + kLongLower},
};

TEST(ToLower, ChangesAsciiLettersByDefault) {
    for (const TextCase& c : kLowers) {
        SCOPED_TRACE(c.name);
        std::string text = c.text;
        String::ToLower(text);
        EXPECT_EQ(text, c.want);
    }
}

TEST(Case, FollowsTheLocale) {
    const ScopedLocale locale(ScopedLocale::kLatin1);
    std::string text = "m\xE4rz \xDF\xFF";
    String::ToUpper(text);
    EXPECT_EQ(text, "M\xC4RZ \xDF\xFF"); // neither has a capital in this encoding
    String::ToLower(text);
    EXPECT_EQ(text, "m\xE4rz \xDF\xFF");

    std::string longText = kLongLower + "\xE4";
    String::ToUpper(longText);
    EXPECT_EQ(longText, kLongUpper + "\xC4");
    String::ToLower(longText);
    EXPECT_EQ(longText, kLongLower + "\xE4");
}

TEST(Case, LeavesTheBytesOfMultiByteCharacters) {
    const ScopedLocale locale(ScopedLocale::kUtf8);
    std::string text = "m\xC3\xA4rz";
    String::ToUpper(text);
    EXPECT_EQ(text, "M\xC3\xA4RZ");
    String::ToLower(text);
    EXPECT_EQ(text, "m\xC3\xA4rz");
}

const TextCase kLeftTrims[] = {
    {"empty", "", ""},
    {"blanks", " \t a b", "a b"},
    {"nothing to trim", "a ", "a "},
    {"only blanks", " \t ", ""},
    {"line ends are no blanks", " \n a", "\n a"},
    {"a NUL ends the text", "  a\0b"s, "a"},
    {"a NUL behind the blanks", " \0a"s, ""},
    {"a NUL in front", "\0 a"s, ""},
    {"a byte above 0x7F", " \xA0", "\xA0"},
};

TEST(TrimLeft, RemovesLeadingBlanks) {
    for (const TextCase& c : kLeftTrims) {
        SCOPED_TRACE(c.name);
        std::string text = c.text;
        String::TrimLeft(text);
        EXPECT_EQ(text, c.want);
    }
}

struct RightTrimCase {
    const char* name;
    std::string text;
    std::string wantBlanks;
    std::string wantLineEnds;
};

const RightTrimCase kRightTrims[] = {
    {"empty", "", "", ""},
    {"nothing to trim", " a", " a", " a"},
    {"blanks", "a \t ", "a", "a"},
    {"only blanks", " \t ", "", ""},
    {"a line feed at the end", "x \t\r\n", "x \t\r\n", "x"},
    {"only line ends", "\r\n", "\r\n", ""},
    {"blanks behind a line end", "x\r\n \t", "x\r\n", "x"},
    {"other white space stays", "x\v\f", "x\v\f", "x\v\f"},
    {"NULs stay", "a\0b\0 "s, "a\0b\0"s, "a\0b\0"s},
    {"a byte above 0x7F", "a\xA0 ", "a\xA0", "a\xA0"},
};

TEST(TrimRight, RemovesTrailingBlanksAndLineEnds) {
    for (const RightTrimCase& c : kRightTrims) {
        SCOPED_TRACE(c.name);
        std::string text = c.text;
        String::TrimRight(text, false);
        EXPECT_EQ(text, c.wantBlanks);
        text = c.text;
        String::TrimRight(text, true);
        EXPECT_EQ(text, c.wantLineEnds);
    }
}

const TextCase kTrims[] = {
    {"empty", "", ""},
    {"only blanks", "   ", ""},
    {"trailing blanks", "ab \t", "ab"},
    {"as many on both sides", "  ab  ", "ab  "},
    {"one on both sides", " ab ", "ab "},
    {"more behind than in front", " ab\t \t", "ab\t"},
    {"more in front than behind", "   ab ", "ab "},
    {"only in front", "  ab", "ab"},
    {"inner blanks", "a b", "a b"},
    {"line ends are no blanks", " a\n ", "a\n "},
    {"NULs are characters", " \0a\0  "s, "\0a\0 "s},
};

TEST(Trim, LeavesOneTrailingBlankForEachLeadingOne) {
    for (const TextCase& c : kTrims) {
        SCOPED_TRACE(c.name);
        std::string text = c.text;
        String::Trim(text);
        EXPECT_EQ(text, c.want);
    }
}

struct ReplaceCase {
    const char* name;
    std::string text;
    std::string find;
    std::string replacement;
    std::string want;
};

const ReplaceCase kReplaces[] = {
    {"empty text", "", "a", "b", ""},
    {"nothing to find", "abc", "", "x", "abc"},
    {"no occurrence", "abc", "d", "x", "abc"},
    {"no overlap", "aaa", "aa", "b", "ba"},
    {"replaced text is not searched", "ab", "a", "aa", "aab"},
    {"nor joined with what follows", "aab", "ab", "b", "ab"},
    {"the whole text", "abc", "abc", "x", "x"},
    {"longer than the text", "ab", "abc", "x", "ab"},
    {"at both ends", "xax", "x", "yy", "yyayy"},
    {"the same length", "a-b-c", "-", "+", "a+b+c"},
    {"by nothing", "a, b, c", ", ", "", "abc"},
    {"everything by nothing", "aaaa", "a", "", ""},
    {"NULs", "a\0b\0"s, "\0"s, "\0\0"s, "a\0\0b\0\0"s},
    {"bytes above 0x7F", "\xFF\xFE", "\xFF", "x", "x\xFE"},
    {"an almost at the end", "abab", "abc", "x", "abab"},
};

TEST(Replace, ReplacesFromLeftToRight) {
    for (const ReplaceCase& c : kReplaces) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(String::Replace(c.text, c.find, c.replacement), c.want);
    }
}

TEST(Replace, TakesOneTextForAll) {
    const std::string text = "ab";
    EXPECT_EQ(String::Replace(text, text, text), "ab");
}

struct MergeCase {
    const char* name;
    std::vector<std::string> items;
    std::string separator;
    std::string want;
};

const MergeCase kMerges[] = {
    {"no items", {}, ", ", ""},
    {"one item", {"a"}, ", ", "a"},
    {"an empty item", {""}, ", ", ""},
    {"empty among others", {"a", "", "b"}, ", ", "a, , b"},
    {"empty at the ends", {"", "a", ""}, "-", "-a-"},
    {"no separator", {"a", "b", "c"}, "", "abc"},
    {"NULs", {"a\0b"s, "c"}, "\0"s, "a\0b\0c"s},
};

TEST(Merge, PutsTheSeparatorBetweenItems) {
    for (const MergeCase& c : kMerges) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(String::Merge(c.items, c.separator), c.want);
    }
}

struct WildCase {
    const char* text;
    const char* pattern;
    bool want;
    const char* wantCapture;
};

constexpr WildCase kWilds[] = {
    {"", "", false, ""},
    {"", "*", false, ""},
    {"", "a", false, ""},
    {"abc", "", false, ""},
    {"abc", "abc", true, ""},
    {"abc", "ab", false, ""},
    {"abc", "abcd", false, ""},
    {"abc", "a?c", true, ""},
    {"abc", "???", true, ""},
    {"abc", "??", false, ""},
    {"abc", "????", false, ""},
    {"abc", "ABC", false, ""},
    {"abc", "A*", false, ""},
    {"abc", "*", true, ""},
    {"abc", "a*", true, ""},
    {"abc", "abc*", true, ""},
    {"abc", "abcd*", false, ""},
    {"abc", "*c", true, "*ab"},
    {"abc", "*b", false, "*abc"},
    {"abc", "*bc", true, "*a"},
    {"abc", "a*c", true, "*b"},
    {"abc", "ab*c", true, "*"},
    {"abc", "*?", true, "*ab"},
    {"a.b", "*.*", true, "*a"},
    {"x", "*x*", true, "*"},
    {"a", "a*", true, ""},
    {"a", "**", true, "*"},
    // Only the last star takes an empty rest; the others are noted all the same.
    {"a", "a**", false, "*"},
    {"a", "a*?", false, "*"},
    {"a", "a***", false, "*"},
    {"ab", "a*?", true, "*"},
    {"ab", "a**", true, "*"},
    // The last character is absorbed as well before a star gives up, and nothing is taken back.
    {"ab", "*c", false, "*ab"},
    {"aab", "*a*c", false,
     "*"
     "*ab"
     "a"
     "*b"
     "ab"},
    {"abab", "*b*b", true,
     "*a"
     "*a"},
    // Stars and question marks in the text are ordinary.
    {"*", "?", true, ""},
    {"?", "a", false, ""},
    {"a*c", "a*c", true,
     "*"
     "*"},
    {"\xFF\xFE", "\xFF?", true, ""},
    {"\xFF\xFE", "*\xFE", true, "*\xFF"},
};

TEST(CompareWild, MatchesStarsAndQuestionMarks) {
    for (const WildCase& c : kWilds) {
        SCOPED_TRACE("text '" + std::string(c.text) + "', pattern '" + c.pattern + "'");
        EXPECT_EQ(String::CompareWild(c.text, c.pattern, nullptr), c.want);
        std::string capture;
        EXPECT_EQ(String::CompareWild(c.text, c.pattern, &capture), c.want);
        EXPECT_EQ(capture, c.wantCapture);
    }
}

TEST(CompareWild, AppendsToTheCapture) {
    std::string capture = "before:";
    EXPECT_TRUE(String::CompareWild("a.b", "*.*", &capture));
    EXPECT_EQ(capture, "before:*a");
    EXPECT_FALSE(String::CompareWild("", "*", &capture));
    EXPECT_EQ(capture, "before:*a");
}

TEST(CompareWild, StopsAtNuls) {
    std::string capture;
    EXPECT_TRUE(String::CompareWild("ab\0c"s, "a?\0d"s, &capture));
    EXPECT_TRUE(String::CompareWild("ab\0c"s, "a?\0d"s, nullptr));
    EXPECT_FALSE(String::CompareWild("\0ab"s, "*", nullptr));
    EXPECT_FALSE(String::CompareWild("ab", "\0*"s, nullptr));
}

TEST(CompareWild, TakesTheTextItselfForTheCapture) {
    std::string text = "a.b";
    EXPECT_TRUE(String::CompareWild(text, "*.*", &text));
    EXPECT_EQ(text, "a.b*a");
    std::string pattern = "*.*";
    EXPECT_TRUE(String::CompareWild("a.b", pattern, &pattern));
    EXPECT_EQ(pattern, "*.**a");
}

TEST(CompareWild, AnswersAtOnceWhereTryingEverythingWouldTakeForever) {
    const std::string text(20'000, 'a');
    std::string pattern;
    for (int i = 0; i < 40; ++i) pattern += "*a?";
    EXPECT_FALSE(String::CompareWild(text, pattern + "*b", nullptr));
    EXPECT_FALSE(String::CompareWild(text, pattern + "*b*", nullptr));
    EXPECT_TRUE(String::CompareWild(text, pattern + "*a", nullptr));
}

TEST(CompareWild, NeedsNoDeepStackForManyStars) {
    const std::string stars(1'000'000, '*');
    std::string capture;
    EXPECT_TRUE(String::CompareWild("a", stars, &capture));
    EXPECT_EQ(capture, std::string(999'999, '*'));
    EXPECT_TRUE(String::CompareWild("a", stars, nullptr));
}

/// The rules of the match, word by word.
bool LiteralMatch(const char* text, const char* pattern, std::string& capture) {
    if (*text == '\0' || *pattern == '\0') return false;
    if (*pattern != '*') {
        if (*text != *pattern && *pattern != '?') return false;
        ++text;
        ++pattern;
        while (*text != '\0' && *pattern != '\0' && *pattern != '*') {
            if (*pattern != '?' && *pattern != *text) return false;
            ++text;
            ++pattern;
        }
        if (*pattern == '\0') return *text == '\0';
        if (*pattern != '*') return false;
    }
    if (pattern[1] == '\0') return true;
    capture += '*';
    while (*text != '\0') {
        if (LiteralMatch(text, pattern + 1, capture)) return true;
        capture += *text++;
    }
    return false;
}

/// Every text over the letters, from length 0 to `longest`.
std::vector<std::string> AllTexts(const std::string& letters, size_t longest) {
    std::vector<std::string> texts = {""};
    for (size_t i = 0; texts[i].size() < longest; ++i) {
        for (const char letter : letters) texts.push_back(texts[i] + letter);
    }
    return texts;
}

TEST(CompareWild, AgreesWithTheLiteralRulesOnAllShortTexts) {
    const std::vector<std::string> texts = AllTexts("ab", 6);
    const std::vector<std::string> patterns = AllTexts("ab*?", 6);
    ASSERT_EQ(texts.size(), 127u);
    ASSERT_EQ(patterns.size(), 5461u);
    for (const std::string& text : texts) {
        for (const std::string& pattern : patterns) {
            std::string wantCapture;
            const bool want = LiteralMatch(text.c_str(), pattern.c_str(), wantCapture);
            std::string capture;
            ASSERT_EQ(String::CompareWild(text, pattern, nullptr), want) << text << " with " << pattern;
            ASSERT_EQ(String::CompareWild(text, pattern, &capture), want) << text << " with " << pattern;
            ASSERT_EQ(capture, wantCapture) << text << " with " << pattern;
        }
    }
}

} // namespace
