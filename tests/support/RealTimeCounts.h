#pragma once

#include <functional>
#include <optional>

/// What a thread did in its watched sections that real-time code must not do.
struct RealTimeCounts {
    long sections = 0;
    long allocations = 0; ///< and releases, of the C library's heap
    long locks = 0;       ///< and waits: mutexes, spin locks, conditions, semaphores
    long wakes = 0;       ///< futex calls that wake somebody
    long otherCalls = 0;  ///< every other system call
};

/// A watched section of the calling thread.
class Watched {
public:
    Watched();
    ~Watched();
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;
};

/// Runs `body` in a child process that is traced, and counts what its first thread does in watched sections. The program
/// that uses this brings the heap's and the locks' functions itself, so it is no program for sanitizers. Nothing when
/// `body` gives false or crashes, or where nobody may trace.
std::optional<RealTimeCounts> CountRealTime(const std::function<bool()>& body);
