// String::Split against a slow twin. Input: the delimiters behind their count, then the text; NULs included.

#include "base/StringSplit.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/twins/Split.h"

#include <string>
#include <vector>

using namespace vrx::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const std::string delimiters = input.Bytes(input.UpTo(15));
    const std::string text = input.Rest();

    std::vector<std::string> parts = {"old", "content"};
    String::Split(parts, text, delimiters);
    RequireSame(parts, SlowSplit(text, delimiters), "parts as the twin cuts them");

    const std::vector<std::string> want = SlowSplit(parts.back(), delimiters);
    String::Split(parts, parts.back(), delimiters);
    RequireSame(parts, want, "a text of the result's own");
    return 0;
}
