#include "tests/support/NoMemory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr long kNone = -1;

std::atomic<bool> g_noMemory = false;
thread_local long g_allocationsLeft = kNone; // before the one that fails
thread_local bool g_failed = false;

/// Whether this allocation has to fail.
bool Fails() {
    if (g_noMemory) return true;
    if (g_allocationsLeft == kNone || g_allocationsLeft-- != 0) return false;
    g_failed = true;
    return true;
}

void* Allocate(size_t size) noexcept {
    return Fails() ? nullptr : std::malloc(size > 0 ? size : 1);
}

} // namespace

FailAllocation::FailAllocation(size_t number) {
    g_failed = false;
    g_allocationsLeft = static_cast<long>(number);
}

FailAllocation::~FailAllocation() {
    g_allocationsLeft = kNone;
}

bool FailAllocation::Failed() const {
    return g_failed;
}

NoMemory::NoMemory() {
    g_noMemory = true;
}

NoMemory::~NoMemory() {
    g_noMemory = false;
}

// The allocation functions of the whole test program; the other forms lead to these.

void* operator new(size_t size) {
    void* const memory = Allocate(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
