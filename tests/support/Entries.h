#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

/// The number of entries of a folder: of /proc/self/fd the open descriptors, of /proc/self/task the threads.
inline size_t Entries(const char* folder) {
    using Iterator = std::filesystem::directory_iterator;
    return static_cast<size_t>(std::distance(Iterator(folder), Iterator()));
}
