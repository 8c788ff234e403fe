#pragma once

#include <cstddef>
#include <string_view>

namespace vrx {

/// The bytes that a field of `size` bytes adds to a CSV row at most: each doubled, quotes and a separator.
constexpr size_t CsvRoom(size_t size) {
    return 2 * size + 3;
}

/// String::AddCSVField on the row from `row` to `end`, where there is CsvRoom for the field. Returns the new
/// end. Working in place spares the check for room that a string makes for each byte.
char* PutCsvField(char* row, char* end, std::string_view field, bool forceQuote, char separator, char quote);

} // namespace vrx
