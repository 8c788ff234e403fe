// Identifiers and macro expansion against slow twins.
// Input: a byte of flags, the delimiter, six macro values and the extra characters, each up to a NUL; then
// the text. Macros are named by one letter each, 'a' to 'f'. A value may name later letters only: sets of
// macros are acyclic, and expansions that grow beyond a bound are left out.

#include "base/StringMacros.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/twins/Identifiers.h"

#include <map>
#include <string>

using namespace vrx::fuzz;

namespace {

using Macros = std::map<std::string, std::string>;

constexpr char kFirstMacro = 'a';
constexpr char kLastMacro = 'f';

std::string SlowExpandIdentifier(const std::string& text, const Macros& macros, const char* extra) {
    std::string result;
    std::string word;
    const auto endWord = [&] {
        const auto macro = macros.find(word);
        result += macro == macros.end() ? word : macro->second;
        word.clear();
    };
    for (const char c : std::string(text.c_str())) {
        const bool starts = IsLetter(c) || c == '_' || c == '$' || c == '@';
        const bool continues = c == '_' || IsLetterOrDigit(c) || Holds(extra, c);
        if (!word.empty() && !continues) endWord();
        if (!word.empty() || starts)
            word += c;
        else
            result += c;
    }
    if (!word.empty()) endWord();
    return result;
}

class SlowExpander {
public:
    SlowExpander(const Macros& macros, bool checkIdentifiers, char delimiter)
        : m_macros(macros), m_checkIdentifiers(checkIdentifiers), m_delimiter(delimiter) {}

    void Expand(const std::string& text) {
        size_t pos = 0;
        while (!GaveUp()) {
            ++m_steps;
            const size_t open = text.find(m_delimiter, pos);
            const size_t close = open == std::string::npos ? open : text.find(m_delimiter, open + 1);
            if (close == std::string::npos) {
                if (open != std::string::npos)
                    log += "Unterminated macro at index " + std::to_string(open) + "\n";
                output += text.substr(pos);
                return;
            }
            output += text.substr(pos, open - pos);
            pos = close + 1;
            ExpandMacro(text.substr(open + 1, close - open - 1), open);
        }
    }

    bool GaveUp() const { return m_steps > kMostSteps || output.size() + log.size() > kMostBytes; }

    std::string output;
    std::string log;

private:
    void ExpandMacro(const std::string& name, size_t index) {
        const auto macro = m_macros.find(name);
        if (name.empty())
            output += '$';
        else if (m_checkIdentifiers && !SlowIsIdentifier(name.c_str(), nullptr, nullptr))
            KeepName(name, "Macro '" + std::string(name.c_str()) + "' is not an identifier", index);
        else if (macro == m_macros.end())
            KeepName(name, "Undefined macro '" + std::string(name.c_str()) + "'", index);
        else
            Expand(macro->second);
    }

    void KeepName(const std::string& name, const std::string& problem, size_t index) {
        log += problem + " at index " + std::to_string(index) + "\n";
        output += '$' + name + '$';
    }

    static constexpr long kMostSteps = 20000;
    static constexpr size_t kMostBytes = 100000;
    const Macros& m_macros;
    bool m_checkIdentifiers;
    char m_delimiter;
    long m_steps = 0;
};

/// The macros of an input; the letters that would make a cycle are turned into capitals.
Macros AcyclicMacros(FuzzInput& input) {
    Macros macros;
    for (char name = kFirstMacro; name <= kLastMacro; ++name) {
        std::string value = input.Field();
        for (char& c : value)
            if (c >= kFirstMacro && c <= name) c = static_cast<char>(c - 'a' + 'A');
        macros[std::string(1, name)] = value;
    }
    return macros;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const uint8_t flags = input.Byte();
    const bool checkIdentifiers = (flags & 1) != 0;
    const char delimiter = input.Char();
    const Macros macros = AcyclicMacros(input);
    const std::string extraText = input.Field();
    const char* extra = (flags & 2) != 0 ? nullptr : extraText.c_str();
    const std::string text = input.Rest();

    RequireSame(String::IsIdentifier(text.c_str(), extra, nullptr),
                SlowIsIdentifier(text.c_str(), extra, nullptr), "an identifier");
    RequireSame(String::IsIdentifier(text.c_str(), nullptr, extra),
                SlowIsIdentifier(text.c_str(), nullptr, extra), "an identifier with extra first characters");
    RequireSame(String::ExpandIdentifier(text, macros, extra), SlowExpandIdentifier(text, macros, extra),
                "words expanded");

    SlowExpander slow(macros, checkIdentifiers, delimiter);
    slow.Expand(text);
    if (slow.GaveUp()) return 0;
    std::string output = "old";
    RequireSame(String::ExpandDelimited(output, text, macros, checkIdentifiers, delimiter), slow.log,
                "the log of the problems");
    RequireSame(output, slow.output, "macros expanded");
    std::string inPlace = text;
    RequireSame(String::ExpandDelimited(inPlace, inPlace, macros, checkIdentifiers, delimiter), slow.log,
                "the log of an expansion in place");
    RequireSame(inPlace, slow.output, "macros expanded in place");
    return 0;
}
