// Meets each fault that `vrx serve` can play once and prints, as a Markdown table, what the talker made of it
// and that it serves again afterwards. Run by script/fault-table.
//
//   fault_table PLUGIN VRX

#include "talker/CVRXTalker.h"
#include "tests/support/Subprocess.h"

#include <chrono>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned kWords = 64;

/// Runs `call` and returns the first line that it printed to standard output; "nothing" when there is none.
template <class Call>
std::string PrintedBy(Call call) {
    std::fflush(stdout);
    const int own = dup(STDOUT_FILENO);
    FILE* file = std::tmpfile();
    dup2(fileno(file), STDOUT_FILENO);
    call();
    std::fflush(stdout);
    dup2(own, STDOUT_FILENO);
    close(own);
    std::rewind(file);
    char line[200] = "";
    const bool any = std::fgets(line, sizeof line, file) != nullptr;
    std::fclose(file);
    std::string text(line);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return any ? "`" + text + "`" : "nothing";
}

/// Whether the next pump works: by itself, or only after Configure.
std::string Recovery(CVRXTalker& talker, const std::string& args) {
    std::vector<unsigned> block(kWords, 5);
    std::string recovery = "no";
    (void)PrintedBy([&] {
        if (talker.PumpAudio(block.data(), block.data(), kWords, kWords) == 0) {
            recovery = "yes";
            return;
        }
        for (int attempt = 0; attempt < 30 && recovery == "no";
             ++attempt) { // a server may refuse for a while
            if (talker.Configure(args.c_str()) &&
                talker.PumpAudio(block.data(), block.data(), kWords, kWords) == 0)
                recovery = "yes, after `Configure`";
            else
                usleep(100000);
        }
    });
    return recovery;
}

void Row(CVRXTalker* (*factory)(), const std::string& vrx, const std::string& fault) {
    Subprocess server(
        {vrx, "serve", "--samples", "s32", "--channels", "1", "--faults", fault, "--fault-limit", "1"});
    const std::string listening = server.ReadLine();
    const std::string port = listening.substr(listening.rfind(':') + 1);
    const std::string args =
        "server=127.0.0.1,servport=" + port + ",clport=1,input=In,output=Out,layout=Main";

    const std::unique_ptr<CVRXTalker> talker(factory());
    if (!talker->Configure(args.c_str())) return;
    std::vector<unsigned> in(kWords, 7);
    const std::vector<unsigned> before(kWords, 3);
    std::vector<unsigned> out = before;
    int result = 0;
    const auto start = std::chrono::steady_clock::now();
    const std::string printed =
        PrintedBy([&] { result = talker->PumpAudio(in.data(), out.data(), kWords, kWords); });
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const char* block = out == in ? "right" : out == before ? "untouched" : "incomplete";
    const std::string next = Recovery(*talker, args);
    std::printf("| `%s` | %d | %.2f s | %s | %s | %s |\n", fault.c_str(), result, seconds, block,
                printed.c_str(), next.c_str());
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: fault_table PLUGIN VRX\n");
        return 1;
    }
    void* library = dlopen(argv[1], RTLD_NOW);
    if (!library) {
        std::fprintf(stderr, "fault_table: %s\n", dlerror());
        return 1;
    }
    auto* const factory = reinterpret_cast<CVRXTalker* (*)()>(dlsym(library, "_Z13TalkerFactoryv"));
    std::printf("| fault | result | took | block | printed | next pump works |\n|---|---|---|---|---|---|\n");
    for (const char* fault :
         {"pieces=100", "pieces=10", "stall=500ms", "stall-header=300ms", "cut=100", "cut=2", "cut=0",
          "reset", "no-answer", "wrong-tag", "wrong-length=4000000000", "wrong-length=0", "negative-status",
          "text", "endless-text", "late=500ms", "late=11s", "duplicate", "refuse=2s"})
        Row(factory, argv[2], fault);
    return 0;
}
