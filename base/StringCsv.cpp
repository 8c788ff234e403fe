#include "base/StringCsv.h"

#include "base/StringText.h"
#include "base/internal/Blanks.h"
#include "base/internal/CsvField.h"
#include "base/internal/PutBytes.h"

#include <string_view>

namespace {

constexpr int kFieldRead = 0;
constexpr int kLastFieldRead = 1;
constexpr int kMalformedField = -17;

/// Appends the text from `cursor` up to `end` or the text's end, and returns where it stopped.
/// Every line feed gains a carriage return, which the writer drops: callers rely on it.
const char* TakeUpTo(std::string& field, const char* cursor, char end) {
    for (;;) {
        const char* run = cursor;
        while (*cursor != '\0' && *cursor != '\n' && *cursor != end) ++cursor;
        field.append(run, static_cast<size_t>(cursor - run));
        if (*cursor == '\0' || *cursor == end) return cursor;
        field += "\r\n";
        ++cursor;
    }
}

/// Appends the quoted text behind an opening quote and returns the position behind the closing one, or
/// null when there is none.
const char* TakeQuoted(std::string& field, const char* cursor, char quote) {
    for (;;) {
        cursor = TakeUpTo(field, cursor, quote);
        if (*cursor == '\0') return nullptr;
        if (*++cursor != quote) return cursor;
        field += quote;
        ++cursor;
    }
}

bool NeedsQuotes(std::string_view field, char separator, char quote) {
    char found = 0; // bytes without an early exit: the compiler compares many at once
    for (const char c : field) {
        found = static_cast<char>(found | (c == separator) | (c == quote) | (c == '\r'));
    }
    return found != 0;
}

/// Carriage returns are dropped, since a reader restores them in front of line feeds, even where one is the quote.
char* PutQuoted(char* end, std::string_view field, char quote) {
    *end++ = quote;
    for (const char c : field) {
        const bool kept = c != '\r';
        *end = quote; // stays if the byte has to be doubled: no branch that could be mispredicted
        end += kept & (c == quote);
        *end = c;
        end += kept;
    }
    *end++ = quote;
    return end;
}

} // namespace

char* vrx::PutCsvField(char* row, char* end, std::string_view field, bool forceQuote, char separator,
                       char quote) {
    if (end != row) {
        // a row of one empty field was marked with two quotes; with a second field it needs no mark
        if (end - row == 2 && row[0] == quote && row[1] == quote) end = row;
        *end++ = separator;
    }
    end = forceQuote || NeedsQuotes(field, separator, quote) ? PutQuoted(end, field, quote)
                                                             : vrx::PutBytes(end, field);
    if (end != row || quote == '\0') return end; // a mark of NULs would be no text: callers rely on ""
    *end++ = quote;
    *end++ = quote;
    return end;
}

int String::ReadCSVField(std::string& field, const char*& cursor, bool trim, char separator, char quote) {
    const char* at = cursor != nullptr ? cursor : "";
    if (trim) {
        while (vrx::IsBlank(*at)) ++at;
    }
    if (*at != '\0' && *at == quote) {
        at = TakeQuoted(field, at + 1, quote);
        if (at == nullptr) return kMalformedField;
        if (*at != separator && *at != '\0') {
            cursor = at;
            return kMalformedField;
        }
    } else {
        at = TakeUpTo(field, at, separator);
    }
    if (trim) TrimRight(field, false);
    if (*at == '\0') return kLastFieldRead;
    cursor = at + 1;
    return kFieldRead;
}

int String::AddCSVField(std::string& row, const char* field, bool forceQuote, char separator, char quote) {
    const std::string_view text = field != nullptr ? field : "";
    const size_t old = row.size();
    row.resize(old + vrx::CsvRoom(text.size()));
    const char* end = vrx::PutCsvField(row.data(), row.data() + old, text, forceQuote, separator, quote);
    row.resize(static_cast<size_t>(end - row.data()));
    return 1;
}

int String::AddCSVField(std::string& row, const std::string& field, bool forceQuote, char separator,
                        char quote) {
    return AddCSVField(row, field.c_str(), forceQuote, separator, quote);
}
