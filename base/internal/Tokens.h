#pragma once

#include "base/internal/ByteSet.h"

#include <string>
#include <string_view>

namespace vrx {

/// What cuts a text into tokens: runs of delimiter bytes, and a byte that quotes (0: nothing quotes).
/// A quote byte that is also a delimiter only delimits.
struct TokenRules {
    TokenRules(std::string_view delimiterBytes, char quoteByte)
        : delimiters(delimiterBytes), stops(delimiters), quote(quoteByte) {
        if (quote != 0) stops.Add({&quote, 1});
    }

    ByteSet delimiters;
    ByteSet stops; // the delimiters and the quote byte
    char quote;
};

/// Reads the tokens of a text one after another, by the rules of string_vector::Split. It copies nothing but
/// tokens with quotes. The text and the rules must outlive it.
class TokenReader {
public:
    TokenReader(std::string_view text, const TokenRules& rules) : m_text(text), m_rules(rules) {}

    /// Sets `token` to the next token, valid until the next call; false when there is none, `token` then
    /// stays.
    bool Next(std::string_view& token) {
        const size_t start = SkipWhile(m_text, m_pos, m_rules.delimiters);
        m_pos = FindFirst(m_text, start, m_rules.stops);
        if (start == m_text.size()) return false;
        token = AtQuote() ? ReadQuoted(start) : m_text.substr(start, m_pos - start);
        return true;
    }

private:
    bool AtQuote() const { return m_pos < m_text.size() && !m_rules.delimiters.Has(m_text[m_pos]); }

    std::string_view ReadQuoted(size_t start) {
        m_unquoted.assign(m_text, start, m_pos - start);
        while (AtQuote()) {
            AppendQuotedStretch();
            const size_t plain = m_pos;
            m_pos = FindFirst(m_text, plain, m_rules.stops);
            m_unquoted.append(m_text, plain, m_pos - plain);
        }
        return m_unquoted;
    }

    void AppendQuotedStretch() {
        for (;;) {
            const size_t begin = m_pos + 1;
            m_pos = m_text.find(m_rules.quote, begin);
            if (m_pos == m_text.npos) m_pos = m_text.size();
            m_unquoted.append(m_text, begin, m_pos - begin);
            if (m_pos == m_text.size()) return; // never closed
            if (++m_pos == m_text.size() || m_text[m_pos] != m_rules.quote) return;
            m_unquoted += m_rules.quote; // two in a row are one literal quote
        }
    }

    std::string_view m_text;
    const TokenRules& m_rules;
    size_t m_pos = 0;
    std::string m_unquoted;
};

} // namespace vrx
