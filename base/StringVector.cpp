#include "base/StringVector.h"

#include "base/internal/Blanks.h"
#include "base/internal/ListRefill.h"
#include "base/internal/LocaleTables.h"
#include "base/internal/Tokens.h"
#include "base/internal/Wildcard.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace {

/// The index of the first element from `start` on that matches, or -1.
template <class Match>
int FirstMatch(const std::vector<std::string>& list, size_t start, Match match) {
    if (start >= list.size()) return -1;
    const auto found = std::find_if(list.begin() + static_cast<ptrdiff_t>(start), list.end(), match);
    return found == list.end() ? -1 : static_cast<int>(found - list.begin());
}

} // namespace

void string_vector::Split(const char* text, const char* delimiters, char quote) {
    if (vrx::IsEmpty(text) || vrx::IsEmpty(delimiters)) return clear();
    if (vrx::HoldsText(*this, text)) return Split(std::string(text).c_str(), delimiters, quote);

    const vrx::ByteSet delimiterBytes(delimiters);
    vrx::TokenReader reader(text, delimiterBytes, quote);
    vrx::ListRefill list(*this);
    for (std::string_view token; reader.Next(token);) list.Add(token);
    list.Finish();
}

int string_vector::find(const char* text, size_t start) const {
    if (text == nullptr) return -1;
    const std::string_view wanted(text);
    const size_t last = wanted.empty() ? 0 : wanted.size() - 1;
    return FirstMatch(*this, start, [=](const std::string& element) {
        // The last byte tells most texts of one length apart, numbered ones above all.
        return element.size() == wanted.size() && element.c_str()[last] == text[last] && element == wanted;
    });
}

int string_vector::findi(const char* text, size_t start) const {
    if (text == nullptr) return -1;
    return FirstMatch(*this, start, [text, lower = vrx::LowerTable()](const std::string& element) {
        return vrx::CompareIgnoringCase(element.c_str(), text, lower) == 0;
    });
}

int string_vector::findwild(const char* pattern, size_t start) const {
    if (start >= size()) return -1;
    if (pattern == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
    return FirstMatch(*this, start, [wanted = std::string_view(pattern)](const std::string& element) {
        return vrx::MatchesWild(element.c_str(), wanted);
    });
}
