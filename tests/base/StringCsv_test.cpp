#include "base/BaseHelpers.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace std::string_literals;

namespace {

struct ReadCase {
    const char* name;
    const char* text;
    bool trim;
    const char* field;
    int status;
    size_t cursor; // offset in the text afterwards
};

void CheckRead(const std::vector<ReadCase>& cases) {
    for (const ReadCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::string field;
        const char* cursor = c.text;
        EXPECT_EQ(String::ReadCSVField(field, cursor, c.trim, ',', '"'), c.status);
        EXPECT_EQ(field, c.field);
        EXPECT_EQ(cursor - c.text, static_cast<ptrdiff_t>(c.cursor));
    }
}

/// A row of the fields, with separator "," and the double quote.
std::string Row(const std::vector<std::string>& fields, bool forceQuote = false) {
    std::string row;
    for (const std::string& field : fields) {
        EXPECT_EQ(String::AddCSVField(row, field.c_str(), forceQuote, ',', '"'), 1);
    }
    return row;
}

} // namespace

TEST(ReadCSVField, Unquoted) {
    CheckRead({
        {"a separator follows", "a,b", false, "a", 0, 2},
        {"last field", "b", false, "b", 1, 0},
        {"empty text", "", false, "", 1, 0},
        {"empty field", ",x", false, "", 0, 1},
        {"blanks stay without trim", " a ,b", false, " a ", 0, 4},
        {"a quote inside is ordinary", "a\"b\"\",c", false, "a\"b\"\"", 0, 6},
        {"a quote behind a blank is ordinary", " \"a,b\"", false, " \"a", 0, 4},
        {"a line feed gains a CR", "a\nb", false, "a\r\nb", 1, 0},
        {"one behind a CR as well", "a\r\nb", false, "a\r\r\nb", 1, 0},
        {"line feeds only", "\n\n,", false, "\r\n\r\n", 0, 3},
        {"a CR alone stays", "a\rb", false, "a\rb", 1, 0},
        {"bytes above 0x7F", "\xFF\x80,", false, "\xFF\x80", 0, 3},
    });
}

TEST(ReadCSVField, Quoted) {
    CheckRead({
        {"a separator follows", "\"a\",b", false, "a", 0, 4},
        {"last field", "\"a\"", false, "a", 1, 0},
        {"a separator inside", "\"a,b\",c", false, "a,b", 0, 6},
        {"a doubled quote", "\"x\"\"y\",z", false, "x\"y", 0, 7},
        {"doubled quotes only", "\"\"\"\"\"\"", false, "\"\"", 1, 0},
        {"nothing inside", "\"\"", false, "", 1, 0},
        {"nothing inside, a separator follows", "\"\",", false, "", 0, 3},
        {"a line feed gains a CR", "\"a\nb\"", false, "a\r\nb", 1, 0},
        {"blanks inside stay without trim", "\" a \"", false, " a ", 1, 0},
    });
}

TEST(ReadCSVField, Trimmed) {
    CheckRead({
        {"blanks at both ends", " a ,b", true, "a", 0, 4},
        {"TABs as well", "\t \ta\t,b", true, "a", 0, 6},
        {"blanks inside stay", " a b ", true, "a b", 1, 0},
        {"blanks only", "  ", true, "", 1, 0},
        {"blanks only, a separator follows", "  ,", true, "", 0, 3},
        {"a quoted field behind blanks", "  \"a,b\",c", true, "a,b", 0, 8},
        {"inside the quotes at the end only", "\" a \t\",c", true, " a", 0, 7},
        {"a line feed is no blank", " a\n", true, "a\r\n", 1, 0},
        {"the last field leaves the cursor in front of its blanks", "  a", true, "a", 1, 0},
    });
}

TEST(ReadCSVField, Malformed) {
    CheckRead({
        {"no closing quote", "\"abc", false, "abc", -17, 0},
        {"no closing quote behind blanks", " \"abc", true, "abc", -17, 0},
        {"nothing behind the opening quote", "\"", false, "", -17, 0},
        {"a doubled quote does not close", "\"a\"\"", false, "a\"", -17, 0},
        {"a blank behind the closing quote", "\"x\" ,z", false, "x", -17, 3},
        {"with trim as well", "\"x\" ,z", true, "x", -17, 3},
        {"a letter behind the closing quote", "\"x\"y", false, "x", -17, 3},
        {"what was read is not trimmed", "\"x \"y", true, "x ", -17, 4},
        {"what was read so far is not trimmed", "\"x ", true, "x ", -17, 0},
    });
}

TEST(ReadCSVField, AppendsAndTrimsTheWholeField) {
    std::string field = "old ";
    const char* cursor = "a,";
    EXPECT_EQ(String::ReadCSVField(field, cursor, false, ',', '"'), 0);
    EXPECT_EQ(field, "old a");
    field = "old \t";
    cursor = " ,";
    EXPECT_EQ(String::ReadCSVField(field, cursor, true, ',', '"'), 0);
    EXPECT_EQ(field, "old");
}

TEST(ReadCSVField, ReadsARowFieldByField) {
    const char* cursor = "\"x\"\"y\",z";
    std::string field;
    EXPECT_EQ(String::ReadCSVField(field, cursor, false, ',', '"'), 0);
    EXPECT_EQ(field, "x\"y");
    field.clear();
    EXPECT_EQ(String::ReadCSVField(field, cursor, false, ',', '"'), 1);
    EXPECT_EQ(field, "z");
}

TEST(ReadCSVField, AnEmptyFieldBehindTheLastSeparator) {
    const char* cursor = "a,";
    std::string field;
    EXPECT_EQ(String::ReadCSVField(field, cursor, false, ',', '"'), 0);
    field.clear();
    EXPECT_EQ(String::ReadCSVField(field, cursor, false, ',', '"'), 1);
    EXPECT_EQ(field, "");
    EXPECT_STREQ(cursor, "");
}

TEST(ReadCSVField, SeparatorAndQuoteAreTheCallers) {
    const char* cursor = "'a;b';\"c";
    std::string field;
    EXPECT_EQ(String::ReadCSVField(field, cursor, false, ';', '\''), 0);
    EXPECT_EQ(field, "a;b");
    field.clear();
    EXPECT_EQ(String::ReadCSVField(field, cursor, false, ';', '\''), 1);
    EXPECT_EQ(field, "\"c");
}

TEST(ReadCSVField, TrimSkipsASeparatorThatIsABlank) {
    const char* text = "\t\ta\tb";
    const char* cursor = text;
    std::string field;
    EXPECT_EQ(String::ReadCSVField(field, cursor, true, '\t', '"'), 0);
    EXPECT_EQ(field, "a");
    EXPECT_EQ(cursor, text + 4);
    cursor = text;
    field.clear();
    EXPECT_EQ(String::ReadCSVField(field, cursor, false, '\t', '"'), 0);
    EXPECT_EQ(field, "");
    EXPECT_EQ(cursor, text + 1);
}

TEST(ReadCSVField, NoQuoteCharacterAndNoTextStayInsideTheText) {
    const char* cursor = "";
    std::string field;
    EXPECT_EQ(String::ReadCSVField(field, cursor, false, ',', '\0'), 1);
    EXPECT_EQ(field, "");
    cursor = "\"a\",b";
    EXPECT_EQ(String::ReadCSVField(field, cursor, false, ',', '\0'), 0);
    EXPECT_EQ(field, "\"a\"");
    cursor = nullptr;
    field.clear();
    EXPECT_EQ(String::ReadCSVField(field, cursor, true, ',', '"'), 1);
    EXPECT_EQ(field, "");
    EXPECT_EQ(cursor, nullptr);
}

TEST(AddCSVField, WritesRows) {
    const struct {
        const char* name;
        std::vector<std::string> fields;
        const char* want;
    } cases[] = {
        {"plain, quoted, empty", {"a", "b,c", ""}, "a,\"b,c\","},
        {"one empty field", {""}, "\"\""},
        {"an empty field first", {"", "x"}, ",x"},
        {"two empty fields", {"", ""}, ","},
        {"three empty fields", {"", "", ""}, ",,"},
        {"CR LF", {"a\r\nb"}, "\"a\nb\""},
        {"CR alone", {"a\rb"}, "\"ab\""},
        {"nothing but a CR", {"\r"}, "\"\""},
        {"LF needs no quotes", {"a\nb"}, "a\nb"},
        {"blanks need no quotes", {" a\t"}, " a\t"},
        {"quotes are doubled", {"say \"hi\""}, "\"say \"\"hi\"\"\""},
        {"a quote at each end", {"\"a\"", "\""}, "\"\"\"a\"\"\",\"\"\"\""},
        {"a separator alone", {","}, "\",\""},
        {"bytes above 0x7F", {"\xFF", "\x80"}, "\xFF,\x80"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Row(c.fields), c.want);
    }
}

TEST(AddCSVField, ForcedQuotes) {
    EXPECT_EQ(Row({"a", "b c", "d\"e"}, true), "\"a\",\"b c\",\"d\"\"e\"");
    EXPECT_EQ(Row({""}, true), "\"\"");
    EXPECT_EQ(Row({"a", ""}, true), "\"a\",\"\"");
    // two quotes of a forced empty first field look like the mark of an empty row
    EXPECT_EQ(Row({"", "a"}, true), ",\"a\"");
}

TEST(AddCSVField, ACrOnlyFieldLooksLikeTheEmptyRow) {
    EXPECT_EQ(Row({"\r", "a"}), ",a");
}

TEST(AddCSVField, SeparatorAndQuoteAreTheCallers) {
    std::string row;
    String::AddCSVField(row, "a,\"b", false, ';', '\'');
    String::AddCSVField(row, "it's", false, ';', '\'');
    String::AddCSVField(row, "c;d", false, ';', '\'');
    EXPECT_EQ(row, "a,\"b;'it''s';'c;d'");
    row.clear();
    String::AddCSVField(row, "", false, ';', '\'');
    EXPECT_EQ(row, "''");
}

TEST(AddCSVField, ACrIsDroppedEvenWhereItIsTheQuote) {
    const struct {
        const char* field;
        bool forceQuote;
        const char* want;
    } cases[] = {
        {"a", false, "a"},     {"a\rb", false, "\rab\r"}, {"a", true, "\ra\r"},
        {"\r", false, "\r\r"}, {"\r\r", false, "\r\r"},   {"a\r\nb,\r", false, "\ra\nb,\r"},
    };
    for (const auto& c : cases) {
        std::string row;
        String::AddCSVField(row, c.field, c.forceQuote, ',', '\r');
        EXPECT_EQ(row, c.want);
    }
}

TEST(AddCSVField, TheEmptyRowMarkIsThatOfTheCallsQuote) {
    std::string row = "''";
    String::AddCSVField(row, "a", false, ',', '"');
    EXPECT_EQ(row, "'',a");
    row = "\"\"\"";
    String::AddCSVField(row, "a", false, ',', '"');
    EXPECT_EQ(row, "\"\"\",a");
}

TEST(AddCSVField, StringsEndAtTheirFirstNul) {
    std::string row;
    EXPECT_EQ(String::AddCSVField(row, "ab\0,c"s, false, ',', '"'), 1);
    EXPECT_EQ(row, "ab");
    EXPECT_EQ(String::AddCSVField(row, "\0,c"s, false, ',', '"'), 1);
    EXPECT_EQ(row, "ab,");
}

TEST(AddCSVField, NullIsAnEmptyField) {
    std::string row;
    EXPECT_EQ(String::AddCSVField(row, static_cast<const char*>(nullptr), false, ',', '"'), 1);
    EXPECT_EQ(row, "\"\"");
    EXPECT_EQ(String::AddCSVField(row, static_cast<const char*>(nullptr), true, ',', '"'), 1);
    EXPECT_EQ(row, ",\"\"");
}

TEST(AddCSVField, EveryByteDecidesForItself) {
    for (int byte = 1; byte < 256; ++byte) {
        SCOPED_TRACE(byte);
        const std::string field(3, static_cast<char>(byte));
        std::string want = field;
        if (byte == '\r') want = "\"\"";
        if (byte == ',') want = "\",,,\"";
        if (byte == '"') want = "\"\"\"\"\"\"\"\"";
        EXPECT_EQ(Row({field}), want);
    }
}

// What is written comes back: every pair of short fields over the bytes that matter, with each CR LF as it
// was. (Fields with a lone CR or LF come back changed.)
TEST(CsvFields, AWrittenRowReadsBack) {
    const std::vector<std::string> pieces = {"", "a", ",", "\"", "\r\n", " ", "\xFF"};
    std::vector<std::string> fields;
    for (const std::string& a : pieces) {
        for (const std::string& b : pieces) {
            for (const std::string& c : pieces) fields.push_back(a + b + c);
        }
    }
    for (const std::string& first : fields) {
        for (const std::string& second : fields) {
            const std::string row = Row({first, second});
            const char* cursor = row.c_str();
            std::string field;
            ASSERT_EQ(String::ReadCSVField(field, cursor, false, ',', '"'), 0) << row;
            ASSERT_EQ(field, first) << row;
            field.clear();
            ASSERT_EQ(String::ReadCSVField(field, cursor, false, ',', '"'), 1) << row;
            ASSERT_EQ(field, second) << row;
        }
    }
}
