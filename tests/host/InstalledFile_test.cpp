#include "host/InstalledFile.h"

#include "tests/support/FolderTest.h"

namespace {

using namespace vrx::host;

class InstalledFile : public FolderTest {
protected:
    /// Where this folder lies as seen from the folder of the program.
    std::string Name(const char* file) const {
        return std::filesystem::relative(m_folder.Path(), ProgramFolder()).string() + "/" + file;
    }
};

TEST_F(InstalledFile, IsFoundBesideTheProgram) {
    Write("there.so", "");
    EXPECT_EQ(FindInstalled(Name("there.so")), Path("there.so"));
    EXPECT_EQ(FindInstalled(Name("elsewhere.so")), "");
}

TEST_F(InstalledFile, KeepsTheNameOfALink) {
    std::filesystem::create_symlink(Write("there.so.1", ""), Path("there.so"));
    EXPECT_EQ(FindInstalled(Name("there.so")), Path("there.so"));
}

TEST(ProgramFolder, IsAbsolute) {
    EXPECT_EQ(ProgramFolder(), std::filesystem::canonical("/proc/self/exe").parent_path());
}

} // namespace
