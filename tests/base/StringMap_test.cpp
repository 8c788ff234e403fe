#include "base/StringMap.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace {

using Entries = std::map<std::string, std::string>;

static_assert(sizeof(string_map) == sizeof(Entries));
static_assert(std::is_base_of_v<Entries, string_map>);
static_assert(!std::is_polymorphic_v<string_map>);

struct Case {
    const char* name;
    const char* text;
    char quote;
    Entries want;
};

const Case kTexts[] = {
    {"null", nullptr, 0, {}},
    {"empty", "", 0, {}},
    {"only commas", ",,,", 0, {}},
    {"one setting", "a=1", 0, {{"a", "1"}}},
    {"a configuration",
     "server=10.0.0.5, servport=7000, clport=7001, input=In, output=Out, layout=Main",
     0,
     {{"server", "10.0.0.5"},
      {"servport", "7000"},
      {"clport", "7001"},
      {"input", "In"},
      {"output", "Out"},
      {"layout", "Main"}}},
    {"commas too many", "a=1,,b=2,", 0, {{"a", "1"}, {"b", "2"}}},
    {"blanks around", " a = 1 ", 0, {{"a", "1"}}},
    {"tabs around", "\ta\t=\t1\t", 0, {{"a", "1"}}},
    {"the first one wins", "a=1,a=2", 0, {{"a", "1"}}},
    {"a skipped item does not count as first", "a=,a=2", 0, {{"a", "2"}}},
    {"keys by case", "Server=1,server=2", 0, {{"Server", "1"}, {"server", "2"}}},
    {"no equals sign", "servport 7000", 0, {{"servport", "7000"}}},
    {"two words", "a b", 0, {{"a", "b"}}},
    {"three words", "a b c", 0, {}},
    {"two words and a value", "x y=z", 0, {{"x", "z"}}},
    {"a key alone", "server", 0, {}},
    {"no value", "key=", 0, {}},
    {"no key", "=value", 0, {}},
    {"blanks only", " \t ,a=1", 0, {{"a", "1"}}},
    {"many equals signs, two tokens", "=a==b=", 0, {{"a", "b"}}},
    {"an empty value", "a b c=", 0, {{"a", ""}}},
    {"a raw value", "name=two words", 0, {{"name", "two words"}}},
    {"a raw value with its blanks", "name= two words ", 0, {{"name", " two words "}}},
    {"a raw value behind blanks", "layout = my layout", 0, {{"layout", " my layout"}}},
    {"a raw value with equals signs", "a=b=c", 0, {{"a", "b=c"}}},
    {"a raw value with a leading equals sign", "a==b c", 0, {{"a", "=b c"}}},
    {"an equals sign before the key", "=a b c", 0, {{"a", "a b c"}}},
    {"other white space is plain", "a\n=\v1", 0, {{"a\n", "\v1"}}},
    {"bytes above 0x7F", "\xFF=\xFE", 0, {{"\xFF", "\xFE"}}},
    {"a quote that does not quote", "a='1,b=2'", 0, {{"a", "'1"}, {"b", "2'"}}},

    // Quoting works twice: the item loses its outer quotes before its tokens are read.
    {"a quoted comma", "a='1,2'", '\'', {{"a", "1,2"}}},
    {"quoted blanks are raw text", "a='1 2'", '\'', {{"a", "1 2"}}},
    {"quotes for the second step", "a=''''1 2''''", '\'', {{"a", "1 2"}}},
    {"quotes left for the tokens", "'''a b''=1'", '\'', {{"a b", "1"}}},
    {"the raw value keeps its quotes", "'''a b''=''x y'' z'", '\'', {{"a b", "'x y' z"}}},
    {"an empty quoted item", "'',a=1", '\'', {{"a", "1"}}},
    {"an empty key", "'''''=1'", '\'', {{"", "1"}}},
    {"a quote left open for the tokens", "'''' 1", '\'', {}},
    {"an empty key and value", "'''''' ''''''", '\'', {{"", ""}}},
    {"an open quote", "a='1,b=2", '\'', {{"a", "1,b=2"}}},
    {"a comma that quotes only in the items", "a=1,b=2", ',', {{"a", "1"}, {"b", "2"}}},
    {"an equals sign that quotes the items", "a=1,b=2", '=', {}},
    {"an equals sign that quotes the items, two tokens", "a =1,b= 2", '=', {}},
};

TEST(StringMap, ReadsSettings) {
    for (const Case& c : kTexts) {
        SCOPED_TRACE(c.name);
        string_map map;
        map["old"] = "entry";
        EXPECT_EQ(map.Split(c.text, c.quote), c.want.size());
        EXPECT_EQ(Entries(map), c.want);
    }
}

TEST(StringMap, OrdersKeysByUnsignedBytes) {
    string_map map;
    ASSERT_EQ(map.Split("\xE4=1,b=2,ab=3,a=4,B=5", 0), 5u);
    std::string keys;
    for (const auto& [key, value] : map) keys += key + ' ';
    EXPECT_EQ(keys, "B a ab b \xE4 ");
}

TEST(StringMap, TakesATextFromTheMapItself) {
    string_map map;
    map["text"] = "a=1,b=a value that is too long for the small buffer";
    EXPECT_EQ(map.Split(map["text"].c_str(), 0), 2u);
    EXPECT_EQ(Entries(map), (Entries{{"a", "1"}, {"b", "a value that is too long for the small buffer"}}));
}

TEST(StringMap, ReadsManySettings) {
    std::string text;
    Entries want;
    for (int i = 0; i < 1000; ++i) {
        const std::string number = std::to_string(i);
        text += "key" + number + "=" + number + ",";
        want["key" + number] = number;
    }
    string_map map;
    EXPECT_EQ(map.Split(text.c_str(), 0), 1000u);
    EXPECT_EQ(Entries(map), want);
}

} // namespace
