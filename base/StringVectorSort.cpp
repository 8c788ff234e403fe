#include "base/StringVector.h"

#include "base/internal/CaseTable.h"

#include <algorithm>

namespace {

/// The order of strcasecmp(3).
struct BeforeIgnoringCase {
    bool operator()(const std::string& a, const std::string& b) const {
        return vrx::CompareIgnoringCase(a.c_str(), b.c_str(), lower) < 0;
    }

    const int32_t* lower = vrx::LowerTable();
};

/// The reverse of an order: what is equal in one is equal in the other.
template <class Less>
struct Reversed {
    bool operator()(const std::string& a, const std::string& b) const { return less(b, a); }

    Less less;
};

/// Sorts the elements from index `keep` on, stably.
template <class Less>
void SortFrom(std::vector<std::string>& list, size_t keep, Less less) {
    if (keep >= list.size()) return;
    std::stable_sort(list.begin() + static_cast<ptrdiff_t>(keep), list.end(), less);
}

} // namespace

void string_vector::sort(size_t keep) {
    SortFrom(*this, keep, std::less<>());
}

void string_vector::sortrev(size_t keep) {
    SortFrom(*this, keep, std::greater<>());
}

void string_vector::sorti(size_t keep) {
    SortFrom(*this, keep, BeforeIgnoringCase());
}

void string_vector::sortirev(size_t keep) {
    SortFrom(*this, keep, Reversed<BeforeIgnoringCase>());
}
