// String::SplitQuoted against a slow twin. The input is the text, NULs included.

#include "base/StringSplit.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"

#include <cctype>
#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

bool IsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c));
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsHexDigit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c));
}

/// The byte that the escape at `pos`, behind its backslash, stands for. `pos` moves behind the escape.
char SlowEscape(const std::string& text, size_t& pos) {
    static const std::string kLetters = "abftrnv";
    static const std::string kBytes = "\x07\x08\x0c\x09\x0d\x0a\x0b";
    const char c = text[pos];
    if (IsDigit(c)) {
        std::string digits;
        while (digits.size() < 3 && pos < text.size() && IsDigit(text[pos])) digits += text[pos++];
        unsigned value = 0;
        for (const char digit : digits) {
            if (digit > '7') break;
            value = value * 8 + static_cast<unsigned>(digit - '0');
        }
        return static_cast<char>(value & 0xFF);
    }
    ++pos;
    if (c == 'x' || c == 'X') {
        for (int taken = 0; taken < 2 && pos < text.size() && IsHexDigit(text[pos]); ++taken) ++pos;
        return '\0';
    }
    const size_t letter = kLetters.find(c);
    return letter == std::string::npos ? c : kBytes[letter];
}

std::vector<std::string> SlowWords(const std::string& text) {
    std::vector<std::string> words;
    size_t pos = 0;
    do {
        while (pos < text.size() && IsSpace(text[pos])) ++pos;
        std::string word;
        bool inQuotes = false;
        while (pos < text.size()) {
            const char c = text[pos++];
            if (IsSpace(c) && !inQuotes) break;
            if (c == '"')
                inQuotes = !inQuotes;
            else if (c == '\\' && pos < text.size())
                word += SlowEscape(text, pos);
            else
                word += c;
        }
        words.push_back(word);
    } while (pos < text.size());
    return words;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const std::string text = input.Rest();

    std::vector<std::string> words = {"old", "content"};
    String::SplitQuoted(words, text);
    RequireSame(words, SlowWords(text), "words as the twin cuts them");

    const std::vector<std::string> want = SlowWords(words.front());
    String::SplitQuoted(words, words.front());
    RequireSame(words, want, "a text of the result's own");
    return 0;
}
