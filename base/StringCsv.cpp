#include "base/StringCsv.h"

#include "base/StringFormat.h"
#include "base/StringText.h"
#include "base/internal/Blanks.h"

#include <algorithm>
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

/// Carriage returns are dropped, since a reader restores them in front of line feeds.
void AppendQuoted(std::string& row, std::string_view field, char quote) {
    constexpr size_t kChunk = 256;
    row += quote;
    for (; !field.empty(); field.remove_prefix(std::min(kChunk, field.size()))) {
        char block[kChunk * 2]; // one append for many characters
        char* end = block;
        for (const char c : field.substr(0, kChunk)) {
            if (c == '\r') continue;
            if (c == quote) *end++ = quote;
            *end++ = c;
        }
        row.append(block, static_cast<size_t>(end - block));
    }
    row += quote;
}

} // namespace

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
    if (!row.empty()) {
        // a row of one empty field was marked with two quotes; with a second field it needs no mark
        if (row.size() == 2 && row[0] == quote && row[1] == quote) row.clear();
        row += separator;
    }
    if (forceQuote || NeedsQuotes(text, separator, quote))
        AppendQuoted(row, text, quote);
    else
        row += text;
    if (row.empty()) row = Format("%c%c", quote, quote);
    return 1;
}

int String::AddCSVField(std::string& row, const std::string& field, bool forceQuote, char separator,
                        char quote) {
    return AddCSVField(row, field.c_str(), forceQuote, separator, quote);
}
