#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

namespace vrx {

/// A yes-or-no question about bytes that is asked once per byte value and then remembered. Meant for the
/// locale's character classes: a table of all 256 answers would cost more than a short text is worth.
template <class Question>
class ByteClass {
public:
    /// `question` takes an unsigned char and returns bool.
    explicit ByteClass(Question question) : m_question(std::move(question)) {}

    bool Has(char c) {
        const auto byte = static_cast<unsigned char>(c);
        if (m_answers[byte] == kUnknown) m_answers[byte] = m_question(byte) ? kYes : kNo;
        return m_answers[byte] == kYes;
    }

    /// The first position at or after `pos` whose byte is not in the class, or the text's size.
    size_t SkipWhile(std::string_view text, size_t pos) {
        while (pos < text.size() && Has(text[pos])) ++pos;
        return pos;
    }

    /// The first position at or after `pos` whose byte is in the class, or the text's size.
    size_t FindFirst(std::string_view text, size_t pos) {
        while (pos < text.size() && !Has(text[pos])) ++pos;
        return pos;
    }

private:
    enum Answer : unsigned char { kUnknown, kYes, kNo };

    Question m_question;
    std::array<Answer, 256> m_answers{};
};

} // namespace vrx
