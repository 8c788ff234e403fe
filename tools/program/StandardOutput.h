#pragma once

#include "tools/program/Errors.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace vrx::tool {

/// Writes all of `text` to standard output. Throws Failure when that fails.
inline void Print(const std::string& text) {
    if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
        throw Failure{kFileFailed, std::string("cannot write to standard output: ") + std::strerror(errno)};
}

} // namespace vrx::tool
