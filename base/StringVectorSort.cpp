#include "base/StringVector.h"

#include "base/internal/LocaleTables.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <new>
#include <numeric>
#include <string_view>
#include <utility>

namespace {

// An order looks at elements from an offset on, up to which all are equal in it. Its key holds the next eight
// bytes as a number that orders as they do (a shorter element counts as padded with zeros); equal keys decide
// nothing.

/// The order of the bytes.
struct ByteOrder {
    size_t CommonPrefix(std::string_view a, std::string_view b) const {
        return static_cast<size_t>(std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin());
    }
    uint64_t Key(const std::string& element, size_t from) const {
        uint64_t bytes = 0;
        std::memcpy(&bytes, element.data() + from, std::min(element.size() - from, sizeof bytes));
        return __builtin_bswap64(bytes);
    }
    bool Before(const std::string& a, const std::string& b, size_t from) const {
        return std::string_view(a).substr(from) < std::string_view(b).substr(from);
    }
};

/// The order of strcasecmp(3).
struct CaselessOrder {
    size_t CommonPrefix(std::string_view a, std::string_view b) const {
        size_t size = 0;
        while (size < a.size() && size < b.size() && a[size] != '\0' && Lower(a[size]) == Lower(b[size]))
            ++size;
        return size;
    }
    uint64_t Key(const std::string& element, size_t from) const {
        const char* next = element.c_str() + from;
        uint64_t key = 0;
        for (int shift = 56; shift >= 0 && *next != '\0'; shift -= 8)
            key |= uint64_t{Lower(*next++)} << shift;
        return key;
    }
    bool Before(const std::string& a, const std::string& b, size_t from) const {
        return vrx::CompareIgnoringCase(a.c_str() + from, b.c_str() + from, lower) < 0;
    }

    unsigned char Lower(char c) const {
        return static_cast<unsigned char>(lower[static_cast<unsigned char>(c)]);
    }
    const int32_t* lower = vrx::LowerTable();
};

/// The reverse of an order: elements equal in one are equal in the other.
template <class Order>
struct Reversed : Order {
    uint64_t Key(const std::string& element, size_t from) const { return ~Order::Key(element, from); }
    bool Before(const std::string& a, const std::string& b, size_t from) const {
        return Order::Before(b, a, from);
    }
};

/// An element on its way to its place.
struct Entry {
    uint64_t key;
    size_t index;
};
using Entries = std::vector<Entry>;

template <class Order>
Entries MakeEntries(const std::string* elements, size_t count, size_t from, const Order& order) {
    Entries entries(count);
    for (size_t i = 0; i < count; ++i) entries[i] = {order.Key(elements[i], from), i};
    return entries;
}

size_t KeyByte(const Entry& entry, size_t byte) {
    return (entry.key >> (8 * byte)) & 0xFF;
}

/// Sorts by the keys, stably: by one of their bytes after the other, the lowest first.
void SortByKey(Entries& entries) {
    std::array<std::array<size_t, 256>, sizeof(Entry::key)> counts{};
    for (const Entry& entry : entries) {
        for (size_t byte = 0; byte < counts.size(); ++byte) ++counts[byte][KeyByte(entry, byte)];
    }
    Entries sorted(entries.size());
    for (size_t byte = 0; byte < counts.size(); ++byte) {
        std::array<size_t, 256>& next = counts[byte];
        if (next[KeyByte(entries.front(), byte)] == entries.size()) continue; // the same in all
        std::exclusive_scan(next.begin(), next.end(), next.begin(), size_t{0});
        for (const Entry& entry : entries) sorted[next[KeyByte(entry, byte)]++] = entry;
        entries.swap(sorted);
    }
}

/// Sorts each run of entries that their key left undecided.
template <class Less>
void SortTies(Entries& entries, Less less) {
    for (auto run = entries.begin(); run != entries.end();) {
        const auto end =
            std::find_if(run, entries.end(), [run](const Entry& entry) { return entry.key != run->key; });
        if (end - run > 1) std::stable_sort(run, end, less);
        run = end;
    }
}

/// Moves every element to the place of its entry. `spare` has room for all.
void Rearrange(std::string* elements, const Entries& entries, std::vector<std::string>& spare) {
    for (const Entry& entry : entries) spare.push_back(std::move(elements[entry.index]));
    std::move(spare.begin(), spare.end(), elements);
}

/// Sorts by the elements' first bytes that differ, kept apart from the elements, which move once. Throws
/// bad_alloc with the elements untouched.
template <class Order>
void SortByEntries(std::string* elements, size_t count, const Order& order) {
    size_t from = elements[0].size();
    for (size_t i = 1; i < count; ++i) from = order.CommonPrefix({elements[0].data(), from}, elements[i]);

    std::vector<std::string> spare;
    spare.reserve(count);
    Entries entries = MakeEntries(elements, count, from, order);
    SortByKey(entries);
    SortTies(entries, [&](const Entry& a, const Entry& b) {
        return order.Before(elements[a.index], elements[b.index], from);
    });
    Rearrange(elements, entries, spare);
}

/// Fewer elements than this are sorted as they are.
constexpr size_t kWorthEntries = 256;

/// Sorts the elements from index `keep` on, stably.
template <class Order>
void SortFrom(std::vector<std::string>& list, size_t keep, const Order& order) {
    if (keep >= list.size()) return;
    if (list.size() - keep >= kWorthEntries) {
        try {
            return SortByEntries(&list[keep], list.size() - keep, order);
        } catch (const std::bad_alloc&) { // sorted without extra memory below
        }
    }
    std::stable_sort(list.begin() + static_cast<ptrdiff_t>(keep), list.end(),
                     [&](const std::string& a, const std::string& b) { return order.Before(a, b, 0); });
}

} // namespace

void string_vector::sort(size_t keep) {
    SortFrom(*this, keep, ByteOrder());
}

void string_vector::sortrev(size_t keep) {
    SortFrom(*this, keep, Reversed<ByteOrder>());
}

void string_vector::sorti(size_t keep) {
    SortFrom(*this, keep, CaselessOrder());
}

void string_vector::sortirev(size_t keep) {
    SortFrom(*this, keep, Reversed<CaselessOrder>());
}
