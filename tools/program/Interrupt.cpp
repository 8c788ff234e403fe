#include "tools/program/Interrupt.h"

#include "tools/program/Errors.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <limits.h>
#include <unistd.h>

namespace vrx::tool {

namespace {

std::atomic<int> signalsUntilExit{1};
std::atomic<bool> interrupted{false};
char farewell[128] = "vrx: interrupted\n";
char leftover[PATH_MAX]; // the temporary file; "" for none

// Calls only what POSIX allows in a signal handler.
void OnSignal(int) {
    interrupted = true;
    if (--signalsUntilExit > 0) return;
    if (leftover[0] != '\0') ::unlink(leftover);
    const ssize_t ignored = ::write(STDERR_FILENO, farewell, std::strlen(farewell));
    (void)ignored; // nobody is left to be told
    ::_exit(kInterrupted);
}

void Install() {
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

} // namespace

void CatchInterrupts() {
    signalsUntilExit = 2;
    Install();
}

void ExitOnInterrupt(const char* who) {
    (void)std::snprintf(farewell, sizeof farewell, "%s: interrupted\n", who);
    signalsUntilExit = 1;
    Install();
}

bool Interrupted() {
    return interrupted;
}

void RemoveOnExit(const char* path) {
    leftover[0] = '\0';
    if (path != nullptr) (void)std::snprintf(leftover, sizeof leftover, "%s", path);
}

} // namespace vrx::tool
