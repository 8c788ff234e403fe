#pragma once

#include <string>

namespace vrx::fuzz {

/// What String::AddCSVField does, one character at a time.
inline void SlowAddField(std::string& row, const std::string& field, bool force, char separator, char quote) {
    if (!row.empty()) {
        if (row == std::string(2, quote)) row.clear();
        row += separator;
    }
    const bool quoted = force || field.find_first_of({separator, quote, '\r'}) != std::string::npos;
    if (quoted) row += quote;
    for (const char c : field) {
        if (quoted && c == '\r') continue;
        if (quoted && c == quote) row += quote;
        row += c;
    }
    if (quoted) row += quote;
    if (row.empty() && quote != '\0') row.assign(2, quote);
}

} // namespace vrx::fuzz
