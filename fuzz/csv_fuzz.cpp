// CSV fields and rows. Input: a byte of flags, separator, quote character, then
// - reading (flag 1 clear): the row text, read against a slow twin with the cursor watched;
// - writing (flag 1 set): fields, each up to a NUL, which are written against a slow twin, and must read back where
//   separator and quote are none that a reader takes for something else.

#include "base/StringCsv.h"
#include "base/StringVector.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/twins/Csv.h"

#include <cctype>
#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

constexpr int kMalformed = -17;

struct Rules {
    bool trim;
    char separator;
    char quote;
};

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

/// Reads the field at `cursor` of a text whose end is its NUL; c_str() gives that NUL.
int SlowField(std::string& field, const std::string& row, size_t& cursor, const Rules& rules) {
    const char* text = row.c_str();
    size_t pos = cursor;
    const auto store = [&field](char c) { field += c == '\n' ? "\r\n" : std::string(1, c); };
    if (rules.trim)
        while (IsBlank(text[pos])) ++pos;

    if (text[pos] == rules.quote) {
        for (++pos;; ++pos) {
            if (text[pos] == '\0') return kMalformed;
            if (text[pos] == rules.quote && text[++pos] != rules.quote) break;
            store(text[pos]);
        }
        if (text[pos] != rules.separator && text[pos] != '\0') {
            cursor = pos;
            return kMalformed;
        }
    } else {
        for (; text[pos] != rules.separator && text[pos] != '\0'; ++pos) store(text[pos]);
    }
    if (rules.trim)
        while (!field.empty() && IsBlank(field.back())) field.pop_back();
    if (text[pos] == '\0') return 1;
    cursor = pos + 1;
    return 0;
}

void ReadRow(const std::string& row, const Rules& rules) {
    std::vector<std::string> fields;
    const char* cursor = row.c_str();
    size_t slowCursor = 0;
    for (;;) {
        std::string field;
        std::string slowField;
        const int status = String::ReadCSVField(field, cursor, rules.trim, rules.separator, rules.quote);
        const int slowStatus = SlowField(slowField, row, slowCursor, rules);
        Require(cursor >= row.c_str() && cursor <= row.c_str() + row.size(), "the cursor stays inside");
        RequireSame(status, slowStatus, "the status");
        RequireSame(cursor - row.c_str(), static_cast<ptrdiff_t>(slowCursor), "the cursor");
        RequireSame(field, slowField, "the field");
        if (status >= 0) fields.push_back(field);
        if (status == 0) continue;

        string_vector list;
        const bool whole = list.loadFromCSVString(row.c_str(), rules.trim, rules.separator, rules.quote);
        RequireSame(whole, status == 1 && !row.empty(), "whether the row was read whole");
        if (row.empty()) fields.clear();
        RequireSame(static_cast<const std::vector<std::string>&>(list), fields, "the row's fields");
        return;
    }
}

/// What a field reads back as: without its CRs, and with one before each LF.
std::string ReadBack(const std::string& field) {
    std::string text;
    for (const char c : field) {
        if (c == '\n') text += '\r';
        if (c != '\r') text += c;
    }
    return text;
}

void WriteRow(FuzzInput& input, bool forceQuote, const Rules& rules) {
    string_vector fields;
    while (!input.AtEnd()) fields.push_back(input.Field());
    if (fields.empty()) return;

    std::string row;
    std::string want;
    for (const std::string& field : fields) {
        RequireSame(String::AddCSVField(row, field, forceQuote, rules.separator, rules.quote), 1,
                    "writing a field always succeeds");
        SlowAddField(want, field, forceQuote, rules.separator, rules.quote);
    }
    RequireSame(row, want, "the row as the twin writes it");
    RequireSame(fields.saveToCSVString(0, forceQuote, rules.separator, rules.quote), row,
                "a row is its fields written one after another");

    const bool readsBack =
        rules.separator != rules.quote &&
        std::string("\r\n").find_first_of({rules.separator, rules.quote}) == std::string::npos;
    if (!readsBack) return;
    std::vector<std::string> texts;
    for (const std::string& field : fields) texts.push_back(ReadBack(field));
    string_vector back;
    Require(back.loadFromCSVString(row.c_str(), false, rules.separator, rules.quote), "the row reads back");
    RequireSame(static_cast<const std::vector<std::string>&>(back), texts, "what was written reads back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const uint8_t flags = input.Byte();
    Rules rules{};
    rules.trim = (flags & 2) != 0;
    rules.separator = input.Char();
    rules.quote = input.Char();
    if (rules.separator == 0 || rules.quote == 0 || rules.quote == '\n') return 0; // callers pass characters

    if ((flags & 1) == 0) {
        ReadRow(input.Field(), rules);
        return 0;
    }
    WriteRow(input, (flags & 4) != 0, rules);
    return 0;
}
