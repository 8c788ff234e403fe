#include "base/StringText.h"

#include "base/internal/Blanks.h"
#include "base/internal/ByteSet.h"
#include "base/internal/CaseTable.h"
#include "base/internal/Wildcard.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace String {
namespace {

constexpr vrx::ByteSet kBlanks(" \t");
constexpr vrx::ByteSet kBlanksAndLineEnds(" \t\r\n");

/// Replaces each character up to the first NUL by its entry in a case table; the rest drops.
void ChangeCase(std::string& text, const int32_t* table) {
    text.resize(vrx::UpToNul(text).size());
    for (char& c : text) c = static_cast<char>(table[static_cast<unsigned char>(c)]);
}

/// The size of the text without the removable characters at its end.
size_t TrimmedSize(std::string_view text, const vrx::ByteSet& removable) {
    while (!text.empty() && removable.Has(text.back())) text.remove_suffix(1);
    return text.size();
}

} // namespace

void ToUpper(std::string& text) {
    ChangeCase(text, vrx::UpperTable());
}

void ToLower(std::string& text) {
    ChangeCase(text, vrx::LowerTable());
}

void TrimLeft(std::string& text) {
    text.resize(vrx::UpToNul(text).size());
    text.erase(0, vrx::SkipWhile(text, 0, kBlanks));
}

void TrimRight(std::string& text, bool lineEnds) {
    text.resize(TrimmedSize(text, lineEnds ? kBlanksAndLineEnds : kBlanks));
}

void Trim(std::string& text) {
    const size_t kept = TrimmedSize(text, kBlanks);
    text.erase(0, vrx::SkipWhile(text, 0, kBlanks));
    // As many characters as if there had been no blanks in front: callers rely on it.
    text.resize(std::min(text.size(), kept));
}

std::string Replace(const std::string& text, const std::string& find, const std::string& replacement) {
    if (find.empty()) return text;
    size_t at = text.find(find);
    if (at == text.npos) return text;

    std::string result;
    result.reserve(text.size());
    size_t done = 0;
    for (; at != text.npos; at = text.find(find, done)) {
        result.append(text, done, at - done);
        result.append(replacement);
        done = at + find.size();
    }
    result.append(text, done);
    return result;
}

std::string Merge(const std::vector<std::string>& items, const std::string& separator) {
    if (items.empty()) return {};
    size_t size = separator.size() * (items.size() - 1);
    for (const std::string& item : items) size += item.size();

    std::string result;
    result.reserve(size);
    result = items.front();
    for (size_t i = 1; i < items.size(); ++i) {
        result.append(separator);
        result.append(items[i]);
    }
    return result;
}

bool CompareWild(const std::string& text, const std::string& pattern, std::string* capture) {
    const std::string_view cText = vrx::UpToNul(text);
    const std::string_view cPattern = vrx::UpToNul(pattern);
    if (capture == nullptr) return vrx::MatchesWild(cText, cPattern);

    std::string taken; // `capture` may be the text or the pattern
    const bool matched = vrx::CapturesWild(cText, cPattern, taken);
    capture->append(taken);
    return matched;
}

} // namespace String
