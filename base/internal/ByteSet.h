#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace vrx {

/// A set of bytes with one table look-up per question, whatever the size of the set.
class ByteSet {
public:
    constexpr ByteSet() = default;
    constexpr explicit ByteSet(std::string_view bytes) { Add(bytes); }

    constexpr void Add(std::string_view bytes) {
        for (const char c : bytes) {
            m_size += Has(c) ? 0u : 1u;
            m_newest = c;
            m_has[static_cast<unsigned char>(c)] = true;
        }
    }
    constexpr bool Has(char c) const { return m_has[static_cast<unsigned char>(c)]; }

    /// Whether the set holds one byte and nothing else; Newest() is that byte then.
    constexpr bool IsSingle() const { return m_size == 1; }
    constexpr char Newest() const { return m_newest; }

private:
    std::array<bool, 256> m_has{};
    unsigned m_size = 0;
    char m_newest = 0;
};

/// The first position at or after `pos` whose byte is not in `set`, or the text's size.
inline size_t SkipWhile(std::string_view text, size_t pos, const ByteSet& set) {
    while (pos < text.size() && set.Has(text[pos])) ++pos;
    return pos;
}

/// The first position at or after `pos` whose byte is in `set`, or the text's size.
inline size_t FindFirst(std::string_view text, size_t pos, const ByteSet& set) {
    if (set.IsSingle()) return std::min(text.find(set.Newest(), pos), text.size());
    while (pos < text.size() && !set.Has(text[pos])) ++pos;
    return pos;
}

} // namespace vrx
