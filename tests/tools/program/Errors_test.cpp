#include "tools/program/Errors.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using namespace vrx::tool;

TEST(WithoutControls, LeavesNothingThatSteersATerminal) {
    const struct {
        const char* name;
        std::string text;
        const char* want;
    } kRows[] = {
        {"plain", "a b~", "a b~"},
        {"nothing", "", ""},
        {"line ends", "a\nb\r\n", "a?b??"},
        {"an escape", "\033[31mred", "?[31mred"},
        {"a NUL", std::string("a\0b", 3), "a?b"},
        {"DEL", "a\x7F", "a?"},
        {"C1 in UTF-8",
         "\xC2\x9B"
         "31m",
         "??31m"},
        {"the last C1", "\xC2\x9F.", "??."},
        {"other UTF-8", "\xC2\xA0\xC3\xA9\xC3\x9B", "\xC2\xA0\xC3\xA9\xC3\x9B"},
        {"a lone first byte", "\xC2", "\xC2"},
    };
    for (const auto& row : kRows) EXPECT_EQ(WithoutControls(row.text), row.want) << row.name;
}

TEST(RunCommand, TurnsWhatEndsACommandIntoALineAndACode) {
    const auto run = [](const auto& body) {
        testing::internal::CaptureStderr();
        const int code = RunCommand("vrx x", body);
        return std::pair(code, testing::internal::GetCapturedStderr());
    };
    EXPECT_EQ(run([] { return 7; }), std::pair(7, std::string()));
    EXPECT_EQ(run([]() -> int {
                  throw Failure{kCannotConnect, "a\nb"};
              }),
              std::pair(3, std::string("vrx x: a?b\n")));
    EXPECT_EQ(run([]() -> int { throw std::runtime_error("broken"); }),
              std::pair(4, std::string("vrx x: broken\n")));
}

} // namespace
