#include "base/BaseHelpers.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace std::string_literals;
using Lines = std::vector<std::string>;

namespace {

string_vector Profile(const Lines& lines) {
    string_vector list;
    list.assign(lines.begin(), lines.end());
    return list;
}

/// The profile after WriteProfileStr.
Lines Written(const Lines& lines, const char* section, const char* key, const char* value) {
    string_vector list = Profile(lines);
    list.WriteProfileStr(section, key, value);
    return list;
}

} // namespace

TEST(GetProfileStr, ReadsOneEntryLine) {
    const struct {
        const char* name;
        std::string line;
        const char* want;
    } cases[] = {
        {"plain", "x=5", "5"},
        {"comment cut with its blanks", "x=5 ; five", "5"},
        {"comment cut with TABs", "x=5 \t \t;five", "5"},
        {"blanks in front of the value stay", "x= 5 ;", " 5"},
        {"cut at the first semicolon", "x=5;6;7", "5"},
        {"nothing but a comment", "x=;c", ""},
        {"nothing but blanks and a comment", "x= \t;c", ""},
        {"without a comment blanks stay", "x= 5 \t", " 5 \t"},
        {"a line end is no blank", "x=5\r;", "5\r"},
        {"no value", "x=", "dflt"},
        {"no separator", "x", "dflt"},
        {"two separators", "x=a=b", "dflt"},
        {"a third part in the comment", "x=a ;b=c", "dflt"},
        {"a separator at the end", "x=a=", "a"},
        {"a run of separators", "X==7", "7"},
        {"separators in front", "==x==7==", "7"},
        {"the key in capitals", "X=7", "7"},
        {"a longer key", "xy=7", "dflt"},
        {"a blank behind the key", "x =7", "dflt"},
        {"a blank in front of the key", " x=7", "dflt"},
        {"only separators", "==", "dflt"},
        {"a comment", ";x=7", "dflt"},
        {"a NUL ends the line", "x=5\0=6"s, "5"},
        {"a NUL in the key", "x\0=6"s, "dflt"},
        {"bytes above 0x7F", "x=\xFF\x80", "\xFF\x80"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Profile({"[A]", c.line}).GetProfileStr("A", "x", "dflt"), c.want);
    }
}

TEST(GetProfileStr, FindsTheSection) {
    const struct {
        const char* name;
        Lines lines;
        const char* want;
    } cases[] = {
        {"no line", {}, "dflt"},
        {"no section", {"x=1"}, "dflt"},
        {"in capitals or not", {"[a]", "x=1"}, "1"},
        {"the first of that name", {"[A]", "x=1", "[A]", "x=2"}, "1"},
        {"a later one is never reached", {"[A]", "y=1", "[A]", "x=2"}, "dflt"},
        {"behind others", {"x=0", "[B]", "x=1", "[AA]", "x=2", "[A]", "x=3"}, "3"},
        {"a header with a leading blank is none", {" [A]", "x=1"}, "dflt"},
        {"a header with a trailing blank is none", {"[A] ", "x=1"}, "dflt"},
        {"a header with a comment is none", {"[A] ;c", "x=1"}, "dflt"},
        {"a header with a NUL behind it is none", {"[A]\0"s, "x=1"}, "dflt"},
        {"a bracket in the other place", {"(A]", "[A)", "x=1"}, "dflt"},
        {"one with a comment ends the section above", {"[A]", "[A] ;c", "x=1"}, "dflt"},
        {"one with a leading blank does not", {"[A]", " [B]", "x=1"}, "1"},
        {"a lone bracket ends it", {"[A]", "[", "x=1"}, "dflt"},
        {"the header is the last line", {"x=1", "[A]"}, "dflt"},
        {"comments and empty lines are passed over", {"[A]", ";x=1", "", ";", "x=2"}, "2"},
        {"the first entry counts", {"[A]", "X=1", "x=2"}, "1"},
        {"a first entry without value hides the next", {"[A]", "x", "x=2"}, "dflt"},
        {"separators alone end the search", {"[A]", "==", "x=2"}, "dflt"},
        {"separators alone in a comment do not", {"[A]", ";==", "x=2"}, "2"},
        {"a line that begins with a NUL ends it, too", {"[A]", "\0x"s, "x=2"}, "dflt"},
        {"the next section ends it", {"[A]", "y=1", "[B]", "x=2"}, "dflt"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Profile(c.lines).GetProfileStr("A", "x", "dflt"), c.want);
    }
}

TEST(GetProfileStr, Arguments) {
    const string_vector list = Profile({"[A]", "x=1", "a b=2", "[]", "x=3", "[b]]", "x=4"});
    EXPECT_EQ(list.GetProfileStr(nullptr, "x", "dflt"), "");
    EXPECT_EQ(list.GetProfileStr("", "x", "dflt"), "");
    EXPECT_EQ(list.GetProfileStr("A", nullptr, "dflt"), "");
    EXPECT_EQ(list.GetProfileStr("A", "", "dflt"), "");
    EXPECT_EQ(list.GetProfileStr("A", "no", nullptr), "");
    EXPECT_EQ(list.GetProfileStr("no", "x", nullptr), "");
    EXPECT_EQ(list.GetProfileStr("A", "x=1", "dflt"), "dflt");
    EXPECT_EQ(list.GetProfileStr("A", "a B", "dflt"), "2");
    EXPECT_EQ(list.GetProfileStr("B]", "x", "dflt"), "4");
}

TEST(GetProfileIntg, ReadsNumbers) {
    const struct {
        const char* name;
        const char* line;
        int want;
    } cases[] = {
        {"digits", "x=12", 12},
        {"up to a letter", "x=12abc", 12},
        {"no digit is 0, not the default", "x=abc", 0},
        {"no hexadecimal", "x=0x10", 0},
        {"no octal", "x=010", 10},
        {"blanks in front", "x= \t12", 12},
        {"a minus", "x=-12", -12},
        {"a plus", "x=+12", 12},
        {"a comment", "x=12;3", 12},
        {"greatest", "x=2147483647", INT_MAX},
        {"cut to 32 bits", "x=2147483648", INT_MIN},
        {"cut to 32 bits again", "x=4294967297", 1},
        {"beyond 64 bits", "x=99999999999999999999", -1},
        {"beyond 64 bits below", "x=-99999999999999999999", 0},
        {"no value", "x=", 7},
        {"nothing but a comment", "x=;1", 7},
        {"two separators", "x=1=2", 7},
        {"absent", "y=1", 7},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Profile({"[A]", c.line}).GetProfileIntg("A", "x", 7), c.want);
    }
}

TEST(GetProfileIntg, NoNameGivesTheDefault) {
    const string_vector list = Profile({"[A]", "x=1"});
    EXPECT_EQ(list.GetProfileIntg(nullptr, "x", 7), 7);
    EXPECT_EQ(list.GetProfileIntg("", "x", 7), 7);
    EXPECT_EQ(list.GetProfileIntg("A", nullptr, 7), 7);
    EXPECT_EQ(list.GetProfileIntg("A", "", -7), -7);
    EXPECT_EQ(list.GetProfileIntg("B", "x", 7), 7);
}

TEST(WriteProfileStr, SetsAnEntry) {
    const struct {
        const char* name;
        Lines lines;
        Lines want;
    } cases[] = {
        {"above the empty line", {"[A]", "x=1", "", "[B]"}, {"[A]", "x=1", "y=2", "", "[B]"}},
        {"above the last line, whatever it is", {"[A]", "x=1", "[B]"}, {"[A]", "y=2", "x=1", "[B]"}},
        {"above a comment", {"[A]", "x=1", ";c", "[B]"}, {"[A]", "x=1", "y=2", ";c", "[B]"}},
        {"above the header of an empty section", {"[A]", "[B]"}, {"y=2", "[A]", "[B]"}},
        {"above the header inside the list", {"[C]", "[A]", "[B]"}, {"[C]", "y=2", "[A]", "[B]"}},
        {"above one empty line", {"[A]", "", "[B]"}, {"[A]", "y=2", "", "[B]"}},
        {"at the end of the last section", {"[B]", "[A]", "x=1", ""}, {"[B]", "[A]", "x=1", "", "y=2"}},
        {"behind a header at the end", {"[A]"}, {"[A]", "y=2"}},
        {"no section", {"z=1"}, {"z=1", "[A]", "y=2"}},
        {"no line", {}, {"[A]", "y=2"}},
        {"replaces", {"[A]", "y=1", "z=3"}, {"[A]", "y=2", "z=3"}},
        {"replaces the whole line", {"[A]", "Y==1=3 ;c"}, {"[A]", "y=2"}},
        {"replaces a key without value", {"[A]", "y"}, {"[A]", "y=2"}},
        {"the first of its name", {"[A]", "y=1", "y=3"}, {"[A]", "y=2", "y=3"}},
        {"passes comments over", {"[A]", ";y=1", "", "y=3"}, {"[A]", ";y=1", "", "y=2"}},
        {"replaces separators alone", {"[A]", "x=1", "==", "y=3"}, {"[A]", "x=1", "y=2", "y=3"}},
        {"in the first section of its name",
         {"[a]", "x=1", "[A]", "y=1"},
         {"[a]", "y=2", "x=1", "[A]", "y=1"}},
        {"a header with a comment is another line", {"[A] ;c"}, {"[A] ;c", "[A]", "y=2"}},
        {"a header with a comment ends the section",
         {"[A]", "x=1", "", "[A] ;c", "y=1"},
         {"[A]", "x=1", "y=2", "", "[A] ;c", "y=1"}},
        {"blanks around the key make another", {"[A]", "y =1"}, {"[A]", "y =1", "y=2"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Written(c.lines, "A", "y", "2"), c.want);
    }
}

TEST(WriteProfileStr, SpellsNamesAsTheCallerDoes) {
    EXPECT_EQ(Written({"[B]"}, "New One", "Some Key", " v ; c = 1"),
              (Lines{"[B]", "[New One]", "Some Key= v ; c = 1"}));
    EXPECT_EQ(Written({"[a]", "KEY=1"}, "A", "Key", ""), (Lines{"[a]", "Key="}));
    EXPECT_EQ(Written({"[A]", "x=1"}, "A", "", "2"), (Lines{"[A]", "x=1", "=2"}));
    EXPECT_EQ(Written({"[A]", "a=b"}, "A", "a=b", "2"), (Lines{"[A]", "a=b", "a=b=2"}));
}

TEST(WriteProfileStr, NoSectionNameDoesNothing) {
    const Lines lines{"[]", "x=1"};
    EXPECT_EQ(Written(lines, nullptr, "x", "2"), lines);
    EXPECT_EQ(Written(lines, "", "x", "2"), lines);
    EXPECT_EQ(Written(lines, nullptr, nullptr, nullptr), lines);
}

TEST(WriteProfileStr, ANullValueIsWrittenOut) {
    EXPECT_EQ(Written({"[A]", "x=1"}, "A", "x", nullptr), (Lines{"[A]", "x=(null)"}));
    EXPECT_EQ(Written({"[A]", "x=1", "", "[B]"}, "A", "y", nullptr),
              (Lines{"[A]", "x=1", "y=(null)", "", "[B]"}));
    EXPECT_EQ(Written({"[B]"}, "A", "x", nullptr), (Lines{"[B]"}));
}

TEST(WriteProfileStr, NullKeyAndValueRemoveTheSection) {
    EXPECT_EQ(Written({"[A]", "x=1", "", "[B]", "z=3"}, "A", nullptr, nullptr), (Lines{"[B]", "z=3"}));
    EXPECT_EQ(Written({"[B]", "z=3", "[A]", ";c", "", "x=1"}, "a", nullptr, nullptr), (Lines{"[B]", "z=3"}));
    EXPECT_EQ(Written({"[A]"}, "A", nullptr, nullptr), Lines{});
    EXPECT_EQ(Written({"[A]", "[A]", "x=1"}, "A", nullptr, nullptr), (Lines{"[A]", "x=1"}));
    EXPECT_EQ(Written({"[A]", "x=1", "[A] ;c"}, "A", nullptr, nullptr), (Lines{"[A] ;c"}));
    EXPECT_EQ(Written({"[A]", "==", " [B]"}, "A", nullptr, nullptr), Lines{});
    EXPECT_EQ(Written({"[B]", "x=1"}, "A", nullptr, nullptr), (Lines{"[B]", "x=1"}));
}

TEST(WriteProfileStr, ANullKeyWithAValueChangesNothing) {
    EXPECT_EQ(Written({"[A]", "x=1"}, "A", nullptr, "2"), (Lines{"[A]", "x=1"}));
    EXPECT_EQ(Written({"[B]"}, "A", nullptr, "2"), (Lines{"[B]"}));
}

TEST(WriteProfileStr, LinesMayBeOfAnyLength) {
    const std::string big(100'000, 'v');
    EXPECT_EQ(Written({"[A]"}, "A", "x", big.c_str()), (Lines{"[A]", "x=" + big}));
    EXPECT_EQ(Written({}, big.c_str(), "x", "1"), (Lines{"[" + big + "]", "x=1"}));
}

TEST(WriteProfileStr, ArgumentsMayBeElementsOfTheList) {
    string_vector list = Profile({"[A]", "a line that owns memory of its own", "[B]"});
    list.WriteProfileStr("A", list[1].c_str(), list[1].c_str());
    EXPECT_EQ(list, Profile({"[A]", "a line that owns memory of its own=a line that owns memory of its own",
                             "[B]"}));
    list = Profile({"name", "key", "value"});
    list.WriteProfileStr(list[0].c_str(), list[1].c_str(), list[2].c_str());
    EXPECT_EQ(list, Profile({"name", "key", "value", "[name]", "key=value"}));
}

TEST(WriteProfileIntg, WritesDecimals) {
    string_vector list;
    list.WriteProfileIntg("A", "x", 0);
    list.WriteProfileIntg("A", "y", INT_MIN);
    list.WriteProfileIntg("A", "z", INT_MAX);
    list.WriteProfileIntg("a", "X", -5);
    EXPECT_EQ(list, Profile({"[A]", "X=-5", "y=-2147483648", "z=2147483647"}));
}

TEST(WriteProfileIntg, NullsChangeNothing) {
    string_vector list = Profile({"[A]", "x=1"});
    list.WriteProfileIntg(nullptr, "x", 2);
    list.WriteProfileIntg("", "x", 2);
    list.WriteProfileIntg("A", nullptr, 2);
    list.WriteProfileIntg("B", nullptr, 2);
    EXPECT_EQ(list, Profile({"[A]", "x=1"}));
}

TEST(Profile, AWrittenEntryReadsBack) {
    string_vector list = Profile({"[A]", "x=1", "", "[B]", "y=2"});
    list.WriteProfileStr("A", "new", "some value");
    list.WriteProfileIntg("B", "number", -42);
    EXPECT_EQ(list.GetProfileStr("a", "NEW", ""), "some value");
    EXPECT_EQ(list.GetProfileIntg("b", "NUMBER", 0), -42);
}
