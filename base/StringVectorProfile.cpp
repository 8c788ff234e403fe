#include "base/StringVector.h"

#include "base/internal/Blanks.h"
#include "base/internal/LocaleTables.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace {

using Lines = std::vector<std::string>;

bool StartsSection(const std::string& line) {
    return !line.empty() && line.front() == '[';
}

bool IsEntry(const std::string& line) {
    return !line.empty() && line.front() != ';' && line.front() != '[';
}

/// The index of the first header line of the section, or the number of lines.
size_t FindSection(const Lines& lines, std::string_view section) {
    const int32_t* const lower = vrx::LowerTable();
    size_t at = 0;
    for (; at < lines.size(); ++at) {
        const std::string& line = lines[at];
        if (line.size() != section.size() + 2 || line.front() != '[' || line.back() != ']') continue;
        if (vrx::EqualIgnoringCase(line.data() + 1, section, lower)) break;
    }
    return at;
}

void EraseSection(Lines& lines, size_t header) {
    const auto first = lines.begin() + static_cast<Lines::difference_type>(header);
    lines.erase(first, std::find_if(first + 1, lines.end(), StartsSection));
}

// Entry lines are cut at runs of "=", and only there. Both step over what their names say, up to a NUL.

const char* SkipEquals(const char* at) {
    while (*at == '=') ++at;
    return at;
}

const char* SkipPart(const char* at) {
    while (*at != '=' && *at != '\0') ++at;
    return at;
}

/// The second part of an entry line of exactly two parts; empty for any other line.
std::string_view EntryValue(const std::string& line) {
    const char* const key = SkipEquals(line.c_str());
    const char* const value = SkipEquals(SkipPart(key));
    const char* const end = SkipPart(value);
    if (*SkipEquals(end) != '\0') return {};
    return {value, static_cast<size_t>(end - value)};
}

/// Whether the first part of an entry line is `key`. `entry` is the line from its first part on, up to a NUL.
bool HasKey(const char* entry, size_t size, std::string_view key, const int32_t* lower) {
    if (size < key.size() || (entry[key.size()] != '=' && entry[key.size()] != '\0')) return false;
    return vrx::EqualIgnoringCase(entry, key, lower) && key.find('=') == key.npos;
}

/// The index of the line at which the search for a key ends, from `from` on: the key's entry, a line of "="
/// signs only (which hides all keys below it: files rely on it), the next section, or the number of lines.
size_t FindKey(const Lines& lines, size_t from, std::string_view key) {
    const int32_t* const lower = vrx::LowerTable();
    for (; from < lines.size() && !StartsSection(lines[from]); ++from) {
        const std::string& line = lines[from];
        if (!IsEntry(line)) continue;
        const char* const entry = SkipEquals(line.c_str());
        const auto size = static_cast<size_t>(line.c_str() + line.size() - entry);
        if (*entry == '\0' || HasKey(entry, size, key, lower)) break;
    }
    return from;
}

/// The value without its comment: cut at the first ";" and the blanks in front of it.
std::string_view WithoutComment(std::string_view value) {
    const size_t comment = value.find(';');
    if (comment == value.npos) return value;
    value = value.substr(0, comment);
    while (!value.empty() && vrx::IsBlank(value.back())) value.remove_suffix(1);
    return value;
}

/// Adds a line to the section that ends in front of line `next`. It goes in front of the section's last line,
/// which is usually an empty one; in a section of its header alone it goes in front of the header. Files and
/// callers rely on both.
void InsertBefore(Lines& lines, size_t next, std::string line) {
    lines.insert(lines.begin() + static_cast<Lines::difference_type>(next) - 1, std::move(line));
}

std::string EntryLine(std::string_view key, const char* value) {
    std::string line(key);
    line += '=';
    line += value != nullptr ? value : "(null)"; // a null value is written out: callers rely on it
    return line;
}

} // namespace

std::string string_vector::GetProfileStr(const char* section, const char* key,
                                         const char* defaultValue) const {
    // an empty name has no entry and takes no default either: callers rely on it
    if (vrx::IsEmpty(section) || vrx::IsEmpty(key)) return {};
    const size_t at = FindKey(*this, FindSection(*this, section) + 1, key);
    std::string_view value;
    if (at < size() && !StartsSection((*this)[at])) value = EntryValue((*this)[at]);
    if (value.empty()) return defaultValue != nullptr ? defaultValue : "";
    return std::string(WithoutComment(value));
}

int string_vector::GetProfileIntg(const char* section, const char* key, int defaultValue) const {
    const std::string value = GetProfileStr(section, key, nullptr);
    return value.empty() ? defaultValue : static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
}

void string_vector::WriteProfileStr(const char* section, const char* key, const char* value) {
    if (vrx::IsEmpty(section)) return;
    const size_t header = FindSection(*this, section);
    if (key == nullptr) {
        if (value == nullptr && header < size()) EraseSection(*this, header);
        return;
    }
    // the new lines are complete before the list changes: the arguments may lie in its elements
    std::string entry = EntryLine(key, value);
    if (header == size()) {
        if (value == nullptr) return;
        std::string title = '[' + std::string(section) + ']';
        push_back(std::move(title));
        push_back(std::move(entry));
        return;
    }
    const size_t at = FindKey(*this, header + 1, key);
    if (at == size())
        push_back(std::move(entry));
    else if (StartsSection((*this)[at]))
        InsertBefore(*this, at, std::move(entry));
    else
        (*this)[at] = std::move(entry);
}

void string_vector::WriteProfileIntg(const char* section, const char* key, int value) {
    WriteProfileStr(section, key, std::to_string(value).c_str());
}
