// Operations that work on many bytes at once, held against plain twins on random inputs of all small sizes. Twins that
// fuzz targets need as well are those of fuzz/twins.

#include "base/BaseHelpers.h"
#include "base/internal/ByteSet.h"
#include "base/internal/PutBytes.h"
#include "base/internal/WideFind.h"
#include "fuzz/twins/Csv.h"
#include "fuzz/twins/Escapes.h"
#include "fuzz/twins/Identifiers.h"
#include "fuzz/twins/Profile.h"
#include "fuzz/twins/Split.h"
#include "fuzz/twins/Tokens.h"

#include <cctype>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <string_view>
#include <strings.h>
#include <vector>

namespace {

using namespace std::string_literals;
using namespace vrx::fuzz;
using Strings = std::vector<std::string>;

constexpr size_t kNothing = std::string_view::npos;
constexpr int kTexts = 20'000;

/// Random texts, the same in every run.
class Texts {
public:
    explicit Texts(std::string letters) : m_letters(std::move(letters)) {}

    size_t Below(size_t end) { return m_random() % end; }

    /// Up to `longest` bytes, with runs of the same one.
    std::string Next(size_t longest) {
        std::string text(Below(longest + 1), '\0');
        for (size_t i = 0; i < text.size(); ++i) {
            const bool run = i > 0 && Below(4) != 0;
            text[i] = run ? text[i - 1] : m_letters[Below(m_letters.size())];
        }
        return text;
    }

private:
    std::mt19937 m_random{1};
    std::string m_letters;
};

TEST(WideFindByte, AgreesWithAByteLoop) {
    Texts texts("abcd\0\xFF"s);
    const vrx::FewBytes few = {'a', 'b', '\xFF', 'a'};
    const auto isAmong = [](char c) { return c == 'a' || c == 'b' || c == '\xFF'; };
    for (int i = 0; i < kTexts; ++i) {
        const std::string text = texts.Next(70);
        const size_t pos = texts.Below(text.size() + 1);
        for (const bool wanted : {true, false}) {
            size_t want = pos;
            while (want < text.size() && isAmong(text[want]) != wanted) ++want;
            if (wanted) {
                std::string room(text.size() - pos, '#');
                size_t end = pos;
                const char* copied = vrx::WideCopy(room.data(), text, end, few);
                ASSERT_EQ(end, want);
                ASSERT_EQ(copied, room.data() + (want - pos));
                ASSERT_EQ(room.substr(0, want - pos), text.substr(pos, want - pos));
            }
            ASSERT_EQ(wanted ? vrx::WideFindByte<true>(text, pos, few)
                             : vrx::WideFindByte<false>(text, pos, few),
                      want)
                << testing::PrintToString(text) << " from " << pos;
        }
        size_t size = text.size();
        while (size > 0 && isAmong(text[size - 1])) --size;
        ASSERT_EQ(vrx::WideTrimmedSize(text, few), size) << testing::PrintToString(text);
    }
}

TEST(WideFindText, FindsTextsAsStdStringDoes) {
    Texts texts("ab\0"s);
    for (int i = 0; i < kTexts; ++i) {
        const std::string text = texts.Next(90);
        const std::string wanted = "a" + texts.Next(i % 2 ? 4 : 20);
        const size_t pos = texts.Below(text.size() + 1);
        ASSERT_EQ(vrx::WideFindText(text, pos, wanted), text.find(wanted, pos))
            << testing::PrintToString(wanted) << " in " << testing::PrintToString(text) << " from " << pos;
    }
}

TEST(ByteSet, SearchesAgreeWithAByteLoop) {
    Texts texts("abcdefg\0\xFF"s);
    for (int i = 0; i < kTexts; ++i) {
        const std::string bytes = texts.Next(8);
        const vrx::ByteSet set(bytes);
        const std::string text = texts.Next(70);
        const size_t pos = texts.Below(text.size() + 1);
        const auto has = [&](char c) { return bytes.find(c) != kNothing; };
        size_t first = pos, other = pos, size = text.size();
        while (first < text.size() && !has(text[first])) ++first;
        while (other < text.size() && has(text[other])) ++other;
        while (size > 0 && has(text[size - 1])) --size;
        SCOPED_TRACE(testing::PrintToString(bytes) + " in " + testing::PrintToString(text));
        ASSERT_EQ(vrx::FindFirst(text, pos, set), first);
        ASSERT_EQ(vrx::SkipWhile(text, pos, set), other);
        ASSERT_EQ(vrx::TrimmedSize(text, set), size);
    }
}

TEST(PutBytes, CopiesTextsOfAllSizes) {
    Texts texts("abcdefg");
    for (int i = 0; i < kTexts; ++i) {
        const std::string text = texts.Next(40);
        std::string room(text.size() + 1, '#');
        ASSERT_EQ(vrx::PutBytes(room.data(), text), room.data() + text.size());
        ASSERT_EQ(room, text + "#");
    }
}

TEST(Split, AgreesWithOneByteAtATime) {
    Texts texts("ab,; \0\n\t"s);
    for (int i = 0; i < kTexts; ++i) {
        const std::string text = texts.Next(80);
        const std::string delimiters = texts.Next(6);
        const Strings want = SlowSplit(text, delimiters);
        Strings got;
        String::Split(got, text, delimiters);
        ASSERT_EQ(got, want) << testing::PrintToString(text) << " at " << testing::PrintToString(delimiters);

        string_vector list;
        list.Split(text.c_str(), delimiters.c_str(), 0);
        ASSERT_EQ(static_cast<Strings&>(list), SlowTokens(text.c_str(), delimiters.c_str(), 0))
            << testing::PrintToString(text);
    }
}

TEST(Trim, AgreesWithOneByteAtATime) {
    Texts texts(" \t\ra"s);
    for (int i = 0; i < kTexts; ++i) {
        const std::string text = texts.Next(70);
        const auto trimmed = [&](auto trim) {
            std::string copy = text;
            trim(copy);
            return copy;
        };
        const size_t leading = std::min(text.find_first_not_of(" \t"), text.size());
        const std::string all = text.substr(0, text.find_last_not_of(" \t") + 1);
        const std::string lines = text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
        SCOPED_TRACE(testing::PrintToString(text));
        ASSERT_EQ(trimmed(String::TrimLeft), text.substr(leading));
        ASSERT_EQ(trimmed([](std::string& s) { String::TrimRight(s, false); }), all);
        ASSERT_EQ(trimmed([](std::string& s) { String::TrimRight(s, true); }), lines);
        ASSERT_EQ(trimmed(String::Trim), all.empty() ? "" : text.substr(leading, all.size()));
    }
}

TEST(Replace, AgreesWithOneHitAtATime) {
    Texts texts("ab");
    for (int i = 0; i < kTexts; ++i) {
        const std::string text = texts.Next(100);
        const std::string find = texts.Next(5);
        const std::string with = texts.Next(7);
        std::string want = text;
        size_t at = find.empty() ? kNothing : want.find(find);
        for (; at != kNothing; at = want.find(find, at + with.size())) want.replace(at, find.size(), with);
        ASSERT_EQ(String::Replace(text, find, with), want) << find << " by " << with << " in " << text;
    }
}

TEST(Merge, AgreesWithOneItemAtATime) {
    Texts texts("ab\0"s);
    for (int i = 0; i < kTexts; ++i) {
        Strings items(texts.Below(6));
        for (std::string& item : items) item = texts.Next(20);
        const std::string separator = texts.Next(10);
        std::string want;
        for (const std::string& item : items) {
            if (&item != items.data()) want += separator;
            want += item;
        }
        ASSERT_EQ(String::Merge(items, separator), want);
    }
}

TEST(CsvRow, AgreesWithOneByteAtATime) {
    Texts texts("ab,\"'\r\n");
    const char quotes[] = {'"', '\'', '\r', '\0'};
    for (int i = 0; i < kTexts; ++i) {
        string_vector list;
        for (size_t left = texts.Below(5); left > 0; --left) list.push_back(texts.Next(i % 2 ? 2 : 40));
        const bool force = texts.Below(2) != 0;
        const char quote = quotes[texts.Below(4)];
        std::string want;
        std::string added;
        for (const std::string& field : list) {
            SlowAddField(want, field, force, ',', quote);
            EXPECT_EQ(String::AddCSVField(added, field, force, ',', quote), 1);
        }
        ASSERT_EQ(added, want);
        ASSERT_EQ(list.saveToCSVString(0, force, ',', quote), want);
    }
}

TEST(SymmetricEncrypt, AgreesWithOneByteAtATime) {
    Texts texts("ab\x01\x7F\x80\xFF");
    for (int i = 0; i < kTexts / 10; ++i) {
        const std::string text = texts.Next(2000);
        const std::string key = "ab" + texts.Next(i % 2 ? 10 : 1200);
        const uint64_t seed = texts.Below(5000);
        std::string want = text;
        size_t at = seed % (key.size() - 1);
        for (char& c : want) {
            c = static_cast<char>(c ^ ((key[at] & 0x3F) | 0x80));
            if (++at == key.size()) at = 0;
        }
        ASSERT_EQ(String::SymmetricEncrypt(seed, key.c_str(), text.c_str()), want)
            << key.size() << " key bytes, " << text.size() << " text bytes";
    }
}

TEST(DecodeCQuoted, AgreesWithOneByteAtATime) {
    Texts texts("abx019\\\"q\0"s);
    for (int i = 0; i < kTexts; ++i) {
        const std::string text = texts.Next(80);
        std::string got;
        String::Decode(got, text, String::encCQuoted);
        ASSERT_EQ(got, SlowDecodedC(text)) << testing::PrintToString(text);
    }
}

TEST(IsIdentifier, AgreesWithTheCharacterClasses) {
    for (int first = 1; first < 256; ++first) {
        for (int second = 1; second < 256; ++second) {
            const std::string name = {static_cast<char>(first), static_cast<char>(second)};
            ASSERT_EQ(String::IsIdentifier(name.c_str(), "-.", "$"),
                      SlowIsIdentifier(name.c_str(), "-.", "$"))
                << first << " " << second;
        }
    }
}

TEST(FindI, AgreesWithTheCLibrary) {
    Texts texts("aAbBZz@[`{\0\xE4"s);
    for (int i = 0; i < kTexts; ++i) {
        string_vector list;
        list.push_back(texts.Next(6));
        const std::string wanted = texts.Next(6);
        const bool equal = ::strcasecmp(list[0].c_str(), wanted.c_str()) == 0;
        ASSERT_EQ(list.findi(wanted.c_str(), 0), equal ? 0 : -1)
            << testing::PrintToString(list[0]) << " and " << testing::PrintToString(wanted);
    }
}

TEST(GetProfileStr, AgreesWithSplitLines) {
    Texts texts("aAb= ;\0"s);
    for (int i = 0; i < kTexts; ++i) {
        string_vector list;
        for (size_t left = texts.Below(7); left > 0; --left)
            list.push_back(texts.Below(4) != 0 ? texts.Next(8) : "[a]");
        const std::string key = "aAb="[texts.Below(4)] + texts.Next(1);
        if (key.find('\0') != kNothing) continue;
        ASSERT_EQ(list.GetProfileStr("A", key.c_str(), "default"),
                  SlowProfileStr(list, "A", key.c_str(), "default"))
            << testing::PrintToString(list) << " for " << testing::PrintToString(key);
    }
}

} // namespace
