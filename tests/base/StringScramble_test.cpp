#include "base/StringScramble.h"

#include <csignal>
#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

struct Case {
    const char* name;
    uint64_t seed;
    const char* key;
    const char* text;
    std::string want;
};

// Masks: 'a' 0xA1, 'b' 0xA2, 'c' 0xA3; 'A' is 0x41.
const Case kTexts[] = {
    {"empty", 5, "ab", "", ""},
    {"a repeated key", 0, "ab", "AAA", "\xE0\xE3\xE0"},
    {"the way back", 0, "ab", "\xE0\xE3\xE0", "AAA"},
    {"two bytes always start at the first", 7, "ab", "AAA", "\xE0\xE3\xE0"},
    {"the largest seed", UINT64_MAX, "ab", "AAA", "\xE0\xE3\xE0"},
    {"three bytes, seed 0", 0, "abc", "AAAA", "\xE0\xE3\xE2\xE0"},
    {"three bytes, seed 1", 1, "abc", "AAAA", "\xE3\xE2\xE0\xE3"},
    {"three bytes, seed 2: never from the last", 2, "abc", "AAAA", "\xE0\xE3\xE2\xE0"},
    {"a seed above 32 bits", 0x1'0000'0001, "abcd", "AA", "\xE2\xE5"},  // 2^32 + 1 = 2 (mod 3): "cd"
    {"the largest seed of four", UINT64_MAX, "abcd", "AA", "\xE0\xE3"}, // 2^64 - 1 = 0 (mod 3): "ab"
    {"a key longer than the text", 1, "abcdef", "A", "\xE3"},
    {"only six key bits count", 0, "!\xE2", "AAA", "\xE0\xE3\xE0"},
    {"a byte that becomes NUL", 0, "ab",
     "\xA1"
     "A",
     "\0\xE3"s},
    {"bytes 0x01 and 0x7F", 0, "ab", "\x01\x7F", "\xA0\xDD"},
};

TEST(SymmetricEncrypt, XorsWithTheKey) {
    for (const Case& c : kTexts) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(String::SymmetricEncrypt(c.seed, c.key, c.text), c.want);
    }
}

TEST(SymmetricEncrypt, IsItsOwnInverse) {
    const std::string keys[] = {"ab", "key", "a longer key", std::string(1000, 'k') + "x"};
    for (size_t length = 0; length < 300; ++length) {
        std::string text;
        for (size_t i = 0; i < length; ++i) text += static_cast<char>(1 + i % 127);
        for (const std::string& key : keys) {
            const std::string scrambled = String::SymmetricEncrypt(length, key.c_str(), text.c_str());
            ASSERT_EQ(scrambled.size(), length);
            for (const char c : scrambled) ASSERT_LT(c, 0);
            ASSERT_EQ(String::SymmetricEncrypt(length, key.c_str(), scrambled.c_str()), text);
        }
    }
}

TEST(SymmetricEncrypt, RepeatsTheKeyOverALongText) {
    const std::string key = "0123456789x";
    const std::string text(100'000, 'A');
    const std::string scrambled = String::SymmetricEncrypt(3, key.c_str(), text.c_str());
    ASSERT_EQ(scrambled.size(), text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned mask = (static_cast<unsigned char>(key[(3 + i) % 11]) & 0x3Fu) | 0x80u;
        ASSERT_EQ(static_cast<unsigned char>(scrambled[i]), 'A' ^ mask) << "at " << i;
    }
}

TEST(SymmetricEncryptDeathTest, EndsTheProcessOnAKeyTooShort) {
    EXPECT_EXIT((void)String::SymmetricEncrypt(0, "a", "text"), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT((void)String::SymmetricEncrypt(0, "", "text"), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT((void)String::SymmetricEncrypt(0, "", ""), testing::KilledBySignal(SIGABRT), "");
}

} // namespace
