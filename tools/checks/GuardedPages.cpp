#include "tools/checks/GuardedPages.h"

#include "tools/checks/Check.h"

#include <algorithm>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace vrx::tool {

GuardedPages::GuardedPages(std::size_t bytes)
    : m_bytes(bytes), m_page(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))),
      m_room((std::max<std::size_t>(bytes, 1) + m_page - 1) / m_page * m_page) {
    void* all = ::mmap(nullptr, m_room + 2 * m_page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (all == MAP_FAILED) throw Untried{"no memory to put buffers in"};
    m_pages = static_cast<char*>(all) + m_page;
    ::mprotect(m_pages, m_room, PROT_READ | PROT_WRITE);
}

GuardedPages::GuardedPages(std::string_view text) : GuardedPages(text.size() + 1) {
    std::memcpy(Data(), text.data(), text.size());
    Lock();
}

GuardedPages::~GuardedPages() {
    ::munmap(m_pages - m_page, m_room + 2 * m_page);
}

void GuardedPages::Lock() const {
    ::mprotect(m_pages, m_room, PROT_READ);
}

} // namespace vrx::tool
