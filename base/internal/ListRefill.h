#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vrx {

/// Replaces the content of a list from its front, reusing the strings that it already holds.
class ListRefill {
public:
    explicit ListRefill(std::vector<std::string>& list) : m_list(list) {}

    void Add(std::string_view element) {
        if (m_used < m_list.size()) {
            m_list[m_used] = element;
        } else {
            m_list.emplace_back(element);
        }
        ++m_used;
    }

    /// Drops the old elements that were not overwritten.
    void Finish() { m_list.resize(m_used); }

private:
    std::vector<std::string>& m_list;
    size_t m_used = 0;
};

/// Whether `text` lies in one of the list's own strings, so that it would change while the list is refilled.
inline bool HoldsText(const std::vector<std::string>& list, const char* text) {
    return std::any_of(list.begin(), list.end(), [text](const std::string& element) {
        return std::less_equal<>()(element.data(), text) &&
               std::less_equal<>()(text, element.data() + element.size());
    });
}

} // namespace vrx
