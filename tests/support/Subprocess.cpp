#include "tests/support/Subprocess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

[[noreturn]] void Fail(const std::string& what, int error) {
    throw std::runtime_error(what + ": " + std::strerror(error));
}

struct Pipe {
    int read = -1;
    int write = -1;
    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) Fail("pipe2", errno);
        read = ends[0];
        write = ends[1];
    }
};

void CloseIfOpen(int& descriptor) {
    if (descriptor < 0) return;
    close(descriptor);
    descriptor = -1;
}

/// Appends what the pipe holds now; closes it at its end.
void ReadSome(int& descriptor, std::string& text) {
    std::array<char, 65536> piece;
    const ssize_t count = read(descriptor, piece.data(), piece.size());
    if (count > 0) {
        text.append(piece.data(), static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
        CloseIfOpen(descriptor);
    }
}

/// Appends what is left in the pipe without waiting for whoever else may hold its other end.
void ReadRest(int& descriptor, std::string& text) {
    for (pollfd waiting{descriptor, POLLIN, 0}; descriptor >= 0 && poll(&waiting, 1, 0) > 0;) {
        ReadSome(descriptor, text);
    }
    CloseIfOpen(descriptor);
}

} // namespace

Subprocess::Subprocess(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    Pipe out;
    Pipe err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.write, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.write, STDERR_FILENO);
    const int error = posix_spawnp(&m_pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out.write);
    close(err.write);
    m_outPipe = out.read;
    m_errPipe = err.read;
    if (error == 0) m_exit = static_cast<int>(syscall(SYS_pidfd_open, m_pid, 0));
    if (error != 0 || m_exit < 0) {
        CloseIfOpen(m_outPipe);
        CloseIfOpen(m_errPipe);
        Fail("cannot start " + command.at(0), error != 0 ? error : errno);
    }
}

Subprocess::~Subprocess() {
    Outcome ignored;
    if (!m_ended) {
        Signal(SIGKILL);
        Reap(ignored);
    }
    CloseIfOpen(m_exit);
    CloseIfOpen(m_outPipe);
    CloseIfOpen(m_errPipe);
}

/// Takes in what arrives next on any of the three descriptors. False when the program has ended or the time
/// is up.
bool Subprocess::Collect(Clock::time_point until) {
    const auto left = std::chrono::ceil<Milliseconds>(until - Clock::now()).count();
    if (left <= 0) return false;
    std::array<pollfd, 3> waiting{{{m_outPipe, POLLIN, 0}, {m_errPipe, POLLIN, 0}, {m_exit, POLLIN, 0}}};
    if (poll(waiting.data(), waiting.size(), static_cast<int>(left)) <= 0) return errno == EINTR;
    if (waiting[0].revents != 0) ReadSome(m_outPipe, m_out);
    if (waiting[1].revents != 0) ReadSome(m_errPipe, m_err);
    return waiting[2].revents == 0;
}

std::string Subprocess::ReadLine(Milliseconds timeout) {
    const auto until = Clock::now() + timeout;
    while (m_outPipe >= 0 && m_out.find('\n', m_linesEnd) == std::string::npos) {
        if (Collect(until)) continue;
        if (Clock::now() < until) ReadRest(m_outPipe, m_out);
        break;
    }
    const size_t end = std::min(m_out.find('\n', m_linesEnd), m_out.size());
    const std::string line = m_out.substr(m_linesEnd, end - m_linesEnd);
    m_linesEnd = std::min(end + 1, m_out.size());
    return line;
}

Subprocess::Outcome Subprocess::Wait(Milliseconds timeout) {
    const auto until = Clock::now() + timeout;
    while (Collect(until)) {
    }
    Outcome outcome;
    pollfd ended{m_exit, POLLIN, 0};
    outcome.timedOut = poll(&ended, 1, 0) == 0;
    if (outcome.timedOut) Signal(SIGKILL);
    Reap(outcome);
    ReadRest(m_outPipe, m_out);
    ReadRest(m_errPipe, m_err);
    outcome.out = m_out;
    outcome.err = m_err;
    return outcome;
}

void Subprocess::Reap(Outcome& outcome) {
    int status = 0;
    while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_ended = true;
    if (WIFEXITED(status)) outcome.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) outcome.signal = WTERMSIG(status);
}

void Subprocess::Signal(int number) const {
    if (!m_ended) kill(m_pid, number);
}

Subprocess::Outcome RunProgram(const std::vector<std::string>& command, Subprocess::Milliseconds timeout) {
    return Subprocess(command).Wait(timeout);
}
