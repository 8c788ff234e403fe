#pragma once

#include <initializer_list>
#include <string>

namespace vrx::tool {

/// A file of a command, and what the command line calls it.
struct NamedFile {
    const char* name;
    std::string path;    ///< "": not given
    int descriptor = -1; ///< what stands for `path` when that is "-"
};

/// Throws Failure (wrong usage) when two of these are the same file: by device and inode where they exist, so that links of
/// both kinds count; else by where their paths lead. Pipes and devices are never the same.
void RefuseSameFiles(std::initializer_list<NamedFile> files);

} // namespace vrx::tool
