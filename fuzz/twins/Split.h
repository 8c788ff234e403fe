#pragma once

#include <string>
#include <vector>

namespace vrx::fuzz {

/// What String::Split gives, one character at a time.
inline std::vector<std::string> SlowSplit(const std::string& text, const std::string& delimiters) {
    if (delimiters.empty()) return {text};
    std::vector<std::string> parts;
    std::string part;
    for (const char c : text) {
        if (delimiters.find(c) == std::string::npos) {
            part += c;
        } else if (!part.empty()) {
            parts.push_back(part);
            part.clear();
        }
    }
    if (!part.empty() || parts.empty()) parts.push_back(part);
    return parts;
}

} // namespace vrx::fuzz
