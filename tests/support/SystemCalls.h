#pragma once

#include <functional>
#include <ifaddrs.h>
#include <netdb.h>
#include <string>
#include <sys/types.h>
#include <vector>

/// Watches and bends the system calls of the library under test: the test program defines these functions
/// itself, ahead of the C library, and passes them on.
namespace calls {

struct Event {
    std::string call; // "socket", "connect", "send", "recv", "shutdown", "close", "gethostbyname"
    int socket = -1;  // the descriptor it was called with, or that it returned
    size_t size = 0;  // bytes asked for
    int flags = 0;    // of send and recv
    ssize_t result = 0;
    std::string bytes; // what was sent
};

/// Starts a new log and takes all bends back; call at the start of each test.
void Reset();

/// Everything logged since Reset, of descriptors that the code under test made with socket().
std::vector<Event> Log();
std::vector<Event> Log(const std::string& call);
size_t Count(const std::string& call);

/// How many calls since Reset used a descriptor that was closed already. (The log leaves those out.)
size_t CallsOnClosedDescriptors();

/// Waits until so many calls of that name have returned; false after ten seconds.
bool WaitFor(const std::string& call, size_t count);

/// Waits until so many ticks of watchdogs have begun; false after ten seconds.
bool WaitForTicks(size_t count);
size_t Ticks();

/// Makes each tick of a watchdog (usleep of 100 ms) this short instead.
void SetTickMicroseconds(unsigned microseconds);

/// Called on the watchdog's thread at each tick.
void OnTick(std::function<void()> action);

/// The next `count` sends return `result` without sending, with errno EPIPE.
void FailSends(size_t count, ssize_t result);
/// Every send passes on at most so many bytes.
void LimitSends(size_t bytes);
/// The next `count` receives return -1 with errno EIO.
void FailReceives(size_t count);
/// The next `count` calls of socket() fail with EMFILE.
void FailSockets(size_t count);
/// The next `count` threads cannot be started.
void FailThreads(size_t count);
/// Answers gethostbyname in place of the C library.
void AnswerLookUps(std::function<hostent*(const char*)> answer);
/// Answers getifaddrs in place of the C library; the list is never freed.
void AnswerInterfaces(std::function<ifaddrs*()> answer);

} // namespace calls
