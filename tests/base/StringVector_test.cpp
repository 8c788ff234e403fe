#include "base/StringVector.h"
#include "base/internal/Tokens.h"
#include "tests/support/ScopedLocale.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <type_traits>

namespace {

using List = std::vector<std::string>;
using namespace std::string_literals;

string_vector Make(std::initializer_list<std::string> elements) {
    string_vector list;
    list.assign(elements);
    return list;
}

// The class adds members and nothing else.
static_assert(sizeof(string_vector) == sizeof(List));
static_assert(std::is_base_of_v<List, string_vector>);
static_assert(!std::is_polymorphic_v<string_vector>);
static_assert(std::is_nothrow_move_constructible_v<string_vector>);

struct SplitCase {
    const char* name;
    const char* text;
    const char* delimiters;
    char quote;
    List want;
};

const SplitCase kSplits[] = {
    {"null text", nullptr, ",", 0, {}},
    {"empty text", "", ",", 0, {}},
    {"null delimiters", "a,b", nullptr, 0, {}},
    {"empty delimiters", "a,b", "", 0, {}},
    {"one token", "abc", ",", 0, {"abc"}},
    {"two tokens", "a,b", ",", 0, {"a", "b"}},
    {"runs and an end", "a,,b,", ",", 0, {"a", "b"}},
    {"a start", ",,a", ",", 0, {"a"}},
    {"nothing but delimiters", ",,", ",", 0, {}},
    {"several delimiters", "a =\tb", " \t=", 0, {"a", "b"}},
    {"blanks stay", " a , b ", ",", 0, {" a ", " b "}},
    {"bytes above 0x7F",
     "\xFF"
     "a\xFE"
     "b",
     "\xFE",
     0,
     {"\xFF"
      "a",
      "b"}},
    {"a byte above 0x7F quotes", "\xFF,\xFF,b", ",", '\xFF', {",", "b"}},
    {"no quote character", "'a,b'", ",", 0, {"'a", "b'"}},
    {"quoted", "'a,b',c", ",", '\'', {"a,b", "c"}},
    {"quoted inside", "ab'c d'e", " ", '\'', {"abc de"}},
    {"quoted at the end of a token", "ab'c d' e", " ", '\'', {"abc d", "e"}},
    {"two quoted stretches", "'a b'c'd e' f", " ", '\'', {"a bcd e", "f"}},
    {"a doubled quote", "'a''b'", ",", '\'', {"a'b"}},
    {"a doubled quote alone", "''''", ",", '\'', {"'"}},
    {"a doubled quote outside is two empty stretches", "a''b", ",", '\'', {"ab"}},
    {"three quotes", "'''", ",", '\'', {"'"}},
    {"never closed", "a,'b,c", ",", '\'', {"a", "b,c"}},
    {"never closed after a doubled quote", "'b,''", ",", '\'', {"b,'"}},
    {"an empty element", "'',x", ",", '\'', {"", "x"}},
    {"empty stretches only", "'' '',x", " ,", '\'', {"", "", "x"}},
    {"a lone quote at the end", "x,'", ",", '\'', {"x", ""}},
    {"a lone quote", "'", ",", '\'', {""}},
    {"a quote closing at the end", "x'y'", ",", '\'', {"xy"}},
    {"the quote is a delimiter", "a'b,c'd", "',", '\'', {"a", "b", "c", "d"}},
    {"the quote is the only delimiter", "''a''", "'", '\'', {"a"}},
    {"other quotes are plain", "\"a b\"", " ", '\'', {"\"a", "b\""}},
};

TEST(Split, CutsATextIntoTokens) {
    for (const SplitCase& c : kSplits) {
        SCOPED_TRACE(c.name);
        string_vector list = Make({"old", "content", "of the list"});
        list.Split(c.text, c.delimiters, c.quote);
        EXPECT_EQ(List(list), c.want);
    }
}

TEST(Split, GrowsAListBeyondItsOldSize) {
    string_vector list = Make({"a string that is too long for the small buffer"});
    list.Split("x,y,z", ",", 0);
    EXPECT_EQ(List(list), (List{"x", "y", "z"}));
    list.Split("x", ",", 0);
    EXPECT_EQ(List(list), List{"x"});
}

TEST(Split, TakesATextFromTheListItself) {
    string_vector list = Make({"x", "one,two,three,and a part beyond the small buffer"});
    list.Split(list[1].c_str(), ",", 0);
    EXPECT_EQ(List(list), (List{"one", "two", "three", "and a part beyond the small buffer"}));
    list.Split(list[3].c_str() + 4, " ", 0);
    EXPECT_EQ(List(list), (List{"a", "part", "beyond", "the", "small", "buffer"}));
    list.Split(list[0].c_str(), " ", 0);
    EXPECT_EQ(List(list), List{"a"});
    list.Split(list[0].c_str() + 1, " ", 0);
    EXPECT_EQ(List(list), List{});
}

TEST(Split, TakesItsDelimitersFromTheListItself) {
    string_vector list = Make({",", "a,b"});
    list.Split(list[1].c_str(), list[0].c_str(), 0);
    EXPECT_EQ(List(list), (List{"a", "b"}));
}

TEST(Split, TakesTextsOfAnyLength) {
    const std::string longToken(100'000, 'x');
    string_vector list;
    list.Split((longToken + ";'" + longToken + ";'").c_str(), ";", '\'');
    EXPECT_EQ(List(list), (List{longToken, longToken + ";"}));
}

TEST(TokenReader, LeavesTheTokenAloneAtTheEnd) {
    const vrx::ByteSet comma(",");
    vrx::TokenReader reader("a,", comma, 0);
    std::string_view token;
    ASSERT_TRUE(reader.Next(token));
    EXPECT_EQ(token, "a");
    EXPECT_FALSE(reader.Next(token));
    EXPECT_EQ(token, "a");
    EXPECT_FALSE(reader.Next(token));
}

struct FindCase {
    const char* name;
    const char* text;
    size_t start;
    int want;
};

const string_vector kList = Make({"abc", "", "ABC", "b\xE4r", "abc", "ab\0c"s, "abcd", "ab"});

constexpr FindCase kFinds[] = {
    {"the first", "abc", 0, 0},
    {"a later one", "abc", 1, 4},
    {"at the start index", "abc", 4, 4},
    {"behind the last one", "abc", 5, -1},
    {"by case", "ABC", 0, 2},
    {"the last", "ab", 0, 7},
    {"an empty element", "", 0, 1},
    {"no empty element", "", 2, -1},
    {"bytes above 0x7F", "b\xE4r", 0, 3},
    {"none", "x", 0, -1},
    {"start at the size", "abc", 8, -1},
    {"start beyond the size", "abc", SIZE_MAX, -1},
    {"null", nullptr, 0, -1},
};

TEST(Find, ComparesWholeElements) {
    for (const FindCase& c : kFinds) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(kList.find(c.text, c.start), c.want);
    }
}

constexpr FindCase kFindsIgnoringCase[] = {
    {"the first", "aBc", 0, 0},
    {"another case", "abc", 1, 2},
    {"at the start index", "ABC", 4, 4},
    {"up to the NUL of an element", "AB", 0, 5},
    {"the last", "aB", 6, 7},
    {"longer", "ABCD", 0, 6},
    {"an empty element", "", 0, 1},
    {"bytes above 0x7F", "B\xE4R", 0, 3},
    {"a capital above 0x7F is another byte", "B\xC4R", 0, -1},
    {"none", "x", 0, -1},
    {"start at the size", "abc", 8, -1},
    {"start beyond the size", "abc", SIZE_MAX, -1},
    {"null", nullptr, 0, -1},
};

TEST(FindI, ComparesLikeStrcasecmp) {
    for (const FindCase& c : kFindsIgnoringCase) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(kList.findi(c.text, c.start), c.want);
    }
}

TEST(FindI, FollowsTheLocale) {
    const ScopedLocale locale(ScopedLocale::kLatin1);
    EXPECT_EQ(kList.findi("B\xC4R", 0), 3);
    EXPECT_EQ(kList.findi("\xC4", 0), -1);
}

TEST(FindI, TakesNoByteOfAMultiByteCharacterForALetter) {
    const ScopedLocale locale(ScopedLocale::kUtf8);
    EXPECT_EQ(kList.findi("B\xC4R", 0), -1);
    EXPECT_EQ(kList.findi("ABC", 0), 0);
}

constexpr FindCase kFindsWild[] = {
    {"a plain text", "abc", 0, 0},
    {"by case", "A*", 0, 2},
    {"stars", "*d", 0, 6},
    {"a question mark", "b?r", 0, 3},
    {"everything but the empty element", "*", 1, 2},
    {"up to the NUL of an element", "ab", 0, 5},
    {"two letters", "??", 6, 7},
    {"an empty pattern", "", 0, -1},
    {"none", "x*", 0, -1},
    {"start at the size", "*", 8, -1},
    {"start beyond the size", "*", SIZE_MAX, -1},
    {"null where no element is left", nullptr, 8, -1},
};

TEST(FindWild, MatchesAsCompareWild) {
    for (const FindCase& c : kFindsWild) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(kList.findwild(c.text, c.start), c.want);
    }
}

TEST(FindWild, ThrowsOnANullPattern) {
    try {
        (void)kList.findwild(nullptr, 7);
        FAIL() << "nothing was thrown";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
    }
}

TEST(FindWild, TakesANullPatternOnAnEmptyList) {
    EXPECT_EQ(string_vector().findwild(nullptr, 0), -1);
}

} // namespace
