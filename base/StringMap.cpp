#include "base/StringMap.h"

#include "base/internal/Tokens.h"

#include <string_view>
#include <utility>

namespace {

constexpr vrx::ByteSet kComma(",");
constexpr vrx::ByteSet kBlanksAndEquals(" \t=");

using Entries = std::map<std::string, std::string>;

/// Adds the setting that `item` holds, if it holds one and its key is new.
void AddItem(Entries& entries, std::string_view item, char quote) {
    vrx::TokenReader reader(item, kBlanksAndEquals, quote);
    std::string_view token;
    if (!reader.Next(token)) return;
    std::string key(token);
    std::string_view value;
    if (!reader.Next(value)) return;
    if (reader.Next(token)) {
        const size_t equals = item.find('=');
        if (equals == item.npos) return;
        value = item.substr(equals + 1); // taken raw, blanks included: callers rely on it
    }
    entries.try_emplace(std::move(key), value);
}

} // namespace

unsigned string_map::Split(const char* text, char quote) {
    Entries old; // lives to the end: `text` may lie in it
    swap(old);
    if (text == nullptr) return 0;

    vrx::TokenReader items(text, kComma, quote);
    for (std::string_view item; items.Next(item);) AddItem(*this, item, quote);
    return static_cast<unsigned>(size());
}
