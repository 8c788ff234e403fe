// string_map::Split against a slow twin. Input: the quote character, then the text.

#include "base/StringMap.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/twins/Tokens.h"

#include <map>
#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

using Settings = std::map<std::string, std::string>;

Settings SlowSettings(const std::string& text, char quote) {
    Settings settings;
    for (const std::string& item : SlowTokens(text, ",", quote)) {
        const std::vector<std::string> tokens = SlowTokens(item, " \t=", quote);
        const size_t equals = item.find('=');
        if (tokens.size() == 2) settings.insert({tokens[0], tokens[1]});
        if (tokens.size() > 2 && equals != std::string::npos)
            settings.insert({tokens[0], item.substr(equals + 1)});
    }
    return settings;
}

void RequireSplit(string_map& map, const char* text, char quote, const char* what) {
    const Settings want = SlowSettings(text, quote);
    const unsigned count = map.Split(text, quote);
    RequireSame(static_cast<const Settings&>(map), want, what);
    RequireSame(count, want.size(), "the result is the number of entries");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const char quote = input.Char();
    const std::string text = input.Field();

    string_map map;
    RequireSplit(map, text.c_str(), quote, "settings as the twin reads them");
    RequireSplit(map, text.c_str(), quote, "a filled map is replaced");
    if (!map.empty()) RequireSplit(map, map.begin()->second.c_str(), quote, "a text of the map's own");
    return 0;
}
