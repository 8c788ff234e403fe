#include "tools/program/OutputFile.h"

#include "tools/program/Errors.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace vrx::tool {

void OutputFile::Check(const std::string& path, bool overwrite) {
    std::error_code ignored;
    if (!overwrite && std::filesystem::exists(path, ignored))
        throw Failure{kFileFailed,
                      path + ": exists already: choose another name, or overwrite it with --force"};
}

OutputFile::OutputFile(const std::string& path, bool overwrite) : m_path(path) {
    Check(path, overwrite);
    m_stream.open(path, std::ios::binary | std::ios::trunc);
    if (!m_stream) throw Failure{kFileFailed, path + ": cannot be created: " + std::strerror(errno)};
}

void OutputFile::Finish() {
    m_stream.close();
    if (!m_stream) throw Failure{kFileFailed, m_path + ": cannot be written: is the disk full?"};
}

} // namespace vrx::tool
