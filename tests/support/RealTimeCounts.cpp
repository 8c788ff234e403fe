#include "tests/support/RealTimeCounts.h"

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <dlfcn.h>
#include <linux/futex.h>
#include <new>
#include <pthread.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The traced thread's own counts; the tracer sees them through shared memory.
thread_local RealTimeCounts* t_counts = nullptr; // null outside watched sections
RealTimeCounts* g_counts = nullptr;              // of the child

/// A system call that does nothing: it shows the tracer where a section begins and ends.
constexpr long kMark = SYS_getppid;

void CountAllocation() {
    if (t_counts != nullptr) ++t_counts->allocations;
}

void CountLock() {
    if (t_counts != nullptr) ++t_counts->locks;
}

/// The function that this program's own one hides.
template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

bool IsWake(std::uint64_t operation) {
    return (static_cast<int>(operation) & FUTEX_CMD_MASK) == FUTEX_WAKE;
}

/// What the tracer keeps between two stops of the child.
struct Tracer {
    RealTimeCounts& counts;
    bool inside = false;

    void Entered(const __ptrace_syscall_info& info) {
        const auto number = static_cast<long>(info.entry.nr);
        if (number == kMark)
            inside = !inside;
        else if (inside && number == SYS_futex && IsWake(info.entry.args[1]))
            ++counts.wakes;
        else if (inside)
            ++counts.otherCalls;
    }
};

/// Follows the child's first thread to its end; true when that is exit code 0.
bool Trace(pid_t child, RealTimeCounts& counts) {
    constexpr int kSystemCall = SIGTRAP | 0x80;
    Tracer tracer{counts};
    int status = 0;
    if (waitpid(child, &status, __WALL) != child || !WIFSTOPPED(status)) return false;
    (void)ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    for (long signal = 0; ptrace(PTRACE_SYSCALL, child, nullptr, signal) == 0;) {
        if (waitpid(child, &status, __WALL) != child) return false;
        if (!WIFSTOPPED(status)) break;
        const bool call = WSTOPSIG(status) == kSystemCall;
        signal = call ? 0 : WSTOPSIG(status);
        __ptrace_syscall_info info = {};
        if (call && ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) > 0 &&
            info.op == PTRACE_SYSCALL_INFO_ENTRY)
            tracer.Entered(info);
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

[[noreturn]] void RunTraced(const std::function<bool()>& body) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(2);
    (void)::raise(SIGSTOP);
    ::_exit(body() ? 0 : 1);
}

} // namespace

Watched::Watched() {
    (void)::syscall(kMark);
    if (g_counts != nullptr) ++g_counts->sections;
    t_counts = g_counts;
}

Watched::~Watched() {
    t_counts = nullptr;
    (void)::syscall(kMark);
}

std::optional<RealTimeCounts> CountRealTime(const std::function<bool()>& body) {
    void* const shared =
        ::mmap(nullptr, sizeof(RealTimeCounts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) return std::nullopt;
    g_counts = new (shared) RealTimeCounts;
    const pid_t child = ::fork();
    if (child == 0) RunTraced(body);
    const bool good = child > 0 && Trace(child, *g_counts);
    const RealTimeCounts counts = *g_counts;
    g_counts = nullptr;
    (void)::munmap(shared, sizeof(RealTimeCounts));
    if (!good) return std::nullopt;
    return counts;
}

// The heap's and the locks' functions of the whole program, its shared libraries included: they count, and pass on.
#pragma GCC visibility push(default)
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) noexcept {
    CountAllocation();
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) noexcept {
    CountAllocation();
    return __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) noexcept {
    CountAllocation();
    return __libc_realloc(memory, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    CountAllocation();
    return __libc_memalign(alignment, size);
}
void free(void* memory) noexcept {
    CountAllocation();
    __libc_free(memory);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static auto* const next = Next<int(pthread_mutex_t*)>("pthread_mutex_lock");
    CountLock();
    return next(mutex);
}
int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
    static auto* const next = Next<int(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
    CountLock();
    return next(lock);
}
int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
    static auto* const next = Next<int(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
    CountLock();
    return next(lock);
}
int pthread_spin_lock(pthread_spinlock_t* lock) noexcept {
    static auto* const next = Next<int(pthread_spinlock_t*)>("pthread_spin_lock");
    CountLock();
    return next(lock);
}
int sem_wait(sem_t* semaphore) {
    static auto* const next = Next<int(sem_t*)>("sem_wait");
    CountLock();
    return next(semaphore);
}
} // extern "C"
#pragma GCC visibility pop
