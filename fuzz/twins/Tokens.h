#pragma once

#include <string>
#include <vector>

namespace vrx::fuzz {

/// What string_vector::Split gives, one character at a time.
inline std::vector<std::string> SlowTokens(const std::string& text, const std::string& delimiters,
                                           char quote) {
    std::vector<std::string> tokens;
    if (delimiters.empty()) return tokens;

    std::string token;
    bool inToken = false;
    bool inQuotes = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inQuotes) {
            const bool twoInARow = c == quote && i + 1 < text.size() && text[i + 1] == quote;
            if (twoInARow) ++i;
            if (c != quote || twoInARow)
                token += c;
            else
                inQuotes = false;
        } else if (delimiters.find(c) != std::string::npos) {
            if (inToken) tokens.push_back(token);
            token.clear();
            inToken = false;
        } else {
            inToken = true;
            if (quote != 0 && c == quote)
                inQuotes = true;
            else
                token += c;
        }
    }
    if (inToken) tokens.push_back(token);
    return tokens;
}

} // namespace vrx::fuzz
