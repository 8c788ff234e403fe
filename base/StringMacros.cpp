#include "base/StringMacros.h"

#include "base/internal/Blanks.h"
#include "base/internal/ByteClass.h"
#include "base/internal/ByteSet.h"
#include "base/internal/LocaleTables.h"

#include <cctype>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Macros = std::map<std::string, std::string>;

std::string_view ViewOf(const char* text) {
    return text != nullptr ? text : std::string_view();
}

/// The rules of IsIdentifier for a name that holds no NUL.
bool IsName(std::string_view name, std::string_view extra, std::string_view extraFirst) {
    if (name.empty()) return false;
    const uint16_t* const kinds = vrx::CharacterKinds();
    const auto is = [kinds](char c, int wanted) {
        return (kinds[static_cast<unsigned char>(c)] & wanted) != 0 || c == '_';
    };
    if (!is(name.front(), _ISalpha) && extraFirst.find(name.front()) == extraFirst.npos) return false;
    for (const char c : name.substr(1)) {
        if (!is(c, _ISalnum) && extra.find(c) == extra.npos) return false;
    }
    return true;
}

/// Looks names up in a map of macros. The map's own search does for a few names; a call that has asked for
/// as many names as there are macros gets a hash table, which has then paid for itself: a megabyte of text with 1,000
/// macros is expanded in 0.6 of the time.
class MacroTable {
public:
    explicit MacroTable(const Macros& macros) : m_macros(macros) {}

    /// The value of the macro called `name`, or null.
    const std::string* Find(std::string_view name) {
        if (!m_slots.empty()) return FindHashed(name);
        if (++m_lookups > m_macros.size()) Hash();
        m_name.assign(name);
        const auto found = m_macros.find(m_name);
        return found != m_macros.end() ? &found->second : nullptr;
    }

private:
    struct Slot {
        size_t hash = 0;
        const Macros::value_type* macro = nullptr;
    };

    /// The slot of `name`, or the free slot in which it would stand.
    Slot& SlotOf(std::string_view name, size_t hash) {
        size_t at = hash & (m_slots.size() - 1);
        while (m_slots[at].macro != nullptr &&
               (m_slots[at].hash != hash || m_slots[at].macro->first != name)) {
            at = (at + 1) & (m_slots.size() - 1);
        }
        return m_slots[at];
    }

    const std::string* FindHashed(std::string_view name) {
        const Slot& slot = SlotOf(name, std::hash<std::string_view>()(name));
        return slot.macro != nullptr ? &slot.macro->second : nullptr;
    }

    void Hash() {
        size_t slots = 16;
        while (slots < m_macros.size() * 2) slots *= 2;
        m_slots.resize(slots);
        for (const auto& macro : m_macros) {
            const size_t hash = std::hash<std::string_view>()(macro.first);
            SlotOf(macro.first, hash) = {hash, &macro};
        }
    }

    const Macros& m_macros;
    size_t m_lookups = 0;
    std::string m_name; // one buffer for all names looked up
    std::vector<Slot> m_slots;
};

/// Appends one log line. Names come from the text and may be of any length; in the log they end at a NUL.
void Log(std::string& log, std::string_view before, std::string_view name, std::string_view after,
         size_t index) {
    log += before;
    log += vrx::UpToNul(name);
    log += after;
    log += std::to_string(static_cast<int>(index));
    log += '\n';
}

/// A name without a value, between dollar signs whatever the delimiter is: callers rely on it.
void AppendUnresolved(std::string& out, std::string_view name) {
    out += '$';
    out += name;
    out += '$';
}

/// A text that is being expanded: the template itself, or a macro's value inside it.
struct Level {
    std::string_view text;
    size_t pos;
};

} // namespace

bool String::IsIdentifier(const char* name, const char* extraChars, const char* extraFirstChars) {
    return IsName(ViewOf(name), ViewOf(extraChars), ViewOf(extraFirstChars));
}

std::string String::ExpandIdentifier(const std::string& text, const Macros& macros, const char* extraChars) {
    const vrx::ByteSet extra(ViewOf(extraChars));
    vrx::ByteClass starts([](unsigned char byte) {
        return byte == '_' || byte == '$' || byte == '@' || std::isalpha(byte) != 0;
    });
    vrx::ByteClass continues([&](unsigned char byte) {
        return byte == '_' || std::isalnum(byte) != 0 || extra.Has(static_cast<char>(byte));
    });
    MacroTable table(macros);
    const std::string_view source = vrx::UpToNul(text);
    std::string out;
    out.reserve(source.size());
    for (size_t copied = 0, pos = 0;;) {
        const size_t word = starts.FindFirst(source, pos);
        if (word == source.size()) {
            out += source.substr(copied);
            return out;
        }
        pos = continues.SkipWhile(source, word + 1);
        const std::string* value = table.Find(source.substr(word, pos - word));
        if (value == nullptr) continue; // the word stays part of the plain text
        out += source.substr(copied, word - copied);
        out += *value;
        copied = pos;
    }
}

std::string String::ExpandDelimited(std::string& output, const std::string& text, const Macros& macros,
                                    bool checkIdentifiers, char delimiter) {
    std::string log;
    std::string out; // the output may be the text or a macro's value
    out.reserve(text.size());
    MacroTable table(macros);
    // Values nest on this stack instead of the thread's, which a long chain of macros could exhaust.
    std::vector<Level> levels{{text, 0}};
    while (!levels.empty()) {
        Level& level = levels.back();
        const std::string_view rest = level.text.substr(level.pos);
        const size_t open = rest.find(delimiter);
        const size_t close = open != rest.npos ? rest.find(delimiter, open + 1) : rest.npos;
        const size_t index = level.pos + open;
        if (close == rest.npos) {
            if (open != rest.npos) Log(log, "Unterminated macro at index ", "", "", index);
            out += rest;
            levels.pop_back();
            continue;
        }
        out += rest.substr(0, open);
        level.pos += close + 1;
        const std::string_view name = rest.substr(open + 1, close - open - 1);
        if (name.empty()) {
            out += '$'; // whatever the delimiter is: callers rely on it
        } else if (checkIdentifiers && !IsName(vrx::UpToNul(name), "", "")) {
            Log(log, "Macro '", name, "' is not an identifier at index ", index);
            AppendUnresolved(out, name);
        } else if (const std::string* value = table.Find(name)) {
            levels.push_back({*value, 0});
        } else {
            Log(log, "Undefined macro '", name, "' at index ", index);
            AppendUnresolved(out, name);
        }
    }
    output = std::move(out);
    return log;
}
