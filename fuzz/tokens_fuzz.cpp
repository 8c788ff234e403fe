// string_vector::Split against a slow twin. Input: the quote character, the delimiters up to a NUL, the text.

#include "base/StringVector.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/twins/Tokens.h"

#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

void RequireSplit(string_vector& list, const char* text, const std::string& delimiters, char quote,
                  const char* what) {
    const std::vector<std::string> want = SlowTokens(text, delimiters, quote);
    list.Split(text, delimiters.c_str(), quote);
    RequireSame(static_cast<const std::vector<std::string>&>(list), want, what);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const char quote = input.Char();
    const std::string delimiters = input.Field();
    const std::string text = input.Field();

    string_vector list;
    RequireSplit(list, text.c_str(), delimiters, quote, "tokens as the twin reads them");
    RequireSplit(list, text.c_str(), delimiters, quote, "a filled list is replaced");
    if (!list.empty()) {
        const std::string last = list.back();
        Require(list.find(last.c_str(), 0) >= 0, "a token is found again");
        RequireSplit(list, list.back().c_str(), delimiters, quote, "a text of the list's own");
    }
    return 0;
}
