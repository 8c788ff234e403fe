#include "talker/CVRXTalker.h"

#include "tests/support/ScriptedServer.h"

#include <atomic>
#include <dlfcn.h>
#include <fstream>
#include <gtest/gtest.h>
#include <malloc.h>
#include <memory>
#include <unistd.h>

namespace {

std::atomic<bool> g_shortTicks = false;

/// Lines of this process's memory map: in all, and of the plug-in.
struct Mappings {
    int all = 0;
    int plugIn = 0;
};

Mappings CountMappings() {
    Mappings count;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        ++count.all;
        count.plugIn += line.find("VRX_talker_norvo") != line.npos;
    }
    return count;
}

/// Loads the plug-in, pumps one block and unloads it again.
void OneRound(int port) {
    void* library = dlopen(VRX_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto* const factory = reinterpret_cast<CVRXTalker* (*)()>(dlsym(library, "_Z13TalkerFactoryv"));
    ASSERT_NE(factory, nullptr) << dlerror();
    std::unique_ptr<CVRXTalker> talker(factory());
    const std::string args =
        "server=localhost,servport=" + std::to_string(port) + ",clport=1,input=In,output=Out,layout=Main";
    ASSERT_TRUE(talker->Configure(args.c_str()));
    unsigned block[2] = {1, 2};
    ASSERT_EQ(talker->PumpAudio(block, block, 2, 2), 0);
    ASSERT_EQ(block[0], 7u);
    talker.reset();
    ASSERT_EQ(dlclose(library), 0);
}

TEST(Unload, FiveHundredTimesInOneProcessWithTheWatchdogStarted) {
    constexpr int kRounds = 500;
    g_shortTicks = true;
    ScriptedServer server(std::vector<ScriptedServer::Script>(kRounds + 1, [](Peer& peer) {
        peer.ReadLine();
        peer.Send("hello\n");
        peer.ReadPacket();
        peer.Send(Words({0x07FF0003, 36, 0, 0, 0, 0, 0, 7, 8}));
        peer.WaitForClose();
    }));
    OneRound(server.Port()); // the system's own lazy allocations
    const Mappings before = CountMappings();
    const size_t heapBefore = mallinfo2().uordblks;
    EXPECT_EQ(before.plugIn, 0); // it really is gone
    for (int round = 0; round < kRounds; ++round) OneRound(server.Port());
    const size_t heapAfter = mallinfo2().uordblks;
    const Mappings after = CountMappings();
    EXPECT_EQ(after.plugIn, 0);
    EXPECT_LE(after.all, before.all + 4);            // a cached thread stack more or less
    EXPECT_LT(heapAfter, heapBefore + 16 * kRounds); // less than the smallest block for each round
}

} // namespace

/// The plug-in's watchdog finds this in place of the C library's: 500 full ticks would take most of a minute.
extern "C" __attribute__((visibility("default"))) int usleep(useconds_t microseconds) {
    static auto* const next = reinterpret_cast<int (*)(useconds_t)>(dlsym(RTLD_NEXT, "usleep"));
    return next(g_shortTicks ? microseconds / 100 : microseconds);
}
