#pragma once

#include "base/internal/ByteSet.h"

#include <string>
#include <string_view>

namespace vrx {

/// Reads the tokens of a text one after another, by the rules of string_vector::Split (quote 0: nothing
/// quotes). It copies nothing but tokens with quotes. The text and the delimiters must outlive it.
class TokenReader {
public:
    TokenReader(std::string_view text, const ByteSet& delimiters, char quote)
        : m_text(text), m_delimiters(delimiters), m_quote(quote) {}

    /// Sets `token` to the next token, valid until the one after it is read. False when there is none:
    /// `token` then stays as it is.
    bool Next(std::string_view& token) {
        const size_t start = SkipWhile(m_text, m_pos, m_delimiters);
        m_pos = FindStop(start);
        if (start == m_text.size()) return false;
        token = AtQuote() ? ReadQuoted(start) : m_text.substr(start, m_pos - start);
        return true;
    }

private:
    /// The first position at or after `pos` with a delimiter or a quote, or the text's size.
    size_t FindStop(size_t pos) const {
        if (m_quote == 0) return FindFirst(m_text, pos, m_delimiters);
        while (pos < m_text.size() && !m_delimiters.Has(m_text[pos]) && m_text[pos] != m_quote) ++pos;
        return pos;
    }

    bool AtQuote() const { return m_pos < m_text.size() && !m_delimiters.Has(m_text[m_pos]); }

    std::string_view ReadQuoted(size_t start) {
        m_unquoted.assign(m_text, start, m_pos - start);
        while (AtQuote()) {
            AppendQuotedStretch();
            const size_t plain = m_pos;
            m_pos = FindStop(plain);
            m_unquoted.append(m_text, plain, m_pos - plain);
        }
        return m_unquoted;
    }

    void AppendQuotedStretch() {
        for (;;) {
            const size_t begin = m_pos + 1;
            m_pos = m_text.find(m_quote, begin);
            if (m_pos == m_text.npos) m_pos = m_text.size();
            m_unquoted.append(m_text, begin, m_pos - begin);
            if (m_pos == m_text.size()) return; // never closed
            if (++m_pos == m_text.size() || m_text[m_pos] != m_quote) return;
            m_unquoted += m_quote; // two in a row are one literal quote
        }
    }

    std::string_view m_text;
    const ByteSet& m_delimiters;
    char m_quote;
    size_t m_pos = 0;
    std::string m_unquoted;
};

} // namespace vrx
