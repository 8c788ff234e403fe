#include "tools/program/SameFile.h"

#include "tests/support/FolderTest.h"
#include "tools/program/Errors.h"

#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace {

using namespace vrx::tool;

class SameFile : public FolderTest {
protected:
    /// The message, "" when the two are not the same.
    static std::string Refusal(const std::string& one, const std::string& other, int descriptor = -1) {
        try {
            RefuseSameFiles({{"ONE", one, descriptor}, {"OTHER", other, descriptor}});
            return "";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code, kWrongUsage);
            return failure.message;
        }
    }
};

TEST_F(SameFile, NamesTheTwoAndTheFile) {
    const std::string file = Write("a", "x");
    EXPECT_EQ(Refusal(file, file), "ONE and OTHER name the same file (" + file + "): give each its own");
}

TEST_F(SameFile, KnowsAFileByAllItsNames) {
    const std::string file = Write("a", "x");
    std::filesystem::create_hard_link(file, Path("hard"));
    std::filesystem::create_symlink("a", Path("soft"));
    std::filesystem::create_symlink(Path("soft"), Path("softer"));
    for (const char* name : {"a", "./a", "hard", "soft", "softer"})
        EXPECT_NE(Refusal(file, Path(name)), "") << name;
    EXPECT_EQ(Refusal(file, Write("b", "x")), "");
}

TEST_F(SameFile, KnowsAPlaceWhereNothingIsYet) {
    std::filesystem::create_directory(Path("folder"));
    std::filesystem::create_symlink("folder", Path("link"));
    std::filesystem::create_symlink("new", Path("dangling"));
    std::filesystem::create_symlink("dangling", Path("further"));
    EXPECT_NE(Refusal(Path("new"), Path("new")), "");
    EXPECT_NE(Refusal(Path("new"), Path("folder/../new")), "");
    EXPECT_NE(Refusal(Path("folder/new"), Path("link/new")), "");
    EXPECT_NE(Refusal(Path("new"), Path("dangling")), "");
    EXPECT_NE(Refusal(Path("further"), Path("new")), "");
    EXPECT_EQ(Refusal(Path("new"), Path("newer")), "");
    EXPECT_EQ(Refusal(Path("new"), Path("folder/new")), "");
    EXPECT_EQ(Refusal(Path("new"), Write("a", "x")), "");
}

TEST_F(SameFile, LinksInACircleAreNoReasonToHang) {
    std::filesystem::create_symlink("b", Path("a"));
    std::filesystem::create_symlink("a", Path("b"));
    EXPECT_EQ(Refusal(Path("a"), Path("c")), "");
}

TEST_F(SameFile, WhatIsNotGivenOrNoFileIsNeverTheSame) {
    EXPECT_EQ(Refusal("", ""), "");
    EXPECT_EQ(Refusal("/dev/null", "/dev/null"), "");
    EXPECT_EQ(Refusal(Path("."), Path(".")), "");
}

TEST_F(SameFile, SeesAFileBehindAStandardStream) {
    const std::string file = Write("a", "x");
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_NE(Refusal("-", file, descriptor), "");
    EXPECT_EQ(Refusal("-", Write("b", "x"), descriptor), "");
    ::close(descriptor);
    int pipe[2];
    ASSERT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
    EXPECT_EQ(Refusal("-", "-", pipe[0]), "");
    ::close(pipe[0]);
    ::close(pipe[1]);
    EXPECT_EQ(Refusal("-", "-", -1), "") << "closed";
}

} // namespace
