#include "tools/commands/RecordingProcess.h"

#include "tools/commands/RecordOption.h"
#include "tools/program/Errors.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vrx::tool {

namespace {

/// What the recorder's process says when it has begun: its port, or why it has none.
struct Beginning {
    int port = 0;
    ExitCode code = kDone;
    char why[500] = {};
};

/// In the recorder's process. Ends when nobody holds the other end of `lifeline` any more.
[[noreturn]] void Record(const std::string& file, const host::ServerSettings& server, int answer,
                         int lifeline) {
    for (const int number : {SIGINT, SIGTERM, SIGPIPE}) (void)std::signal(number, SIG_IGN);
    Beginning beginning;
    {
        std::shared_ptr<void> recorder;
        try {
            host::ServerSettings through = server;
            recorder = StartRecording(file, false, through);
            beginning.port = through.detourPort;
        } catch (const Failure& failure) {
            beginning.code = failure.code;
            (void)failure.message.copy(beginning.why, sizeof beginning.why - 1);
        }
        const bool told = ::write(answer, &beginning, sizeof beginning) == sizeof beginning;
        char nothing = 0;
        while (told && recorder && ::read(lifeline, &nothing, 1) < 0 && errno == EINTR) {
        }
    }
    ::_exit(0);
}

} // namespace

RecordingProcess::RecordingProcess(const std::string& file, const std::string& host, int port) {
    host::ServerSettings server;
    server.host = host;
    server.port = port;
    int answer[2];
    int lifeline[2];
    if (::pipe2(answer, O_CLOEXEC) != 0 || ::pipe2(lifeline, O_CLOEXEC) != 0)
        throw Failure{kRunFailed, std::string("cannot start the recorder: ") + std::strerror(errno)};
    m_pid = ::fork();
    if (m_pid == 0) {
        ::close(lifeline[1]);
        Record(file, server, answer[1], lifeline[0]);
    }
    ::close(answer[1]);
    ::close(lifeline[0]);
    m_lifeline = lifeline[1];
    Beginning beginning;
    const bool told = ::read(answer[0], &beginning, sizeof beginning) == sizeof beginning;
    ::close(answer[0]);
    m_port = beginning.port;
    if (told && m_port != 0) return;
    ::close(m_lifeline);
    if (m_pid > 0) ::waitpid(m_pid, nullptr, 0);
    if (told) throw Failure{beginning.code, beginning.why};
    throw Failure{kRunFailed, "cannot start the recorder"};
}

RecordingProcess::~RecordingProcess() {
    ::close(m_lifeline);
    ::waitpid(m_pid, nullptr, 0);
}

} // namespace vrx::tool
