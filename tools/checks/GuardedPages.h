#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vrx::tool {

/// Whole pages of memory between pages that nobody may touch. What is put there ends where the pages end, so that one
/// byte too far ends the process.
class GuardedPages {
public:
    /// Room for so many bytes; throws Untried when the system gives none.
    explicit GuardedPages(std::size_t bytes);
    /// A text and its zero byte, which cannot be written any more.
    explicit GuardedPages(std::string_view text);
    ~GuardedPages();
    GuardedPages(const GuardedPages&) = delete;
    GuardedPages& operator=(const GuardedPages&) = delete;

    /// Where the bytes begin: a word's address when their number is a multiple of four.
    char* Data() const { return m_pages + m_room - m_bytes; }
    std::uint32_t* Words() const { return reinterpret_cast<std::uint32_t*>(Data()); }

    /// From now on a write ends the process, too.
    void Lock() const;

private:
    std::size_t m_bytes;
    std::size_t m_page;
    std::size_t m_room; ///< whole pages
    char* m_pages;      ///< the first one that may be touched
};

} // namespace vrx::tool
