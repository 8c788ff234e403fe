#include "tools/commands/RecordingProcess.h"

#include "tools/commands/RecordOption.h"
#include "tools/program/Errors.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vrx::tool {

namespace {

Failure CannotStart(const std::string& why) {
    return {kRunFailed, "cannot start the recorder" + why};
}

} // namespace

/// What the recorder's process says when it has begun: its port, or why it does not record.
struct RecordingProcess::Beginning {
    int port = 0;
    ExitCode code = kDone;
    char why[500] = {};
};

/// In the recorder's process. Ends when nobody holds the other end of `lifeline` any more.
void RecordingProcess::Record(const Begin& begin, int answer, int lifeline) {
    for (const int number : {SIGINT, SIGTERM, SIGPIPE, SIGXFSZ}) (void)std::signal(number, SIG_IGN);
    Beginning beginning;
    {
        std::shared_ptr<void> recorder;
        try {
            recorder = begin(beginning.port);
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

void RecordingProcess::Start(const Begin& begin) {
    int answer[2];
    int lifeline[2];
    if (::pipe2(answer, O_CLOEXEC) != 0 || ::pipe2(lifeline, O_CLOEXEC) != 0)
        throw CannotStart(std::string(": ") + std::strerror(errno));
    m_pid = ::fork();
    if (m_pid == 0) {
        ::close(lifeline[1]);
        Record(begin, answer[1], lifeline[0]);
    }
    ::close(answer[1]);
    ::close(lifeline[0]);
    m_lifeline = lifeline[1];
    Beginning beginning;
    const bool told = ::read(answer[0], &beginning, sizeof beginning) == sizeof beginning;
    ::close(answer[0]);
    m_port = beginning.port;
    if (told && beginning.code == kDone) return;
    ::close(m_lifeline);
    if (m_pid > 0) ::waitpid(m_pid, nullptr, 0);
    if (told) throw Failure{beginning.code, beginning.why};
    throw CannotStart("");
}

RecordingProcess::RecordingProcess(const std::string& file, const std::string& host, int port) {
    Start([&](int& recorderPort) {
        host::ServerSettings server;
        server.host = host;
        server.port = port;
        std::shared_ptr<void> recorder = StartRecording(file, false, server);
        recorderPort = server.detourPort;
        return recorder;
    });
}

RecordingProcess::RecordingProcess(const std::string& file) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        throw CannotStart(std::string(": ") + std::strerror(errno));
    try {
        Start([&](int&) { return StartTapRecording(file, ends[1]); });
    } catch (...) {
        ::close(ends[0]);
        ::close(ends[1]);
        throw;
    }
    ::close(ends[1]);
    m_tap = ends[0];
}

RecordingProcess::~RecordingProcess() {
    if (m_tap >= 0) ::close(m_tap);
    ::close(m_lifeline);
    ::waitpid(m_pid, nullptr, 0);
}

} // namespace vrx::tool
