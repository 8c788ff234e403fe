// Moves blocks for tools that count from outside, such as callgrind and strace:
//
//   bench_blocks serve                       prints its port, answers until it is ended
//   bench_blocks pump PORT WORDS CALLS       PumpAudio so many times
//   bench_blocks loop PORT WORDS CALLS       the bare loop so many times

#include "bench/Exchange.h"
#include "talker/CVRXTalker.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace {

using namespace bench;

// The two functions that callgrind is told to look into.

[[gnu::noinline]] bool PumpOnce(CVRXTalker& talker, std::vector<uint32_t>& words) {
    const auto count = static_cast<unsigned>(words.size());
    return talker.PumpAudio(words.data(), words.data(), count, count) == 0;
}

[[gnu::noinline]] bool LoopOnce(BareConnection& connection, const std::vector<char>& request) {
    return connection.Exchange(request) > 0;
}

int Serve() {
    const Listener listener;
    std::printf("%d\n", listener.Port());
    std::fflush(stdout);
    ServeAnyone(listener);
    return 0;
}

int Pump(int port, size_t wordCount, int calls) {
    const std::unique_ptr<CVRXTalker> talker(TalkerFactory());
    talker->Configure(TalkerSettings(port).c_str());
    std::vector<uint32_t> words(wordCount);
    while (calls-- > 0) {
        if (!PumpOnce(*talker, words)) return 1;
    }
    return 0;
}

int Loop(int port, size_t wordCount, int calls) {
    // A host always has a second thread, the talker's own watchdog, and in a process with threads the C
    // library's send and recv take the path on which they can be cancelled. So the bare loop gets an idle one.
    std::thread([] { ::pause(); }).detach();
    BareConnection connection(port);
    const std::vector<char> request = Request(std::vector<uint32_t>(wordCount));
    while (calls-- > 0) {
        if (!LoopOnce(connection, request)) return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view mode = argc > 1 ? argv[1] : "";
    if (mode == "serve") return Serve();
    if (argc != 5) return 2;
    const int port = std::atoi(argv[2]);
    const auto words = static_cast<size_t>(std::atoi(argv[3]));
    const int calls = std::atoi(argv[4]);
    if (mode == "pump") return Pump(port, words, calls);
    if (mode == "loop") return Loop(port, words, calls);
    return 2;
}
