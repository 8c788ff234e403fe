#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vrx::tool {

/// What this process holds and what a process waits for, as the system counts it.

/// "3 /dev/null", one for each open descriptor, in order; the one that looks is left out.
std::vector<std::string> OpenDescriptors();

/// Those of OpenDescriptors that are sockets.
std::vector<std::string> OpenSockets();

std::size_t Threads();

/// Resident memory in bytes.
std::size_t ResidentBytes();

/// How long the threads that a process has were ready to run while others ran, all of them together; zero where the
/// system does not say.
std::chrono::nanoseconds WaitedForProcessor(pid_t process);

/// True where memory figures say something: not under a sanitizer, which keeps what was freed.
bool MemoryIsMeasurable();

} // namespace vrx::tool
