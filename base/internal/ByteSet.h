#pragma once

#include "base/internal/WideFind.h"

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
            if (Has(c)) continue;
            m_has[static_cast<unsigned char>(c)] = true;
            for (size_t i = m_size++; i < m_few.size(); ++i) m_few[i] = c;
        }
    }
    constexpr bool Has(char c) const { return m_has[static_cast<unsigned char>(c)]; }

    /// Whether the set holds so few bytes, but at least one, that Few() is all of them.
    constexpr bool IsFew() const { return m_size > 0 && m_size <= m_few.size(); }
    constexpr bool IsSingle() const { return m_size == 1; }
    constexpr const FewBytes& Few() const { return m_few; }

private:
    std::array<bool, 256> m_has{};
    FewBytes m_few{};
    size_t m_size = 0;
};

/// Most finds are near: wide steps pay only from so many bytes on.
constexpr size_t kNearBytes = 16;

/// The first position at or after `pos` whose byte is in `set` (`kWanted`) or is not in it, or the text's size.
template <bool kWanted>
size_t FindByte(std::string_view text, size_t pos, const ByteSet& set) {
    const size_t near = set.IsFew() ? std::min(text.size(), pos + kNearBytes) : text.size();
    while (pos < near && set.Has(text[pos]) != kWanted) ++pos;
    return pos < near ? pos : WideFindByte<kWanted>(text, pos, set.Few());
}

/// The first position at or after `pos` whose byte is not in `set`, or the text's size.
inline size_t SkipWhile(std::string_view text, size_t pos, const ByteSet& set) {
    return FindByte<false>(text, pos, set);
}

/// The first position at or after `pos` whose byte is in `set`, or the text's size.
inline size_t FindFirst(std::string_view text, size_t pos, const ByteSet& set) {
    if (set.IsSingle()) return std::min(text.find(set.Few()[0], pos), text.size());
    return FindByte<true>(text, pos, set);
}

/// The size of the text without its last bytes that are in `set`.
inline size_t TrimmedSize(std::string_view text, const ByteSet& set) {
    size_t size = text.size();
    if (set.IsFew() && size >= sizeof(WideBlock)) return WideTrimmedSize(text, set.Few());
    while (size > 0 && set.Has(text[size - 1])) --size;
    return size;
}

} // namespace vrx
