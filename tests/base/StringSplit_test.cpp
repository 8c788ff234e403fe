#include "base/BaseHelpers.h"

#include "tests/support/ScopedLocale.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

using namespace std::string_literals;
using Words = std::vector<std::string>;

namespace {

Words SplitAt(const std::string& text, const std::string& delimiters) {
    Words result{"old"};
    String::Split(result, text, delimiters);
    return result;
}

Words QuotedWords(const std::string& text) {
    Words result{"old"};
    String::SplitQuoted(result, text);
    return result;
}

} // namespace

TEST(Split, CutsAtAnyDelimiter) {
    const struct {
        const char* name;
        std::string text;
        std::string delimiters;
        Words want;
    } cases[] = {
        {"runs count as one", ",,a,,b,,", ",", {"a", "b"}},
        {"delimiters only", ",,,", ",", {""}},
        {"one delimiter", ",", ",", {""}},
        {"empty text", "", ",", {""}},
        {"no delimiters", "abc", "", {"abc"}},
        {"no delimiters, empty text", "", "", {""}},
        {"no delimiter in the text", "abc", ",", {"abc"}},
        {"a set, not a text", "a,;b;c", ",;", {"a", "b", "c"}},
        {"one piece, delimiter in front", ",a", ",", {"a"}},
        {"one piece, delimiter behind", "a,", ",", {"a"}},
        {"quotes are ordinary", "\"a b\" c", " ", {"\"a", "b\"", "c"}},
        {"a NUL in the text", "a\0b,c"s, ",", {"a\0b"s, "c"}},
        {"a NUL as delimiter", "a\0b,c"s, "\0"s, {"a", "b,c"}},
        {"byte 0xFF as delimiter", "a\xFF\xFE", "\xFF", {"a", "\xFE"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(SplitAt(c.text, c.delimiters), c.want);
    }
}

TEST(Split, ArgumentsMayBeElementsOfTheResult) {
    Words list{"x", "a,b;c", ",;"};
    String::Split(list, list[1], list[2]);
    EXPECT_EQ(list, (Words{"a", "b", "c"}));
    list = {"a long text that owns memory of its own", "x"};
    String::Split(list, list[0], "");
    EXPECT_EQ(list, (Words{"a long text that owns memory of its own"}));
    list = {"x", "one long text that owns memory of its own, and more"};
    String::Split(list, list[1], ",");
    EXPECT_EQ(list, (Words{"one long text that owns memory of its own", " and more"}));
}

TEST(SplitQuoted, Words) {
    const struct {
        const char* name;
        std::string text;
        Words want;
    } cases[] = {
        {"words, quotes and an escape", "  one \"two three\" fo\\\"ur", {"one", "two three", "fo\"ur"}},
        {"empty text", "", {""}},
        {"one blank", " ", {""}},
        {"blanks only", " \t\r\n\v\f ", {""}},
        {"one blank at the end", "a ", {"a"}},
        {"two blanks at the end", "a  ", {"a", ""}},
        {"three blanks at the end", "a   ", {"a", ""}},
        {"every white space", "a\tb\nc\rd\ve\ff", {"a", "b", "c", "d", "e", "f"}},
        {"empty quotes", "\"\"", {""}},
        {"empty quotes between words", "a \"\" b", {"a", "", "b"}},
        {"quotes inside a word", "a\"b c\"d e", {"ab cd", "e"}},
        {"quotes one behind the other", "\"a b\"\"c d\"", {"a bc d"}},
        {"never closed", "\"a b ", {"a b "}},
        {"a lone quote", "\"", {""}},
        {"a lone quote behind a blank", "a \"", {"a", ""}},
        {"white space of every kind in quotes", "\"a \t\n\"", {"a \t\n"}},
        {"an escaped blank", "a\\ b c", {"a b", "c"}},
        {"an escaped quote does not toggle", "\\\"a b\\\"", {"\"a", "b\""}},
        {"an escaped quote in quotes", "\"a\\\" b\"", {"a\" b"}},
        {"a NUL is ordinary", "a\0b c"s, {"a\0b"s, "c"}},
        {"byte 0xFF", "\xFF \xFF", {"\xFF", "\xFF"}},
        {"apostrophes are ordinary", "'a b'", {"'a", "b'"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(QuotedWords(c.text), c.want);
    }
}

TEST(SplitQuoted, Escapes) {
    const struct {
        const char* name;
        std::string text;
        std::string want;
    } cases[] = {
        {"letters", R"(\a\b\f\t\r\n\v)", "\x07\x08\x0C\x09\x0D\x0A\x0B"},
        {"octal", R"(\101)", "A"},
        {"one digit", R"(\8)", "\0"s},
        {"three digits at most", R"(\1012)", "A2"},
        {"an 8 or 9 ends the number and is taken", R"(\19\1812)",
         "\x01\x01"
         "2"},
        {"low byte", R"(\777)", "\xFF"},
        {"x takes two digits and gives 0", R"(\x414)",
         "\0"
         "4"s},
        {"X takes one", R"(\XfG)", "\0G"s},
        {"x takes none", R"(\xg)", "\0g"s},
        {"x at the end", R"(\x)", "\0"s},
        {"other bytes give themselves", R"(\\\'\"\{\z)", "\\'\"{z"},
        {"a backslash at the end", "a\\", "a\\"},
        {"a backslash at the end inside quotes", "\"a \\", "a \\"},
        {"before a NUL", "\\\0"s, "\0"s},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(QuotedWords(c.text), Words{c.want});
        EXPECT_EQ(QuotedWords("  " + c.text), Words{c.want});
    }
}

TEST(SplitQuoted, TextMayBeAnElementOfTheResult) {
    Words list{"x", "a \"b c\" d"};
    String::SplitQuoted(list, list[1]);
    EXPECT_EQ(list, (Words{"a", "b c", "d"}));
}

TEST(SplitQuoted, WhiteSpaceIsThatOfTheLocale) {
    EXPECT_EQ(QuotedWords("a\xA0"
                          "b"),
              Words{"a\xA0"
                    "b"});
    const ScopedLocale latin1(ScopedLocale::kLatin1);
    const bool spaces = std::isspace(0xA0) != 0; // the no-break space, if the locale takes it for one
    EXPECT_EQ(QuotedWords("a\xA0"
                          "b")
                  .size(),
              spaces ? 2U : 1U);
}

// The rules of both functions once more, byte by byte and as plainly as they can be said.
namespace {

Words PlainSplit(const std::string& text, const std::string& delimiters) {
    if (delimiters.empty()) return {text};
    Words result;
    size_t start = text.find_first_not_of(delimiters);
    if (start == text.npos) return {""};
    while (start != text.npos) {
        const size_t end = text.find_first_of(delimiters, start);
        result.push_back(text.substr(start, end == text.npos ? end : end - start));
        start = end == text.npos ? end : text.find_first_not_of(delimiters, end);
    }
    return result;
}

char PlainEscape(const std::string& text, size_t& pos) {
    const char c = text[pos++];
    std::string digits(1, c);
    if (c >= '0' && c <= '9') {
        while (digits.size() < 3 && pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            digits += text[pos++];
        }
        return static_cast<char>(std::strtoul(digits.c_str(), nullptr, 8));
    }
    if (c == 'x' || c == 'X') {
        while (digits.size() < 3 && pos < text.size() &&
               std::isxdigit(static_cast<unsigned char>(text[pos]))) {
            digits += text[pos++];
        }
        return static_cast<char>(std::strtoul(digits.c_str(), nullptr, 16));
    }
    if (c == 'a') return 7;
    if (c == 'b') return 8;
    if (c == 'f') return 12;
    if (c == 't') return 9;
    if (c == 'r') return 13;
    if (c == 'n') return 10;
    if (c == 'v') return 11;
    return c;
}

Words PlainSplitQuoted(const std::string& text) {
    Words result;
    for (size_t pos = 0;;) {
        while (pos < text.size() && std::isspace(static_cast<unsigned char>(text[pos]))) ++pos;
        std::string word;
        bool quoted = false;
        while (pos < text.size()) {
            const char c = text[pos++];
            if (!quoted && std::isspace(static_cast<unsigned char>(c))) break;
            if (c == '"')
                quoted = !quoted;
            else if (c == '\\' && pos < text.size())
                word += PlainEscape(text, pos);
            else
                word += c;
        }
        result.push_back(word);
        if (pos >= text.size()) return result;
    }
}

/// Every text of up to `most` characters of `alphabet`.
template <class Check>
void ForAllTexts(std::string_view alphabet, size_t most, Check check) {
    Words texts{""};
    for (size_t done = 0; done < texts.size(); ++done) {
        check(texts[done]);
        if (testing::Test::HasFailure()) return;
        if (texts[done].size() == most) continue;
        for (const char c : alphabet) texts.push_back(texts[done] + c);
    }
}

} // namespace

TEST(Split, AllShortTexts) {
    ForAllTexts(std::string_view("a,;\0\xE9", 5), 6, [](const std::string& text) {
        ASSERT_EQ(SplitAt(text, ",;"), PlainSplit(text, ",;"));
        ASSERT_EQ(SplitAt(text, "\0\xE9"s), PlainSplit(text, "\0\xE9"s));
    });
}

TEST(SplitQuoted, AllShortTexts) {
    ForAllTexts(std::string_view("a \n\"\\x18f\0\xE9", 11), 5,
                [](const std::string& text) { ASSERT_EQ(QuotedWords(text), PlainSplitQuoted(text)); });
}
