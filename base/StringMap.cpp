#include "base/StringMap.h"

#include "base/internal/Tokens.h"

#include <string_view>
#include <utility>

namespace {

using Entries = std::map<std::string, std::string>;

/// Adds the setting that `item` holds, if it holds one and its key is new.
void AddItem(Entries& entries, std::string_view item, const vrx::TokenRules& rules) {
    vrx::TokenReader reader(item, rules);
    std::string_view token;
    if (!reader.Next(token)) return;
    std::string key(token);
    if (!reader.Next(token)) return;
    std::string value(token);
    if (reader.Next(token)) {
        const size_t equals = item.find('=');
        if (equals == item.npos) return;
        value = item.substr(equals + 1); // taken raw, blanks included: callers rely on it
    }
    entries.try_emplace(std::move(key), std::move(value));
}

} // namespace

unsigned string_map::Split(const char* text, char quote) {
    Entries old; // lives to the end: `text` may lie in it
    swap(old);
    if (text == nullptr) return 0;

    const vrx::TokenRules itemRules(",", quote);
    const vrx::TokenRules tokenRules(" \t=", quote);
    vrx::TokenReader items(text, itemRules);
    for (std::string_view item; items.Next(item);) AddItem(*this, item, tokenRules);
    return static_cast<unsigned>(size());
}
