#include "base/StringSplit.h"

#include "base/internal/ByteClass.h"
#include "base/internal/ByteSet.h"
#include "base/internal/Escapes.h"

#include <cctype>
#include <functional>
#include <string_view>

namespace {

/// True when `text` is one of the list's own elements, which emptying the list would destroy.
bool Holds(const std::vector<std::string>& list, const std::string& text) {
    constexpr std::less<const std::string*> before;
    const std::string* first = list.data();
    return !before(&text, first) && before(&text, first + list.size());
}

/// Appends the word that starts at `pos` and returns the position behind it and behind the white space that
/// ends it. `special` holds white space, the double quote and the backslash.
template <class Class>
size_t TakeWord(std::string& word, std::string_view text, size_t pos, Class& special) {
    for (bool quoted = false;;) {
        const size_t run = pos;
        pos = special.FindFirst(text, pos);
        word += text.substr(run, pos - run);
        if (pos == text.size()) return pos;
        const char c = text[pos++];
        if (c == '"')
            quoted = !quoted;
        else if (c == '\\')
            word += pos < text.size() ? vrx::TakeEscape(text, pos, 2) : c;
        else if (quoted)
            word += c;
        else
            return pos;
    }
}

} // namespace

void String::Split(std::vector<std::string>& result, const std::string& text, const std::string& delimiters) {
    if (Holds(result, text)) return Split(result, std::string(text), delimiters);
    if (delimiters.empty()) {
        result.assign(1, text);
        return;
    }
    const vrx::ByteSet separates(delimiters);
    result.clear();
    for (size_t pos = vrx::SkipWhile(text, 0, separates); pos < text.size();) {
        const size_t start = pos;
        pos = vrx::FindFirst(text, pos, separates);
        result.emplace_back(text, start, pos - start);
        pos = vrx::SkipWhile(text, pos, separates);
    }
    if (result.empty()) result.emplace_back();
}

void String::SplitQuoted(std::vector<std::string>& result, const std::string& text) {
    if (Holds(result, text)) return SplitQuoted(result, std::string(text));
    vrx::ByteClass space([](unsigned char byte) { return std::isspace(byte) != 0; });
    vrx::ByteClass special(
        [&](unsigned char byte) { return byte == '"' || byte == '\\' || std::isspace(byte) != 0; });
    result.clear();
    size_t pos = 0;
    do {
        pos = space.SkipWhile(text, pos);
        // a word is started even where the text has ended: two blanks at the end give an empty word
        pos = TakeWord(result.emplace_back(), text, pos, special);
    } while (pos < text.size());
}
