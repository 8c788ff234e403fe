#include "tests/support/SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <dlfcn.h>
#include <mutex>
#include <pthread.h>
#include <set>
#include <sys/socket.h>
#include <unistd.h>

namespace calls {

namespace {

constexpr useconds_t kTick = 100000;
constexpr auto kPatience = std::chrono::seconds(10);

struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Event> log;
    std::set<int> sockets; // made by the code under test and not closed yet
    size_t misuses = 0;
    size_t ticks = 0;
    unsigned tickMicroseconds = kTick;
    std::function<void()> onTick;
    size_t failSends = 0;
    ssize_t failedSend = -1;
    size_t sendLimit = static_cast<size_t>(-1);
    size_t failReceives = 0;
    size_t failSockets = 0;
    size_t failThreads = 0;
    std::function<hostent*(const char*)> lookUp;
    std::function<ifaddrs*()> interfaces;
};

State& TheState() {
    static State& state = *new State; // outlives every thread that may still call
    return state;
}

bool TakeOne(size_t& count) {
    const std::lock_guard lock(TheState().mutex);
    if (count == 0) return false;
    --count;
    return true;
}

void Add(Event event) {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    if (event.call == "socket" && event.flags != SOCK_STREAM)
        return; // a scripted server's own, close-on-exec
    if (event.call == "socket" && event.result >= 0) state.sockets.insert(event.socket);
    if (event.call != "gethostbyname" && event.socket >= 0 && !state.sockets.contains(event.socket)) return;
    if (event.call == "close") state.sockets.erase(event.socket);
    state.log.push_back(std::move(event));
    state.changed.notify_all();
}

/// Counts a call that failed for want of the descriptor, and returns its result.
ssize_t Checked(int descriptor, ssize_t result) {
    if (descriptor < 0 || result >= 0 || errno != EBADF) return result;
    const std::lock_guard lock(TheState().mutex);
    ++TheState().misuses;
    return result;
}

template <class Condition>
bool Wait(Condition condition) {
    State& state = TheState();
    std::unique_lock lock(state.mutex);
    return state.changed.wait_for(lock, kPatience, condition);
}

size_t CountLocked(const std::string& call) {
    size_t count = 0;
    for (const Event& event : TheState().log) count += event.call == call;
    return count;
}

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

void Reset() {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    state.log.clear();
    state.misuses = 0;
    state.ticks = 0;
    state.tickMicroseconds = kTick;
    state.onTick = nullptr;
    state.failSends = state.failReceives = state.failSockets = state.failThreads = 0;
    state.sendLimit = static_cast<size_t>(-1);
    state.lookUp = nullptr;
    state.interfaces = nullptr;
}

std::vector<Event> Log() {
    const std::lock_guard lock(TheState().mutex);
    return TheState().log;
}

std::vector<Event> Log(const std::string& call) {
    std::vector<Event> chosen;
    for (Event& event : Log())
        if (event.call == call) chosen.push_back(std::move(event));
    return chosen;
}

size_t Count(const std::string& call) {
    const std::lock_guard lock(TheState().mutex);
    return CountLocked(call);
}

size_t CallsOnClosedDescriptors() {
    const std::lock_guard lock(TheState().mutex);
    return TheState().misuses;
}

bool WaitFor(const std::string& call, size_t count) {
    return Wait([&] { return CountLocked(call) >= count; });
}

bool WaitForTicks(size_t count) {
    return Wait([&] { return TheState().ticks >= count; });
}

size_t Ticks() {
    const std::lock_guard lock(TheState().mutex);
    return TheState().ticks;
}

void SetTickMicroseconds(unsigned microseconds) {
    const std::lock_guard lock(TheState().mutex);
    TheState().tickMicroseconds = microseconds;
}

void OnTick(std::function<void()> action) {
    const std::lock_guard lock(TheState().mutex);
    TheState().onTick = std::move(action);
}

void FailSends(size_t count, ssize_t result) {
    const std::lock_guard lock(TheState().mutex);
    TheState().failSends = count;
    TheState().failedSend = result;
}

void LimitSends(size_t bytes) {
    const std::lock_guard lock(TheState().mutex);
    TheState().sendLimit = bytes;
}

void FailReceives(size_t count) {
    const std::lock_guard lock(TheState().mutex);
    TheState().failReceives = count;
}

void FailSockets(size_t count) {
    const std::lock_guard lock(TheState().mutex);
    TheState().failSockets = count;
}

void FailThreads(size_t count) {
    const std::lock_guard lock(TheState().mutex);
    TheState().failThreads = count;
}

void AnswerLookUps(std::function<hostent*(const char*)> answer) {
    const std::lock_guard lock(TheState().mutex);
    TheState().lookUp = std::move(answer);
}

void AnswerInterfaces(std::function<ifaddrs*()> answer) {
    const std::lock_guard lock(TheState().mutex);
    TheState().interfaces = std::move(answer);
}

} // namespace calls

using namespace calls;

namespace {

ssize_t Receive(int socket, void* buffer, size_t size, int flags) {
    static auto* const next = Next<ssize_t(int, void*, size_t, int)>("recv");
    ssize_t result = -1;
    if (TakeOne(TheState().failReceives))
        errno = EIO;
    else
        result = Checked(socket, next(socket, buffer, size, flags));
    Add({"recv", socket, size, flags, result, {}});
    return result;
}

int Sleep(useconds_t microseconds) {
    static auto* const next = Next<int(useconds_t)>("usleep");
    if (microseconds != kTick) return next(microseconds);
    std::function<void()> onTick;
    {
        const std::lock_guard lock(TheState().mutex);
        ++TheState().ticks;
        TheState().changed.notify_all();
        microseconds = TheState().tickMicroseconds;
        onTick = TheState().onTick;
    }
    if (onTick) onTick();
    return next(microseconds);
}

} // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    static auto* const next = Next<int(int, int, int)>("socket");
    int result = -1;
    if (type == SOCK_STREAM && TakeOne(TheState().failSockets))
        errno = EMFILE;
    else
        result = next(domain, type, protocol);
    Add({"socket", result, 0, type, result, {}});
    return result;
}

int connect(int descriptor, const sockaddr* address, socklen_t length) {
    static auto* const next = Next<int(int, const sockaddr*, socklen_t)>("connect");
    const int result = next(descriptor, address, length);
    Add({"connect", descriptor, length, 0, result, {}});
    return result;
}

ssize_t send(int descriptor, const void* bytes, size_t size, int flags) {
    static auto* const next = Next<ssize_t(int, const void*, size_t, int)>("send");
    ssize_t result;
    if (TakeOne(TheState().failSends)) {
        errno = EPIPE;
        result = TheState().failedSend;
    } else {
        result = Checked(descriptor, next(descriptor, bytes, std::min(size, TheState().sendLimit), flags));
    }
    const size_t taken = result > 0 ? static_cast<size_t>(result) : 0;
    Add({"send", descriptor, size, flags, result, std::string(static_cast<const char*>(bytes), taken)});
    return result;
}

ssize_t recv(int descriptor, void* buffer, size_t size, int flags) {
    return Receive(descriptor, buffer, size, flags);
}

ssize_t __recv_chk(int descriptor, void* buffer, size_t size, size_t /*room*/, int flags) {
    return Receive(descriptor, buffer, size, flags);
}

int shutdown(int descriptor, int how) noexcept {
    static auto* const next = Next<int(int, int)>("shutdown");
    const auto result = static_cast<int>(Checked(descriptor, next(descriptor, how)));
    Add({"shutdown", descriptor, Ticks(), how, result, {}});
    return result;
}

int close(int descriptor) {
    static auto* const next = Next<int(int)>("close");
    Add({"close", descriptor, 0, 0, 0, {}}); // logged first: the number may be reused at once
    return static_cast<int>(Checked(descriptor, next(descriptor)));
}

int usleep(useconds_t microseconds) {
    return Sleep(microseconds);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) noexcept {
    using Create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static auto* const next = Next<Create>("pthread_create");
    if (TakeOne(TheState().failThreads)) {
        *thread = static_cast<pthread_t>(0xDEAD); // POSIX leaves the handle undefined
        return EAGAIN;
    }
    return next(thread, attributes, run, argument);
}

hostent* gethostbyname(const char* name) {
    static auto* const next = Next<hostent*(const char*)>("gethostbyname");
    std::function<hostent*(const char*)> answer;
    {
        const std::lock_guard lock(TheState().mutex);
        answer = TheState().lookUp;
    }
    Add({"gethostbyname", -1, 0, 0, 0, name});
    return answer ? answer(name) : next(name);
}

int getifaddrs(ifaddrs** list) noexcept {
    static auto* const next = Next<int(ifaddrs**)>("getifaddrs");
    if (!TheState().interfaces) return next(list);
    *list = TheState().interfaces();
    return *list ? 0 : -1;
}

void freeifaddrs(ifaddrs* list) noexcept {
    static auto* const next = Next<void(ifaddrs*)>("freeifaddrs");
    if (!TheState().interfaces) next(list);
}
}
