#include "base/StringVector.h"
#include "tests/support/NoMemory.h"

#include "tests/support/FolderTest.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <new>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

using namespace std::string_literals;

string_vector List(std::initializer_list<const char*> elements) {
    string_vector list;
    for (const char* element : elements) list.emplace_back(element);
    return list;
}

class StringVectorFile : public FolderTest {};

// ---- LoadFromFile

struct LoadCase {
    const char* name;
    std::string text;
    std::vector<std::string> want;
};
const LoadCase kFiles[] = {
    {"empty file", "", {}},
    {"one LF", "\n", {""}},
    {"one CR LF", "\r\n", {""}},
    {"one CR", "\r", {""}},
    {"terminator at the end adds nothing", "a\nb\n", {"a", "b"}},
    {"last line without terminator", "a\nb", {"a", "b"}},
    {"CR LF", "a\r\nb\r\n", {"a", "b"}},
    {"CR at the very end goes", "a\nb\r", {"a", "b"}},
    {"only one CR at the very end goes", "b\r\r", {"b\r"}},
    {"CR CR LF keeps one CR", "abc\r\r\nd", {"abc\r", "d"}},
    {"CR inside stays", "a\rb\nc", {"a\rb", "c"}},
    {"LF CR: the CR begins the next line", "a\n\rb\n", {"a", "\rb"}},
    {"LF CR at the end", "a\n\r", {"a", ""}},
    {"empty lines", "\na\n\n\r\nb", {"", "a", "", "", "b"}},
    {"cut at the first NUL", "ab\0cd\0e\nf"s, {"ab", "f"}},
    {"line end goes before the cut", "abc\0def\r\n"s, {"abc"}},
    {"CR before a NUL stays", "abc\r\0\n"s, {"abc\r"}},
    {"line of one NUL", "\0\n\0"s, {"", ""}},
    {"byte 0xFF", "\xFF\n\xFF", {"\xFF", "\xFF"}},
};

TEST_F(StringVectorFile, LoadsLines) {
    for (const LoadCase& c : kFiles) {
        SCOPED_TRACE(c.name);
        string_vector list = List({"old"});
        EXPECT_EQ(list.LoadFromFile(Write("a", c.text).c_str()), static_cast<int>(c.want.size()));
        EXPECT_EQ(list, c.want);
    }
}

TEST_F(StringVectorFile, LoadsLinesAcrossBlocks) {
    for (const size_t fill : {65533u, 65534u, 65535u, 65536u, 65537u, 131072u, 1000000u}) {
        SCOPED_TRACE(fill);
        const std::string head(fill, 'h');
        const std::string file = Write("a", head + "\r\nsecond\r\n\r\n" + head + "\0hidden\nlast"s);
        string_vector list;
        EXPECT_EQ(list.LoadFromFile(file.c_str()), 5);
        EXPECT_EQ(list, (std::vector<std::string>{head, "second", "", head, "last"}));
    }
}

TEST_F(StringVectorFile, LoadsManyLines) {
    std::string text;
    std::vector<std::string> want;
    for (int i = 0; i < 100000; ++i) {
        want.push_back("line " + std::to_string(i));
        text += want.back() + "\n";
    }
    string_vector list;
    EXPECT_EQ(list.LoadFromFile(Write("a", text).c_str()), 100000);
    EXPECT_EQ(list, want);
}

TEST_F(StringVectorFile, LoadNeedsAName) {
    string_vector list = List({"kept"});
    EXPECT_EQ(list.LoadFromFile(nullptr), -1);
    EXPECT_EQ(list.LoadFromFile(""), -1);
    EXPECT_EQ(list, List({"kept"}));
}

TEST_F(StringVectorFile, LoadOfAMissingFileEmptiesTheList) {
    string_vector list = List({"old"});
    EXPECT_EQ(list.LoadFromFile(Path("missing").c_str()), -1);
    EXPECT_EQ(list, List({}));
}

TEST_F(StringVectorFile, LoadOfAFolderGivesNoLines) {
    string_vector list = List({"old"});
    EXPECT_EQ(list.LoadFromFile(m_folder.Path().c_str()), 0);
    EXPECT_EQ(list, List({}));
}

TEST_F(StringVectorFile, LoadsAPipe) {
    const std::string path = Path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const std::string longLine(200000, 'x');
    std::thread writer([&] { std::ofstream(path, std::ios::binary) << "a\n" << longLine << "\r\nb"; });
    string_vector list;
    EXPECT_EQ(list.LoadFromFile(path.c_str()), 3);
    writer.join();
    EXPECT_EQ(list, (std::vector<std::string>{"a", longLine, "b"}));
}

TEST_F(StringVectorFile, LoadsAFileOfUnstatedLength) {
    string_vector list;
    ASSERT_EQ(std::filesystem::file_size("/proc/version"), 0u);
    EXPECT_EQ(list.LoadFromFile("/proc/version"), 1);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0] + "\n", Bytes("/proc/version"));
}

size_t OpenDescriptors() {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
}

TEST_F(StringVectorFile, LackOfMemoryClosesTheFile) {
    const std::string path = Write("a", "x\n");
    const size_t before = OpenDescriptors();
    string_vector list = List({"old"});
    const auto load = [&] {
        const NoMemory noMemory;
        list.LoadFromFile(path.c_str());
    };
    EXPECT_THROW(load(), std::bad_alloc);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(StringVectorFile, NameMayStandInTheList) {
    string_vector list;
    list.push_back(Write("a-name-too-long-for-the-string-object-itself", "x\ny\n"));
    EXPECT_EQ(list.LoadFromFile(list[0].c_str()), 2);
    EXPECT_EQ(list, List({"x", "y"}));
}

// ---- LoadFromString

const LoadCase kTexts[] = {
    {"one line", "a", {"a"}},
    {"CR LF at the end", "x\r\n", {"x"}},
    {"CR LF alone", "\r\n", {""}},
    {"LF alone", "\n", {""}},
    {"CR alone stays", "\r", {"\r"}},
    {"CR LF between", "a\r\nb", {"a", "b"}},
    {"empty line between", "a\n\nb", {"a", "", "b"}},
    {"CR between is text", "a\rb", {"a\rb"}},
    {"LF CR gives the lone CR", "a\n\r", {"a", "\r"}},
    {"CR at the very end stays", "a\nb\r", {"a", "b\r"}},
    {"CR CR LF keeps one CR", "a\r\r\nb", {"a\r", "b"}},
    {"LF CR LF", "\n\r\n", {"", ""}},
    {"byte 0xFF", "\xFF\n\xFF", {"\xFF", "\xFF"}},
    {"over 255 bytes", std::string(300, 'a') + "\n" + std::string(300, '\n'),
     [] {
         std::vector<std::string> want(301);
         want[0].assign(300, 'a');
         return want;
     }()},
};

TEST(StringVectorText, LoadsLines) {
    for (const LoadCase& c : kTexts) {
        SCOPED_TRACE(c.name);
        string_vector list = List({"old"});
        EXPECT_EQ(list.LoadFromString(c.text.c_str()), static_cast<int>(c.want.size()));
        EXPECT_EQ(list, c.want);
    }
}

TEST(StringVectorText, LoadNeedsAText) {
    string_vector list = List({"kept"});
    EXPECT_EQ(list.LoadFromString(nullptr), -1);
    EXPECT_EQ(list.LoadFromString(""), -1);
    EXPECT_EQ(list, List({"kept"}));
}

TEST(StringVectorText, TextMayStandInTheList) {
    string_vector list = List({"first line, a long one\nsecond line, a longer one"});
    EXPECT_EQ(list.LoadFromString(list[0].c_str()), 2);
    EXPECT_EQ(list, List({"first line, a long one", "second line, a longer one"}));
}

// ---- SaveToFile

TEST_F(StringVectorFile, SavesEveryElementWithCrLf) {
    string_vector list = List({"a", "", "b\rc\nd", "\xFF", "last"});
    list.push_back("cut\0here"s);
    list.push_back("\0gone"s);
    EXPECT_TRUE(list.SaveToFile(Path("a").c_str()));
    EXPECT_EQ(Bytes(Path("a")), "a\r\n\r\nb\rc\nd\r\n\xFF\r\nlast\r\ncut\r\n\r\n");
    EXPECT_EQ(list.size(), 7u);
    EXPECT_EQ(list[5], "cut\0here"s);
}

TEST_F(StringVectorFile, SaveReplacesTheFile) {
    string_vector empty;
    EXPECT_TRUE(empty.SaveToFile(Write("old", "something").c_str()));
    EXPECT_EQ(Bytes(Path("old")), "");
    EXPECT_TRUE(empty.SaveToFile(Path("new").c_str()));
    EXPECT_TRUE(std::filesystem::exists(Path("new")));
}

TEST_F(StringVectorFile, SaveNeedsAFileItCanCreate) {
    string_vector list = List({"a"});
    EXPECT_FALSE(list.SaveToFile(nullptr));
    EXPECT_FALSE(list.SaveToFile(""));
    EXPECT_FALSE(list.SaveToFile(Path("missing/file").c_str()));
    EXPECT_FALSE(list.SaveToFile(m_folder.Path().c_str()));
}

TEST_F(StringVectorFile, SaveIgnoresAFullDisk) {
    string_vector list;
    list.resize(100000, "text");
    EXPECT_TRUE(list.SaveToFile("/dev/full"));
}

TEST_F(StringVectorFile, SavesElementsOfEveryLength) {
    string_vector list;
    std::string want;
    for (const size_t length : {0u, 1u, 7u, 8u, 9u, 15u, 16u, 17u, 4093u, 4094u, 4095u, 4096u, 65533u, 65534u,
                                65535u, 65536u, 200000u, 3u}) {
        std::string element;
        for (size_t i = 0; i < length; ++i) element += static_cast<char>('a' + (i + length) % 26);
        list.push_back(element);
        want += element + "\r\n";
    }
    EXPECT_TRUE(list.SaveToFile(Path("a").c_str()));
    EXPECT_TRUE(Bytes(Path("a")) == want);

    std::string text;
    EXPECT_TRUE(list.SaveToString(text, true));
    EXPECT_TRUE(text == want);
}

TEST_F(StringVectorFile, SavedListLoadsAgain) {
    string_vector list;
    for (int i = 0; i < 50000; ++i) list.push_back(std::string(static_cast<size_t>(i % 70), 'x'));
    ASSERT_TRUE(list.SaveToFile(Path("a").c_str()));
    string_vector loaded;
    EXPECT_EQ(loaded.LoadFromFile(Path("a").c_str()), 50000);
    EXPECT_EQ(loaded, list);
}

// ---- SaveToString

TEST(StringVectorText, SavesWithAndWithoutCrLf) {
    string_vector list = List({"a", "", "b"});
    list.push_back("n\0ul"s);
    std::string text = "old";
    EXPECT_TRUE(list.SaveToString(text, false));
    EXPECT_EQ(text, "abn\0ul"s);
    EXPECT_TRUE(list.SaveToString(text, true));
    EXPECT_EQ(text, "a\r\n\r\nb\r\nn\0ul\r\n"s);
}

TEST(StringVectorText, EmptyListEmptiesTheOutput) {
    const string_vector list;
    for (const bool crlf : {false, true}) {
        std::string text = "old";
        EXPECT_TRUE(list.SaveToString(text, crlf));
        EXPECT_EQ(text, "");
    }
}

TEST(StringVectorText, OutputMayStandInTheList) {
    string_vector list = List({"a", "an element too long for the string object itself", "c"});
    EXPECT_TRUE(list.SaveToString(list[1], true));
    EXPECT_EQ(list[1], "a\r\n\r\nc\r\n");
}

} // namespace
