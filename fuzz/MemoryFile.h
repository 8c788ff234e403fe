#pragma once

#include "fuzz/Require.h"

#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace vrx::fuzz {

/// A file that exists in memory only and that can be opened by its path, for code that takes file names.
class MemoryFile {
public:
    MemoryFile() : m_file(::memfd_create("fuzz", 0)) { Require(m_file >= 0, "a file in memory"); }
    ~MemoryFile() { ::close(m_file); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_file); }

    void Fill(std::string_view bytes) {
        Require(::ftruncate(m_file, 0) == 0, "the file emptied");
        Require(::pwrite(m_file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
                "the file filled");
    }

    std::string Content() const {
        std::string bytes(static_cast<size_t>(::lseek(m_file, 0, SEEK_END)), '\0');
        Require(::pread(m_file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
                "the file read");
        return bytes;
    }

private:
    int m_file;
};

} // namespace vrx::fuzz
