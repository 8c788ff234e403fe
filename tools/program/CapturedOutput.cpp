#include "tools/program/CapturedOutput.h"

#include "tools/program/Errors.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace vrx::tool {

CapturedOutput::CapturedOutput() {
    (void)std::fflush(stdout);
    m_real = ::dup(STDOUT_FILENO); // -1 when the program was started without one: Print then fails
    m_memory = ::memfd_create("vrx-talker", MFD_CLOEXEC);
    if (m_memory < 0 || ::dup2(m_memory, STDOUT_FILENO) < 0)
        throw Failure{kRunFailed,
                      std::string("cannot capture the talker's messages: ") + std::strerror(errno)};
}

CapturedOutput::~CapturedOutput() {
    (void)std::fflush(stdout);
    if (m_real >= 0) ::dup2(m_real, STDOUT_FILENO);
    if (m_real >= 0) ::close(m_real);
    ::close(m_memory);
}

std::string CapturedOutput::TakeLines() {
    (void)std::fflush(stdout);
    std::string text;
    char piece[1024];
    off_t at = 0;
    for (ssize_t n; (n = ::pread(m_memory, piece, sizeof piece, at)) > 0; at += n)
        text.append(piece, static_cast<size_t>(n));
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (at > 0 && (::ftruncate(m_memory, 0) < 0 || ::lseek(m_memory, 0, SEEK_SET) < 0))
        throw Failure{kRunFailed, "cannot reset the talker's captured messages"};
    return text;
}

void CapturedOutput::Print(std::string_view text) const {
    while (!text.empty()) {
        const ssize_t n = ::write(m_real, text.data(), text.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0)
            throw Failure{kFileFailed,
                          std::string("cannot write to standard output: ") + std::strerror(errno)};
        text.remove_prefix(static_cast<size_t>(n));
    }
}

} // namespace vrx::tool
