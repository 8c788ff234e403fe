#include "tools/checks/ProcessState.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <dirent.h>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <unistd.h>

namespace vrx::tool {

namespace {

std::string NameOf(int descriptor) {
    std::error_code failed;
    const auto target = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), failed);
    return failed ? std::string() : target.string();
}

std::size_t Entries(const char* folder) {
    const auto close = [](DIR* list) { ::closedir(list); };
    const std::unique_ptr<DIR, decltype(close)> list(::opendir(folder), close);
    std::size_t count = 0;
    while (list && ::readdir(list.get()) != nullptr) ++count;
    return count > 2 ? count - 2 : 0;
}

} // namespace

std::vector<std::string> OpenDescriptors() {
    constexpr int kMost = 4096;
    std::vector<std::string> open;
    for (int descriptor = 0; descriptor < kMost; ++descriptor) {
        const std::string name = NameOf(descriptor);
        if (!name.empty()) open.push_back(std::to_string(descriptor) + " " + name);
    }
    return open;
}

std::vector<std::string> OpenSockets() {
    std::vector<std::string> open = OpenDescriptors();
    std::erase_if(open, [](const std::string& entry) { return entry.find(" socket:") == entry.npos; });
    return open;
}

std::size_t Threads() {
    return Entries("/proc/self/task");
}

std::size_t ResidentBytes() {
    std::ifstream file("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    file >> total >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

std::chrono::nanoseconds WaitedForProcessor(pid_t process) {
    std::error_code failed; // the process, or a thread, may end meanwhile
    std::chrono::nanoseconds waited{0};
    std::filesystem::directory_iterator thread("/proc/" + std::to_string(process) + "/task", failed);
    for (; !failed && thread != std::filesystem::directory_iterator(); thread.increment(failed)) {
        std::ifstream file(thread->path() / "schedstat");
        std::int64_t ran = 0;
        std::int64_t ready = 0;
        if (file >> ran >> ready) waited += std::chrono::nanoseconds(ready);
    }
    return waited;
}

bool MemoryIsMeasurable() {
    const auto known = [](const char* symbol) { return ::dlsym(RTLD_DEFAULT, symbol) != nullptr; };
    return !known("__asan_init") && !known("__tsan_init");
}

} // namespace vrx::tool
