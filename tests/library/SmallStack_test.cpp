#include "talker/CVRXTalker.h"

#include <cstring>
#include <gtest/gtest.h>
#include <limits.h>
#include <memory>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr size_t kPage = 4096;
constexpr size_t kBelow = 16 * kPage; // memory behind the guard page that is no stack's
constexpr unsigned char kUntouched = 0xA5;

/// A stack of the smallest size with a guard page, in memory that a child shares with its parent:
/// kBelow bytes of kUntouched, the guard page, the stack.
class GuardedStack {
public:
    GuardedStack() {
        m_memory = ::mmap(nullptr, Size(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        std::memset(m_memory, kUntouched, kBelow);
        ::mprotect(Byte(kBelow), kPage, PROT_NONE);
    }
    ~GuardedStack() { ::munmap(m_memory, Size()); }
    GuardedStack(const GuardedStack&) = delete;
    GuardedStack& operator=(const GuardedStack&) = delete;

    void* Stack() { return Byte(kBelow + kPage); }
    static size_t StackSize() { return static_cast<size_t>(PTHREAD_STACK_MIN); }

    bool IsUntouchedBelow() {
        for (size_t at = 0; at < kBelow; ++at) {
            if (*Byte(at) != kUntouched) return false;
        }
        return true;
    }

private:
    static size_t Size() { return kBelow + kPage + StackSize(); }
    unsigned char* Byte(size_t at) { return static_cast<unsigned char*>(m_memory) + at; }

    void* m_memory;
};

void* Pump(void* talker) {
    static_cast<CVRXTalker*>(talker)->PumpAudio(nullptr, nullptr, 0, 0);
    return nullptr;
}

/// In a child: pumps on a thread with that stack.
[[noreturn]] void PumpOn(GuardedStack& stack) {
    const std::unique_ptr<CVRXTalker> talker(TalkerFactory());
    pthread_attr_t attributes;
    pthread_t thread;
    if (::pthread_attr_init(&attributes) != 0 ||
        ::pthread_attr_setstack(&attributes, stack.Stack(), GuardedStack::StackSize()) != 0 ||
        ::pthread_create(&thread, &attributes, Pump, talker.get()) != 0) {
        ::_exit(1);
    }
    ::pthread_join(thread, nullptr);
    ::_exit(0);
}

// A stack that is too small ends the process at its guard page; memory behind that stays as it was.
TEST(SmallStack, PumpAudioNeverWritesBehindTheGuardPage) {
    GuardedStack stack;
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) PumpOn(stack);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(stack.IsUntouchedBelow());
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
}

} // namespace
