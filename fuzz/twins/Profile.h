#pragma once

#include "fuzz/twins/Tokens.h"

#include <string>
#include <strings.h>
#include <vector>

namespace vrx::fuzz {

inline bool SameText(const std::string& a, const std::string& b) {
    return ::strcasecmp(a.c_str(), b.c_str()) == 0;
}

/// The index behind the section's header, or 0.
inline size_t SlowSectionBody(const std::vector<std::string>& lines, const std::string& section) {
    for (size_t i = 0; i < lines.size(); ++i)
        if (SameText(lines[i], "[" + section + "]")) return i + 1;
    return 0;
}

inline std::string SlowWithoutComment(std::string value) {
    const size_t comment = value.find(';');
    if (comment == std::string::npos) return value;
    value.resize(comment);
    while (!value.empty() && (value.back() == ' ' || value.back() == '\t')) value.pop_back();
    return value;
}

/// What string_vector::GetProfileStr reads, with each entry line split at its "=" signs. A null text is a null pointer.
inline std::string SlowProfileStr(const std::vector<std::string>& lines, const char* section, const char* key,
                                  const char* defaultValue) {
    if (!section || !*section || !key || !*key) return "";
    const std::string fallback = defaultValue ? defaultValue : "";
    const size_t body = SlowSectionBody(lines, section);
    for (size_t i = body; body != 0 && i < lines.size(); ++i) {
        if (lines[i].empty() || lines[i][0] == ';') continue;
        if (lines[i][0] == '[') return fallback;
        const std::vector<std::string> parts = SlowTokens(lines[i].c_str(), "=", 0);
        if (parts.empty()) return fallback;
        if (!SameText(parts[0], key)) continue;
        return parts.size() == 2 ? SlowWithoutComment(parts[1]) : fallback;
    }
    return fallback;
}

} // namespace vrx::fuzz
