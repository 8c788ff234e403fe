#include "base/StringVector.h"
#include "tests/support/NoMemory.h"
#include "tests/support/ScopedLocale.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <strings.h>

namespace {

using List = std::vector<std::string>;
using Sort = void (string_vector::*)(size_t);
using namespace std::string_literals;

List Sorted(List elements, Sort sort, size_t keep) {
    string_vector list;
    list.assign(elements.begin(), elements.end());
    (list.*sort)(keep);
    return list;
}

struct Case {
    const char* name;
    Sort sort;
    size_t keep;
    List elements;
    List want;
};

constexpr Sort kSort = &string_vector::sort;
constexpr Sort kSortRev = &string_vector::sortrev;
constexpr Sort kSortI = &string_vector::sorti;
constexpr Sort kSortIRev = &string_vector::sortirev;

const Case kSorts[] = {
    {"capitals first", kSort, 0, {"b", "B", "a"}, {"B", "a", "b"}},
    {"the shorter first", kSort, 0, {"ab", "a", "", "abc"}, {"", "a", "ab", "abc"}},
    {"unsigned bytes", kSort, 0, {"\xFF", "a", "\x80"}, {"a", "\x80", "\xFF"}},
    {"NULs count", kSort, 0, {"a\0b"s, "a\0a"s, "a\0"s, "a"}, {"a", "a\0"s, "a\0a"s, "a\0b"s}},
    {"beyond eight bytes",
     kSort,
     0,
     {"12345678b", "12345678a", "12345678"},
     {"12345678", "12345678a", "12345678b"}},
    {"NULs at the eighth byte",
     kSort,
     0,
     {"1234567\0"s, "1234567", "1234567\0\0"s},
     {"1234567", "1234567\0"s, "1234567\0\0"s}},
    {"unsigned bytes in each place",
     kSort,
     0,
     {"aaaaaaa\xFF", "aaaaaaaa",
      "\xFF"
      "aaaaaaa"},
     {"aaaaaaaa", "aaaaaaa\xFF",
      "\xFF"
      "aaaaaaa"}},

    {"the longer first", kSortRev, 0, {"a", "ab", "", "abc"}, {"abc", "ab", "a", ""}},
    {"small letters first", kSortRev, 0, {"a", "B", "b"}, {"b", "a", "B"}},

    {"without case", kSortI, 0, {"b", "B", "a"}, {"a", "b", "B"}},
    {"as small letters", kSortI, 0, {"_", "A", "a"}, {"_", "A", "a"}},
    {"equal elements stay in order", kSortI, 0, {"abc", "ABC", "aBc", "ab"}, {"ab", "abc", "ABC", "aBc"}},
    {"up to the NUL", kSortI, 0, {"b\0a"s, "B\0c"s, "b", "a\0z"s}, {"a\0z"s, "b\0a"s, "B\0c"s, "b"}},
    {"beyond eight bytes, without case",
     kSortI,
     0,
     {"ABCDEFGHb", "abcdefghA", "abcdefgh"},
     {"abcdefgh", "abcdefghA", "ABCDEFGHb"}},
    {"eight bytes and a NUL", kSortI, 0, {"abcdefgh\0b"s, "ABCDEFGH\0a"s}, {"abcdefgh\0b"s, "ABCDEFGH\0a"s}},
    {"bytes above 0x7F, without case", kSortI, 0, {"\xE4", "\xC4", "z"}, {"z", "\xC4", "\xE4"}},

    {"descending without case", kSortIRev, 0, {"b", "B", "a"}, {"b", "B", "a"}},
    {"equal elements stay in order when descending",
     kSortIRev,
     0,
     {"a", "abc", "ABC", "aBc", "b"},
     {"b", "abc", "ABC", "aBc", "a"}},
    {"up to the NUL when descending", kSortIRev, 0, {"b\0a"s, "B\0c"s, "c"}, {"c", "b\0a"s, "B\0c"s}},

    {"a kept title", kSort, 1, {"title", "c", "a"}, {"title", "a", "c"}},
    {"all but one kept", kSort, 2, {"c", "b", "a"}, {"c", "b", "a"}},
    {"all but two kept", kSort, 2, {"d", "c", "b", "a"}, {"d", "c", "a", "b"}},
    {"as many kept as there are", kSort, 3, {"c", "b", "a"}, {"c", "b", "a"}},
    {"more kept than there are", kSort, 5, {"c", "b", "a"}, {"c", "b", "a"}},
    {"far more kept than there are", kSort, SIZE_MAX, {"c", "b", "a"}, {"c", "b", "a"}},
    {"one kept of two", kSortRev, 1, {"a", "b"}, {"a", "b"}},
    {"one element", kSort, 0, {"a"}, {"a"}},
    {"two elements", kSort, 0, {"b", "a"}, {"a", "b"}},
    {"descending behind a title", kSortRev, 1, {"t", "a", "b"}, {"t", "b", "a"}},
    {"without case behind a title", kSortI, 1, {"t", "B", "a"}, {"t", "a", "B"}},
    {"descending without case behind a title", kSortIRev, 1, {"a", "a", "B"}, {"a", "B", "a"}},
};

TEST(Sort, PutsElementsInOrder) {
    for (const Case& c : kSorts) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Sorted(c.elements, c.sort, c.keep), c.want);
    }
}

TEST(Sort, LeavesAnEmptyListAlone) {
    for (const Sort sort : {kSort, kSortRev, kSortI, kSortIRev}) {
        for (const size_t keep : {size_t{0}, size_t{1}, SIZE_MAX}) EXPECT_EQ(Sorted({}, sort, keep), List{});
    }
}

TEST(Sort, FollowsTheLocaleWithoutCase) {
    const ScopedLocale locale(ScopedLocale::kLatin1);
    EXPECT_EQ(Sorted({"\xE4", "\xC4", "\xD6", "z"}, kSortI, 0), (List{"z", "\xE4", "\xC4", "\xD6"}));
    EXPECT_EQ(Sorted({"\xC4", "\xE4", "\xD6"}, kSortIRev, 0), (List{"\xD6", "\xC4", "\xE4"}));
}

bool Less(const std::string& a, const std::string& b) {
    return a < b;
}
bool LessIgnoringCase(const std::string& a, const std::string& b) {
    return ::strcasecmp(a.c_str(), b.c_str()) < 0;
}

struct Order {
    const char* name;
    Sort sort;
    bool (*less)(const std::string&, const std::string&);
};

const Order kOrders[] = {
    {"sort", kSort, Less},
    {"sortrev", kSortRev, [](const std::string& a, const std::string& b) { return Less(b, a); }},
    {"sorti", kSortI, LessIgnoringCase},
    {"sortirev", kSortIRev,
     [](const std::string& a, const std::string& b) { return LessIgnoringCase(b, a); }},
};

/// Elements of 0 to 12 bytes from a small alphabet, so that many are equal in part or without case.
List RandomList(size_t count) {
    std::mt19937 random(20'240'305);
    const std::string alphabet = "aAbB\xE4\0"s;
    List list(count);
    for (std::string& element : list) {
        element.resize(random() % 13);
        for (char& c : element) c = alphabet[random() % (random() % 2 ? 2 : alphabet.size())];
    }
    return list;
}

TEST(Sort, AgreesWithAStableSort) {
    for (const Order& order : kOrders) {
        for (const size_t count : {size_t{2}, size_t{3}, size_t{17}, size_t{100}, size_t{5000}}) {
            SCOPED_TRACE(std::string(order.name) + " of " + std::to_string(count));
            List want = RandomList(count);
            const size_t keep = count / 10;
            std::stable_sort(want.begin() + static_cast<ptrdiff_t>(keep), want.end(), order.less);
            EXPECT_EQ(Sorted(RandomList(count), order.sort, keep), want);
        }
    }
}

TEST(Sort, WorksWithoutMemory) {
    for (const Order& order : kOrders) {
        SCOPED_TRACE(order.name);
        List want = RandomList(2000);
        std::stable_sort(want.begin(), want.end(), order.less);
        string_vector list;
        static_cast<List&>(list) = RandomList(2000);

        {
            const NoMemory noMemory;
            (list.*order.sort)(0);
        }
        EXPECT_EQ(List(list), want);
    }
}

TEST(Sort, KeepsTheElementsWhereTheyAre) {
    string_vector list;
    static_cast<List&>(list) = RandomList(100);
    const std::string* const first = list.data();
    list.sort(0);
    EXPECT_EQ(list.data(), first);
    EXPECT_EQ(list.size(), 100u);
}

} // namespace
