#include "tests/support/Subprocess.h"

#include <csignal>
#include <gtest/gtest.h>

namespace {

TEST(Subprocess, ReturnsBothOutputsAndTheExitCode) {
    const auto end = RunProgram({"sh", "-c", "echo out; echo err >&2; exit 3"});
    EXPECT_EQ(end.out, "out\n");
    EXPECT_EQ(end.err, "err\n");
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_EQ(end.signal, 0);
    EXPECT_FALSE(end.timedOut);
}

TEST(Subprocess, TakesMoreOutputThanAPipeHolds) {
    EXPECT_EQ(RunProgram({"head", "-c", "1000000", "/dev/zero"}).out, std::string(1000000, '\0'));
}

TEST(Subprocess, ReadsLinesOfARunningProgramThenEndsItBySignal) {
    Subprocess program({"sh", "-c", "echo one; echo two; exec sleep 1000"});
    EXPECT_EQ(program.ReadLine(), "one");
    EXPECT_EQ(program.ReadLine(), "two");
    program.Signal(SIGTERM);
    const auto end = program.Wait();
    EXPECT_EQ(end.signal, SIGTERM);
    EXPECT_EQ(end.exitCode, -1);
    EXPECT_EQ(end.out, "one\ntwo\n");
}

TEST(Subprocess, ALineMayEndWithTheOutput) {
    Subprocess program({"printf", "last"});
    EXPECT_EQ(program.ReadLine(), "last");
    EXPECT_EQ(program.ReadLine(), "");
    EXPECT_EQ(program.Wait().exitCode, 0);
}

TEST(Subprocess, KillsWhatOutlastsItsTime) {
    const auto end = RunProgram({"sleep", "1000"}, Subprocess::Milliseconds(1));
    EXPECT_TRUE(end.timedOut);
    EXPECT_EQ(end.signal, SIGKILL);
}

TEST(Subprocess, SaysWhatCannotBeStarted) {
    EXPECT_THROW(Subprocess({"/nowhere/no-such-program"}), std::runtime_error);
}

} // namespace
