// String::SplitQuoted against a slow twin. The input is the text, NULs included.

#include "base/StringSplit.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/twins/Escapes.h"

#include <cctype>
#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

bool IsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c));
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
                word += SlowEscape(text, pos, 2);
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
