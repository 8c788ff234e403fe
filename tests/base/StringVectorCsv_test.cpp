#include "base/BaseHelpers.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace std::string_literals;

namespace {

string_vector List(std::initializer_list<std::string> elements) {
    string_vector list;
    list.assign(elements);
    return list;
}

} // namespace

TEST(LoadFromCSVString, ReadsOneRow) {
    const struct {
        const char* name;
        const char* text;
        bool trim;
        bool result;
        std::vector<std::string> want;
    } cases[] = {
        {"three fields", "a,b,c", false, true, {"a", "b", "c"}},
        {"one field", "a", false, true, {"a"}},
        {"empty fields", ",,", false, true, {"", "", ""}},
        {"a field behind the last separator", "a,", false, true, {"a", ""}},
        {"quoted", "\"a,b\",\"c\"\"d\"", false, true, {"a,b", "c\"d"}},
        {"the empty row", "\"\"", false, true, {""}},
        {"blanks", " a , b ", false, true, {" a ", " b "}},
        {"blanks with trim", " a , \"b \" ", true, false, {"a"}},
        {"trimmed", " a , \"b \",c ", true, true, {"a", "b", "c"}},
        {"line ends are part of a field", "a\nb,c\n", false, true, {"a\r\nb", "c\r\n"}},
        {"never closed", "a,b,\"c", false, false, {"a", "b"}},
        {"never closed at once", "\"a,b", false, false, {}},
        {"a blank behind a closing quote", "a,\"b\" ,c", false, false, {"a"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        string_vector list = List({"old", "content"});
        EXPECT_EQ(list.loadFromCSVString(c.text, c.trim, ',', '"'), c.result);
        EXPECT_EQ(list, c.want);
    }
}

TEST(LoadFromCSVString, NothingToReadLeavesTheList) {
    string_vector list = List({"old"});
    EXPECT_FALSE(list.loadFromCSVString(nullptr, false, ',', '"'));
    EXPECT_EQ(list, List({"old"}));
    EXPECT_FALSE(list.loadFromCSVString("", true, ',', '"'));
    EXPECT_EQ(list, List({"old"}));
}

TEST(LoadFromCSVString, SeparatorAndQuoteAreTheCallers) {
    string_vector list;
    EXPECT_TRUE(list.loadFromCSVString("'a;b';c,\"d", false, ';', '\''));
    EXPECT_EQ(list, List({"a;b", "c,\"d"}));
}

TEST(LoadFromCSVString, TextMayBeAnElementOfTheList) {
    string_vector list = List({"x", "a,b"});
    EXPECT_TRUE(list.loadFromCSVString(list[1].c_str(), false, ',', '"'));
    EXPECT_EQ(list, List({"a", "b"}));
    list = List({"a row that is too long for a short string,b,c"});
    EXPECT_TRUE(list.loadFromCSVString(list[0].c_str(), false, ',', '"'));
    EXPECT_EQ(list, List({"a row that is too long for a short string", "b", "c"}));
}

TEST(SaveToCSVString, WritesOneRow) {
    string_vector list = List({"a", "b,c", "", "d\"e", "f\r\ng"});
    EXPECT_EQ(list.saveToCSVString(0, false, ',', '"'), "a,\"b,c\",,\"d\"\"e\",\"f\ng\"");
    EXPECT_EQ(list.saveToCSVString(0, true, ',', '"'), "\"a\",\"b,c\",\"\",\"d\"\"e\",\"f\ng\"");
    EXPECT_EQ(list.saveToCSVString(0, false, ';', '\''), "a;b,c;;d\"e;'f\ng'");
    EXPECT_EQ(list.saveToCSVString(2, false, ',', '"'), ",\"d\"\"e\",\"f\ng\"");
    EXPECT_EQ(list.saveToCSVString(4, false, ',', '"'), "\"f\ng\"");
    EXPECT_EQ(list.saveToCSVString(5, false, ',', '"'), "");
    EXPECT_EQ(list.saveToCSVString(SIZE_MAX, false, ',', '"'), "");
}

TEST(SaveToCSVString, EmptyElements) {
    EXPECT_EQ(string_vector().saveToCSVString(0, true, ',', '"'), "");
    EXPECT_EQ(List({""}).saveToCSVString(0, false, ',', '"'), "\"\"");
    EXPECT_EQ(List({"", ""}).saveToCSVString(0, false, ',', '"'), ",");
    EXPECT_EQ(List({"", "x"}).saveToCSVString(0, true, ',', '"'), ",\"x\"");
}

TEST(SaveToCSVString, ElementsEndAtTheirFirstNul) {
    EXPECT_EQ(List({"a\0b"s, "c"}).saveToCSVString(0, false, ',', '"'), "a,c");
}

TEST(CsvRow, AWrittenRowReadsBack) {
    const string_vector list = List({"", "a", "b,c", "\"", " d ", "e\r\nf", "", "\xFF"});
    string_vector writer = list;
    string_vector reader;
    EXPECT_TRUE(
        reader.loadFromCSVString(writer.saveToCSVString(0, false, ',', '"').c_str(), false, ',', '"'));
    EXPECT_EQ(reader, list);
}
