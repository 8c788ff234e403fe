#include "tests/support/NoMemory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> g_noMemory = false;

} // namespace

NoMemory::NoMemory() {
    g_noMemory = true;
}

NoMemory::~NoMemory() {
    g_noMemory = false;
}

// The allocation functions of the whole test program; the other forms lead to these.

void* operator new(size_t size) {
    void* const memory = g_noMemory ? nullptr : std::malloc(size > 0 ? size : 1);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return g_noMemory ? nullptr : std::malloc(size > 0 ? size : 1);
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
