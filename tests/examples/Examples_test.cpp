#include "tests/support/TemporaryFolder.h"
#include "tests/tools/VrxRun.h"

#include <gtest/gtest.h>

namespace {

std::string Arguments(const std::string& port) {
    return "server=127.0.0.1,servport=" + port + ",clport=0,input=In,output=Out,layout=Main";
}

TEST(MinimalHost, PumpsOneBlock) {
    const ServeProcess server({"--process", "invert"});
    const auto end = RunProgram({VRX_MINIMAL_HOST, VRX_PLUGIN, Arguments(server.Port())});
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_EQ(end.out, "status 0, first word -0.5\n");
}

TEST(MinimalHost, SaysWhatIsMissing) {
    EXPECT_EQ(RunProgram({VRX_MINIMAL_HOST}).exitCode, 1);
    EXPECT_EQ(RunProgram({VRX_MINIMAL_HOST, "/none.so", "x=1"}).exitCode, 1);
    const auto end = RunProgram({VRX_MINIMAL_HOST, VRX_PLUGIN, "x=1"});
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_EQ(end.out, "CVRXTalker::Configure: 'server' argument missing\n");
}

TEST(CompareGain, TellsAGainFromAnythingElse) {
    const TemporaryFolder folder;
    const std::string original = folder.Write("a.wav", Wav16(1, {1000, -1000, 7, -32768}));
    const std::string half = folder.Write("half.wav", Wav16(1, {501, -501, 4, -16423}));
    const std::string wrong = folder.Write("wrong.wav", Wav16(1, {501, -501, 5, -16423}));
    const std::string shorter = folder.Write("short.wav", Wav16(1, {501, -501, 4}));
    EXPECT_EQ(RunProgram({VRX_COMPARE_GAIN, original, half, "-6"}).exitCode, 0);
    EXPECT_EQ(RunProgram({VRX_COMPARE_GAIN, original, half, "-5"}).exitCode, 4);
    EXPECT_EQ(RunProgram({VRX_COMPARE_GAIN, original, wrong, "-6"}).exitCode, 4);
    EXPECT_EQ(RunProgram({VRX_COMPARE_GAIN, original, shorter, "-6"}).exitCode, 2);
    EXPECT_EQ(RunProgram({VRX_COMPARE_GAIN, original, folder / "none.wav", "-6"}).exitCode, 2);
    EXPECT_EQ(RunProgram({VRX_COMPARE_GAIN}).exitCode, 1);
}

} // namespace
