#pragma once

#include <string>
#include <vector>

namespace vrx::fuzz {

/// What File2::fgets makes of a file, one character at a time: one element per line read.
inline std::vector<std::string> SlowFileLines(const std::string& bytes, bool stripEol, bool anyLf) {
    std::vector<std::string> lines;
    for (size_t pos = 0; pos < bytes.size();) {
        std::string line;
        char previous = 0;
        bool ended = false;
        while (pos < bytes.size() && !ended) {
            const char c = bytes[pos++];
            line += c;
            ended = c == '\n' && (anyLf || previous == '\r');
            if (c != '\n') previous = c;
        }
        if (!stripEol && ended) line += '\n';
        if (stripEol) {
            if (!line.empty() && line.back() == '\n') line.pop_back();
            if (!line.empty() && line.back() == '\r') line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}

} // namespace vrx::fuzz
