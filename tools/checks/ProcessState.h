#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vrx::tool {

/// What this process holds, as the system counts it.

/// "3 /dev/null", one for each open descriptor, in order; the one that looks is left out.
std::vector<std::string> OpenDescriptors();

/// Those of OpenDescriptors that are sockets.
std::vector<std::string> OpenSockets();

std::size_t Threads();

/// Resident memory in bytes.
std::size_t ResidentBytes();

/// True where memory figures say something: not under a sanitizer, which keeps what was freed.
bool MemoryIsMeasurable();

} // namespace vrx::tool
