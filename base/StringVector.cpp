#include "base/StringVector.h"

#include "base/internal/CaseTable.h"
#include "base/internal/ListRefill.h"
#include "base/internal/Tokens.h"
#include "base/internal/Wildcard.h"

#include <stdexcept>
#include <string_view>

namespace {

bool IsEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

/// The index of the first element from `start` on that matches, or -1.
template <class Match>
int FirstMatch(const std::vector<std::string>& list, size_t start, Match match) {
    for (size_t i = start; i < list.size(); ++i) {
        if (match(list[i])) return static_cast<int>(i);
    }
    return -1;
}

} // namespace

void string_vector::Split(const char* text, const char* delimiters, char quote) {
    if (IsEmpty(text) || IsEmpty(delimiters)) return clear();
    if (vrx::HoldsText(*this, text)) return Split(std::string(text).c_str(), delimiters, quote);

    const vrx::TokenRules rules(delimiters, quote);
    vrx::TokenReader reader(text, rules);
    vrx::ListRefill list(*this);
    for (std::string_view token; reader.Next(token);) list.Add(token);
    list.Finish();
}

int string_vector::find(const char* text, size_t start) const {
    if (text == nullptr) return -1;
    return FirstMatch(*this, start, [wanted = std::string_view(text)](const std::string& element) {
        return element == wanted;
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
