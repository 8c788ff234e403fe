#include "base/BaseHelpers.h"

#include "tests/support/ScopedLocale.h"

#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

using namespace std::string_literals;
using Macros = std::map<std::string, std::string>;

namespace {

struct Expansion {
    std::string text;
    std::string log;
    bool operator==(const Expansion&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Expansion& e) {
    return out << testing::PrintToString(e.text) << " with log " << testing::PrintToString(e.log);
}

/// The name of macro number `i`.
std::string Name(int i) {
    std::string name = "m";
    return name.append(std::to_string(i));
}

Expansion Expanded(const std::string& text, const Macros& macros, bool check = false, char delimiter = '$') {
    Expansion result{"old", ""};
    result.log = String::ExpandDelimited(result.text, text, macros, check, delimiter);
    return result;
}

} // namespace

TEST(IsIdentifier, Names) {
    const struct {
        const char* name;
        const char* extra;
        const char* extraFirst;
        bool want;
    } cases[] = {
        {nullptr, nullptr, nullptr, false},
        {"", nullptr, nullptr, false},
        {"", "a", "a", false},
        {"a", nullptr, nullptr, true},
        {"Z", nullptr, nullptr, true},
        {"_", nullptr, nullptr, true},
        {"_9", nullptr, nullptr, true},
        {"aZ_09", nullptr, nullptr, true},
        {"9", nullptr, nullptr, false},
        {"9a", nullptr, nullptr, false},
        {"9a", "0123456789", nullptr, false}, // the set for the further characters comes first
        {"9a", nullptr, "0123456789", true},
        {"a-b", nullptr, nullptr, false},
        {"a-b", "-", nullptr, true},
        {"a-b", nullptr, "-", false},
        {"-b", "-", nullptr, false},
        {"-b", nullptr, "-", true},
        {"--", "-", "-", true},
        {"a-", "+-", "", true},
        {"a b", "", "", false},
        {"\xE9", nullptr, nullptr, false},
        {"a\xE9", nullptr, nullptr, false},
        {"\xE9\xFF", "\xFF", "\xE9", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name != nullptr ? c.name : "null");
        EXPECT_EQ(String::IsIdentifier(c.name, c.extra, c.extraFirst), c.want);
    }
}

TEST(IsIdentifier, EveryFirstAndFurtherByte) {
    const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
    for (int byte = 1; byte < 256; ++byte) {
        SCOPED_TRACE(byte);
        const char c = static_cast<char>(byte);
        const bool letter = letters.find(c) != letters.npos;
        const bool digit = byte >= '0' && byte <= '9';
        EXPECT_EQ(String::IsIdentifier(std::string{c}.c_str(), nullptr, nullptr), letter);
        EXPECT_EQ(String::IsIdentifier(std::string{'a', c}.c_str(), nullptr, nullptr), letter || digit);
    }
}

TEST(IsIdentifier, LettersAreThoseOfTheLocale) {
    const ScopedLocale latin1(ScopedLocale::kLatin1);
    EXPECT_TRUE(String::IsIdentifier("\xE4", nullptr, nullptr));
    EXPECT_TRUE(String::IsIdentifier("a\xC4", nullptr, nullptr));
    EXPECT_FALSE(String::IsIdentifier("\xA7", nullptr, nullptr)); // the section sign
    const ScopedLocale utf8(ScopedLocale::kUtf8);
    EXPECT_FALSE(String::IsIdentifier("\xC3\xA4", nullptr, nullptr));
}

TEST(ExpandIdentifier, ReplacesWholeWords) {
    const Macros macros = {{"name", "N"}, {"@y", "Y"}, {"$a", "A"},  {"$b", "B"},        {"a", "name"},
                           {"x1", "X"},   {"$", "D"},  {"_", "U"},   {"\xE9", "accent"}, {"1", "?"},
                           {"-", "?"},    {"", "?"},   {"a-b", "M"}, {"$HOME", "H"}};
    const struct {
        const char* name;
        std::string text;
        const char* extra;
        const char* want;
    } cases[] = {
        {"empty", "", nullptr, ""},
        {"words of each kind", "name, _x and @y", nullptr, "N, _x and Y"},
        {"nothing but a word", "name", nullptr, "N"},
        {"a longer word", "names name1 _name", nullptr, "names name1 _name"},
        {"cases differ", "Name", nullptr, "Name"},
        {"values are not expanded again", "a a", nullptr, "name name"},
        {"dollar words", "$a$b", nullptr, "AB"},
        {"the start character is part of the key", "$HOME HOME", nullptr, "H HOME"},
        {"dollar and at sign inside with extra characters", "$a$b @y@y", "$@", "$a$b @y@y"},
        {"a lone dollar", "$ $$", nullptr, "D DD"},
        {"a lone underscore", "_", nullptr, "U"},
        {"digits do not start a word", "1 1name 1x1", nullptr, "1 1N 1X"},
        {"digits continue one", "x1 x12", nullptr, "X x12"},
        {"a hyphen ends a word", "a-b", nullptr, "name-b"},
        {"unless it is extra", "a-b -", "-", "M -"},
        {"extra characters do not start a word", "-a", "-", "-name"},
        {"a digit as extra", "1", "1", "1"},
        {"bytes above 0x7F are no letters", "\xE9", nullptr, "\xE9"},
        {"ends at a NUL", "a\0a"s, nullptr, "name"},
        {"begins with a NUL", "\0a"s, nullptr, ""},
        {"other characters", "(name)+[name]\n", nullptr, "(N)+[N]\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(String::ExpandIdentifier(c.text, macros, c.extra), c.want);
    }
}

TEST(ExpandIdentifier, LettersAreThoseOfTheLocale) {
    const Macros macros = {{"\xE4", "ae"}, {"a", "?"}};
    EXPECT_EQ(String::ExpandIdentifier("\xE4 a\xE4", macros, nullptr), "\xE4 ?\xE4");
    const ScopedLocale latin1(ScopedLocale::kLatin1);
    EXPECT_EQ(String::ExpandIdentifier("\xE4 a\xE4", macros, nullptr), "ae a\xE4");
}

TEST(ExpandIdentifier, NoMacros) {
    EXPECT_EQ(String::ExpandIdentifier("a $b @c", {}, ""), "a $b @c");
}

TEST(ExpandIdentifier, TakesAStringMap) {
    string_map macros;
    macros.Split("a=1, b=2", '\'');
    EXPECT_EQ(String::ExpandIdentifier("a b c", macros, nullptr), "1 2 c");
}

TEST(ExpandIdentifier, ManyMacrosAndWords) {
    Macros macros;
    std::string text;
    std::string want;
    for (int i = 0; i < 1000; ++i) macros[Name(i)] = std::to_string(i * 7);
    for (int i = 0; i < 5000; ++i) {
        text += Name(i % 1500) + " ";
        want += (i % 1500 < 1000 ? std::to_string(i % 1500 * 7) : Name(i % 1500)) + " ";
    }
    EXPECT_EQ(String::ExpandIdentifier(text, macros, nullptr), want);
}

TEST(ExpandDelimited, Texts) {
    const Macros macros = {{"name", "World"},
                           {"greet", "Hello $name$"},
                           {"bad", "<$nope$ and $name>"},
                           {"outer", "1$bad$2"},
                           {"empty", ""},
                           {"1x", "one x"},
                           {"a\0b"s, "nul"},
                           {"a b", "blank"},
                           {"dollar", "$$"},
                           {"percent", "%name%"}};
    const struct {
        const char* name;
        std::string text;
        bool check;
        std::string want;
        std::string log;
    } cases[] = {
        {"empty", "", false, "", ""},
        {"no macro", "plain", false, "plain", ""},
        {"nested", "$greet$!", false, "Hello World!", ""},
        {"two in a row", "$name$$name$", false, "WorldWorld", ""},
        {"an empty name", "$$5", false, "$5", ""},
        {"empty names only", "$$$$", false, "$$", ""},
        {"an empty value", "a$empty$b", false, "ab", ""},
        {"undefined", "$nope$", false, "$nope$", "Undefined macro 'nope' at index 0\n"},
        {"undefined inside", "ab $nope$ cd", false, "ab $nope$ cd", "Undefined macro 'nope' at index 3\n"},
        {"unterminated", "a $name", false, "a $name", "Unterminated macro at index 2\n"},
        {"a lone delimiter", "$", false, "$", "Unterminated macro at index 0\n"},
        {"a lone delimiter at the end", "$name$ $", false, "World $", "Unterminated macro at index 7\n"},
        {"cases differ", "$Name$", false, "$Name$", "Undefined macro 'Name' at index 0\n"},
        {"no identifier", "$1x$", true, "$1x$", "Macro '1x' is not an identifier at index 0\n"},
        {"no identifier, without the check", "$1x$", false, "one x", ""},
        {"a blank in a name", "$a b$", false, "blank", ""},
        {"a blank in a name with the check", "$a b$", true, "$a b$",
         "Macro 'a b' is not an identifier at index 0\n"},
        {"an empty name is not checked", "$$", true, "$", ""},
        {"an identifier passes the check", "$greet$ $nope$", true, "Hello World $nope$",
         "Undefined macro 'nope' at index 8\n"},
        {"problems inside a value", "x $bad$ y", false, "x <$nope$ and $name> y",
         "Undefined macro 'nope' at index 1\nUnterminated macro at index 12\n"},
        {"problems in the order met", "$a1$ $outer$ $a2$ $", false, "$a1$ 1<$nope$ and $name>2 $a2$ $",
         "Undefined macro 'a1' at index 0\nUndefined macro 'nope' at index 1\n"
         "Unterminated macro at index 12\nUndefined macro 'a2' at index 13\nUnterminated macro at index "
         "18\n"},
        {"a value of two delimiters", "$dollar$name$", false, "$name$", "Unterminated macro at index 12\n"},
        {"NULs are ordinary", "\0$name$\0"s, false, "\0World\0"s, ""},
        {"a NUL in a name", "$a\0b$"s, false, "nul", ""},
        {"a NUL in a name with the check", "$a\0b$"s, true, "nul", ""},
        {"a NUL in an undefined name", "$x\0y$"s, false, "$x\0y$"s, "Undefined macro 'x' at index 0\n"},
        {"a NUL in a name that is no identifier", "$1\0y$"s, true, "$1\0y$"s,
         "Macro '1' is not an identifier at index 0\n"},
        {"a NUL first in a name", "$\0y$"s, true, "$\0y$"s, "Macro '' is not an identifier at index 0\n"},
        {"another delimiter in a value", "$percent$", false, "%name%", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Expanded(c.text, macros, c.check), (Expansion{c.want, c.log}));
    }
}

TEST(ExpandDelimited, WritesDollarSignsWhateverTheDelimiterIs) {
    const Macros macros = {{"name", "World"}, {"n", "<%name%>"}, {"1x", "?"}};
    EXPECT_EQ(Expanded("100%%", macros, false, '%'), (Expansion{"100$", ""}));
    EXPECT_EQ(Expanded("%x%", macros, false, '%'), (Expansion{"$x$", "Undefined macro 'x' at index 0\n"}));
    EXPECT_EQ(Expanded("%1x%", macros, true, '%'),
              (Expansion{"$1x$", "Macro '1x' is not an identifier at index 0\n"}));
    EXPECT_EQ(Expanded("%n% $name$", macros, false, '%'), (Expansion{"<World> $name$", ""}));
    EXPECT_EQ(Expanded("a%", macros, false, '%'), (Expansion{"a%", "Unterminated macro at index 1\n"}));
    EXPECT_EQ(Expanded("\0name\0"s, macros, false, '\0'), (Expansion{"World", ""}));
}

TEST(ExpandDelimited, IdentifiersAreThoseOfTheLocale) {
    const Macros macros = {{"\xE4", "ae"}};
    EXPECT_EQ(Expanded("$\xE4$", macros, true),
              (Expansion{"$\xE4$", "Macro '\xE4' is not an identifier at index 0\n"}));
    const ScopedLocale latin1(ScopedLocale::kLatin1);
    EXPECT_EQ(Expanded("$\xE4$", macros, true), (Expansion{"ae", ""}));
}

TEST(ExpandDelimited, NamesMayBeOfAnyLength) {
    const std::string name(100'000, 'n');
    EXPECT_EQ(Expanded("$" + name + "$", {}),
              (Expansion{"$" + name + "$", "Undefined macro '" + name + "' at index 0\n"}));
    EXPECT_EQ(Expanded("$1" + name + "$", {}, true),
              (Expansion{"$1" + name + "$", "Macro '1" + name + "' is not an identifier at index 0\n"}));
}

TEST(ExpandDelimited, OutputMayBeTheTextOrAValue) {
    Macros macros = {{"a", "<$b$>"}, {"b", "B"}};
    std::string text = "$a$ $a$";
    EXPECT_EQ(String::ExpandDelimited(text, text, macros, false, '$'), "");
    EXPECT_EQ(text, "<B> <B>");
    EXPECT_EQ(String::ExpandDelimited(macros["a"], "$a$ $a$", macros, false, '$'), "");
    EXPECT_EQ(macros["a"], "<B> <B>");
}

TEST(ExpandDelimited, LongChainsOfMacros) {
    Macros macros;
    const int count = 200'000;
    for (int i = 0; i < count; ++i) macros[Name(i)] = "$m"s + std::to_string(i + 1) + "$.";
    macros[Name(count)] = "end";
    EXPECT_EQ(Expanded("$m0$", macros), (Expansion{"end" + std::string(count, '.'), ""}));
}

TEST(ExpandDelimited, ManyMacros) {
    Macros macros;
    std::string text;
    std::string want;
    std::string log;
    for (int i = 0; i < 1000; ++i) macros[Name(i)] = std::to_string(i * 7);
    for (int i = 0; i < 5000; ++i) {
        const std::string name = Name(i % 1500);
        if (i % 1500 >= 1000)
            log += "Undefined macro '" + name + "' at index " + std::to_string(text.size()) + "\n";
        want += i % 1500 < 1000 ? std::to_string(i % 1500 * 7) : "$" + name + "$";
        text += "$" + name + "$";
    }
    EXPECT_EQ(Expanded(text, macros), (Expansion{want, log}));
}
