#include "base/StringCsv.h"
#include "base/StringVector.h"
#include "base/internal/Blanks.h"
#include "base/internal/CsvField.h"

#include <memory>

bool string_vector::loadFromCSVString(const char* text, bool trim, char separator, char quote) {
    if (vrx::IsEmpty(text)) return false;
    std::vector<std::string> old; // keeps `text` alive when it is one of this list's elements
    old.swap(*this);
    reserve(old.size());
    for (const char* cursor = text;;) {
        const int status = String::ReadCSVField(emplace_back(), cursor, trim, separator, quote);
        if (status == 1) return true;
        if (status < 0) {
            pop_back();
            return false;
        }
    }
}

std::string string_vector::saveToCSVString(size_t first, bool forceQuote, char separator, char quote) {
    size_t room = 0;
    for (size_t index = first; index < size(); ++index) room += vrx::CsvRoom((*this)[index].size());
    // Scratch memory, because a string of this room would be filled with zeros first.
    const auto row = std::make_unique_for_overwrite<char[]>(room);
    char* end = row.get();
    for (size_t index = first; index < size(); ++index) {
        end = vrx::PutCsvField(row.get(), end, vrx::UpToNul((*this)[index]), forceQuote, separator, quote);
    }
    return {row.get(), end};
}
