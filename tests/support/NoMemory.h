#pragma once

#include <cstddef>

/// While an object of this class lives, every `new` of the process fails.
class NoMemory {
public:
    NoMemory();
    ~NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
};

/// While an object of this class lives, this thread's allocation of that number (0 the first) fails, and no
/// other.
class FailAllocation {
public:
    explicit FailAllocation(size_t number);
    ~FailAllocation();
    FailAllocation(const FailAllocation&) = delete;
    FailAllocation& operator=(const FailAllocation&) = delete;

    /// Whether that many allocations were made.
    bool Failed() const;
};
