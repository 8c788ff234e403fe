#include "base/File2.h"

#include "tests/support/FolderTest.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <sys/single_threaded.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::string_literals;

class File2Test : public FolderTest {};

using StreamPtr = std::unique_ptr<FILE, int (*)(FILE*)>;

StreamPtr OpenStream(const std::string& path, const char* mode) {
    return {std::fopen(path.c_str(), mode), std::fclose};
}

// ---- strNcpy

struct CopyCase {
    const char* name;
    const char* source;
    size_t size;
    std::string want; ///< the eight bytes of the destination afterwards
};
const CopyCase kCopies[] = {
    {"shorter: padded with NULs", "ab", 8, "ab\0\0\0\0\0\0"s},
    {"shorter than a part", "ab", 4, "ab\0\0####"s},
    {"exactly n - 1", "abc", 4, "abc\0####"s},
    {"exactly n: last character gives way", "abcd", 4, "abc\0####"s},
    {"longer: cut", "abcdefgh", 4, "abc\0####"s},
    {"room for the NUL only", "abc", 1, "\0#######"s},
    {"empty", "", 3, "\0\0\0#####"s},
    {"byte 0xFF", "\xFF\xFE", 4, "\xFF\xFE\0\0####"s},
    {"null source", nullptr, 4, "########"s},
    {"no room at all", "abc", 0, "########"s},
};

TEST(StrNcpy, CopiesCutsAndTerminates) {
    for (const CopyCase& c : kCopies) {
        SCOPED_TRACE(c.name);
        char dst[9] = "########";
        EXPECT_EQ(strNcpy(dst, c.source, c.size), dst);
        EXPECT_EQ(std::string(dst, 8), c.want);
    }
    EXPECT_EQ(strNcpy(nullptr, "abc", 4), nullptr);
}

// ---- construction

/// What the C library's assert prints for this program.
std::string AssertionMessage(const std::string& rest) {
    return program_invocation_short_name + ": "s + rest + "\n";
}

TEST(File2DeathTest, NullStreamIsAnAssertion) {
    EXPECT_EXIT({ File2 file(static_cast<FILE*>(nullptr)); }, testing::KilledBySignal(SIGABRT),
                testing::Eq(AssertionMessage("BaseHelpers:68: File2::File2(FILE*): Assertion `fh' failed.")));
}

TEST(File2DeathTest, NullFileNameIsAnAssertion) {
    EXPECT_EXIT({ File2 file(nullptr, nullptr, -1); }, testing::KilledBySignal(SIGABRT),
                testing::Eq(AssertionMessage("BaseHelpers:78: File2::File2(const char*, const char*, int): "
                                             "Assertion `filename' failed.")));
}

TEST(File2DeathTest, NullModeIsAnAssertion) {
    EXPECT_EXIT({ File2 file("x", nullptr, -1); }, testing::KilledBySignal(SIGABRT),
                testing::Eq(AssertionMessage("BaseHelpers:79: File2::File2(const char*, const char*, int): "
                                             "Assertion `mode' failed.")));
}

void ExpectNoStream(File2& file) {
    std::string line = "kept";
    char buffer[4] = "abc";
    EXPECT_EQ(file.tell(), -1);
    EXPECT_EQ(file.seek(0, SEEK_SET), -1);
    EXPECT_EQ(file.getLength(), -1L);
    EXPECT_TRUE(file.flush());
    EXPECT_TRUE(file.setBuffer(nullptr, 16));
    EXPECT_EQ(file.writeChar('x'), -1);
    EXPECT_EQ(file.read(buffer, 3), 0u);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(file.printf("%d", 1), 0L);
    EXPECT_FALSE(file.fgets(line, true, true));
    EXPECT_EQ(line, "kept");
    file.close();
}

TEST_F(File2Test, IsSafeWithoutStream) {
    File2 never;
    ExpectNoStream(never);

    File2 missing(Path("missing").c_str(), "rb", -1);
    ExpectNoStream(missing);

    File2 missingBuffered(Path("missing").c_str(), "rb", 512);
    ExpectNoStream(missingBuffered);

    File2 closed(Write("a", "abc").c_str(), "rb", -1);
    closed.close();
    ExpectNoStream(closed);

    File2 unnamed("", "rb", -1);
    ExpectNoStream(unnamed);
}

TEST_F(File2Test, ConstructorOpensWithAnyBufferSize) {
    const std::string path = Write("a", "abc");
    for (const int bufferSize : {-1, 0, 1, 65536}) {
        SCOPED_TRACE(bufferSize);
        File2 file(path.c_str(), "rb", bufferSize);
        char buffer[8];
        ASSERT_EQ(file.read(buffer, sizeof buffer), 3u);
        EXPECT_EQ(std::string(buffer, 3), "abc");
    }
}

// ---- ownership

TEST_F(File2Test, OwnedStreamIsClosedWithTheObject) {
    {
        File2 file(Path("a").c_str(), "wb", -1);
        EXPECT_EQ(file.printf("%s", "text"), 4L);
        EXPECT_EQ(Bytes("a"), ""); // still in the stream's buffer
    }
    EXPECT_EQ(Bytes("a"), "text");
}

TEST_F(File2Test, BorrowedStreamStaysOpen) {
    const StreamPtr stream = OpenStream(Path("a"), "wb");
    { File2 file(stream.get()); }
    File2 file(stream.get());
    EXPECT_EQ(file.writeChar('x'), 'x');
    file.close();
    ExpectNoStream(file);
    EXPECT_EQ(std::fputc('y', stream.get()), 'y');
    std::fflush(stream.get());
    EXPECT_EQ(Bytes("a"), "xy");
}

TEST_F(File2Test, OpenAfterBorrowingOwnsTheNewStreamOnly) {
    const StreamPtr stream = OpenStream(Path("borrowed"), "wb");
    {
        File2 file(stream.get());
        ASSERT_TRUE(file.open(Path("owned").c_str(), "wb"));
        file.writeChar('o');
    }
    EXPECT_EQ(Bytes("owned"), "o");
    EXPECT_EQ(std::fputc('b', stream.get()), 'b');
}

TEST_F(File2Test, OpenReplacesTheStreamEvenWhenItFails) {
    File2 file(Path("a").c_str(), "wb", -1);
    file.writeChar('a');
    ASSERT_TRUE(file.open(Path("b").c_str(), "wb"));
    EXPECT_EQ(Bytes("a"), "a");
    file.writeChar('b');
    EXPECT_FALSE(file.open(Path("missing/file").c_str(), "rb"));
    EXPECT_EQ(Bytes("b"), "b");
    ExpectNoStream(file);
}

TEST_F(File2Test, OpenWithAModeThatThereIsNotHoldsNoStream) {
    const std::string path = Write("a", "abc");
    File2 file(path.c_str(), "rb", -1);
    EXPECT_FALSE(file.open(path.c_str(), "zz"));
    ExpectNoStream(file);
    EXPECT_EQ(Bytes("a"), "abc");
    EXPECT_FALSE(file.open(Path("new").c_str(), "zz"));
    EXPECT_FALSE(std::filesystem::exists(Path("new")));
}

TEST_F(File2Test, OpenWithoutNameOrModeKeepsTheStream) {
    const std::string path = Write("a", "abc");
    File2 file(path.c_str(), "rb", -1);
    EXPECT_FALSE(file.open(nullptr, "rb"));
    EXPECT_FALSE(file.open("", "rb"));
    EXPECT_FALSE(file.open(path.c_str(), nullptr));
    EXPECT_FALSE(file.open(path.c_str(), ""));
    char buffer[3];
    EXPECT_EQ(file.read(buffer, 3), 3u);
}

// ---- position and length

TEST_F(File2Test, MovesAndMeasures) {
    File2 file(Write("a", "0123456789").c_str(), "rb", -1);
    EXPECT_EQ(file.tell(), 0);
    EXPECT_EQ(file.seek(4, SEEK_SET), 4);
    EXPECT_EQ(file.seek(2, SEEK_CUR), 6);
    EXPECT_EQ(file.getLength(), 10L);
    EXPECT_EQ(file.tell(), 6);
    EXPECT_EQ(file.seek(-1, SEEK_END), 9);
    EXPECT_EQ(file.seek(-5, SEEK_SET), 9); // a failed move: the position held
    EXPECT_EQ(file.seek(20, SEEK_SET), 20);
    EXPECT_EQ(file.getLength(), 10L);
    EXPECT_EQ(file.tell(), 20);
}

TEST_F(File2Test, PositionsBeyondTwoGigabytesAreCut) {
    const std::string path = Write("a", "");
    std::filesystem::resize_file(path, (uintmax_t{1} << 32) + 5);
    File2 file(path.c_str(), "rb", -1);
    EXPECT_EQ(file.seek(0, SEEK_END), 5);
    EXPECT_EQ(file.getLength(), 5L);
    std::filesystem::resize_file(path, uintmax_t{1} << 31);
    EXPECT_EQ(file.getLength(), -2147483648L);
}

TEST_F(File2Test, PipeHasNoPosition) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const StreamPtr stream(fdopen(ends[0], "rb"), std::fclose);
    close(ends[1]);
    File2 file(stream.get());
    EXPECT_EQ(file.tell(), -1);
    EXPECT_EQ(file.seek(1, SEEK_SET), -1);
    EXPECT_EQ(file.getLength(), -1L);
}

// ---- buffer, bytes, formatted text

TEST_F(File2Test, SetBufferUsesTheCallersMemory) {
    char memory[16] = {};
    File2 file(Path("a").c_str(), "wb", -1);
    EXPECT_TRUE(file.setBuffer(memory, sizeof memory));
    file.writeChar('x');
    EXPECT_EQ(memory[0], 'x');
    EXPECT_EQ(Bytes("a"), "");
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(Bytes("a"), "x");
    file.close();
}

TEST_F(File2Test, FlushAndWritesReportAFullDisk) {
    File2 file("/dev/full", "wb", -1);
    EXPECT_EQ(file.writeChar('x'), 'x');
    EXPECT_FALSE(file.flush());
}

TEST_F(File2Test, WritesSingleBytes) {
    File2 file(Path("a").c_str(), "wb", -1);
    EXPECT_EQ(file.writeChar('a'), 'a');
    EXPECT_EQ(file.writeChar(0), 0);
    EXPECT_EQ(file.writeChar(-1), 255); // fputc(3) takes the low byte
    EXPECT_EQ(file.writeChar(0x141), 0x41);
    file.close();
    EXPECT_EQ(Bytes("a"), "a\0\xFF\x41"s);

    File2 reader(Path("a").c_str(), "rb", -1);
    EXPECT_EQ(reader.writeChar('x'), -1);
}

TEST_F(File2Test, ReadsBytes) {
    File2 file(Write("a", "ab\0cd\n"s).c_str(), "rb", -1);
    char buffer[8];
    EXPECT_EQ(file.read(nullptr, 4), 0u);
    EXPECT_EQ(file.read(buffer, 0), 0u);
    ASSERT_EQ(file.read(buffer, 4), 4u);
    EXPECT_EQ(std::string(buffer, 4), "ab\0c"s);
    ASSERT_EQ(file.read(buffer, 8), 2u);
    EXPECT_EQ(std::string(buffer, 2), "d\n");
    EXPECT_EQ(file.read(buffer, 8), 0u);

    File2 folder(m_folder.Path().c_str(), "rb", -1);
    EXPECT_EQ(folder.read(buffer, 8), 0u);
}

TEST_F(File2Test, PrintsFormattedText) {
    const char* empty = "";
    const char* null = nullptr;
    File2 file(Path("a").c_str(), "wb", -1);
    EXPECT_EQ(file.printf("%s-%03d%c", "ab", 7, '\n'), 7L);
    EXPECT_EQ(file.printf("%.70000f", 0.5), 70002L);
    EXPECT_EQ(file.printf(empty, 0), 0L);
    EXPECT_EQ(file.printf(null, 0), 0L);
    file.close();
    const std::string bytes = Bytes("a");
    EXPECT_EQ(bytes.size(), 7u + 70002u);
    EXPECT_EQ(bytes.substr(0, 11), "ab-007\n0.50");

    File2 reader(Path("a").c_str(), "rb", -1);
    EXPECT_LT(reader.printf("%d", 1), 0L);
}

// ---- lines

struct LineCase {
    const char* name;
    std::string text;
    bool stripEol;
    bool anyLf;
    std::vector<std::string> want;
};
const LineCase kLines[] = {
    {"CR LF ends, LF is text", "one\r\ntwo\nthree", true, false, {"one", "two\nthree"}},
    {"every LF ends", "one\r\ntwo\nthree", true, true, {"one", "two", "three"}},
    {"unstripped: one LF more", "one\r\ntwo\nthree", false, true, {"one\r\n\n", "two\n\n", "three"}},
    {"unstripped, CR LF only", "one\r\ntwo\nthree", false, false, {"one\r\n\n", "two\nthree"}},
    {"unstripped, file ends in bare LF", "one\ntwo\n", false, false, {"one\ntwo\n"}},
    {"stripped, file ends in bare LF", "one\ntwo\n", true, false, {"one\ntwo"}},
    {"stripped, file ends in two bare LFs", "one\n\n", true, false, {"one\n"}},
    {"empty file", "", true, true, {}},
    {"one LF", "\n", true, true, {""}},
    {"one LF, unstripped", "\n", false, true, {"\n\n"}},
    {"one LF as text", "\n", true, false, {""}},
    {"one LF as text, unstripped", "\n", false, false, {"\n"}},
    {"one CR LF", "\r\n", true, false, {""}},
    {"one CR LF, unstripped", "\r\n", false, false, {"\r\n\n"}},
    {"one CR", "\r", true, true, {""}},
    {"one CR, unstripped", "\r", false, true, {"\r"}},
    {"last line x CR", "a\nx\r", true, true, {"a", "x"}},
    {"last line x CR, CR LF only", "a\r\nx\r", true, false, {"a", "x"}},
    {"two CRs: one goes", "a\r\r\nb\r\r", true, true, {"a\r", "b\r"}},
    {"CR inside stays", "a\rb\nc", true, true, {"a\rb", "c"}},
    {"LF CR", "a\n\rb\n", true, true, {"a", "\rb"}},
    {"LF CR LF: the CR counts", "a\n\r\nb", true, false, {"a\n", "b"}},
    {"CR, text, LF is no end", "a\rb\nc\r\nd", true, false, {"a\rb\nc", "d"}},
    {"empty lines between", "a\n\n\nb", true, true, {"a", "", "", "b"}},
    {"NULs are kept", "a\0b\n\0\n\0"s, true, true, {"a\0b"s, "\0"s, "\0"s}},
    {"byte 0xFF is no end of file", "\xFF\n\xFF", true, true, {"\xFF", "\xFF"}},
};

std::vector<std::string> Lines(File2& file, bool stripEol, bool anyLf) {
    std::vector<std::string> lines;
    std::string line = "old";
    while (file.fgets(line, stripEol, anyLf)) lines.push_back(line);
    EXPECT_EQ(line, ""); // the end of the file empties it too
    return lines;
}

TEST_F(File2Test, ReadsLines) {
    for (const LineCase& c : kLines) {
        SCOPED_TRACE(c.name);
        File2 file(Write("a", c.text).c_str(), "rb", -1);
        EXPECT_EQ(Lines(file, c.stripEol, c.anyLf), c.want);
    }
}

TEST_F(File2Test, ReadsLinesWhateverTheBuffer) {
    for (const LineCase& c : kLines) {
        for (const size_t size : {size_t{0}, size_t{1}, size_t{2}, size_t{3}}) { // 0: unbuffered
            SCOPED_TRACE(c.name);
            SCOPED_TRACE(size);
            char memory[3];
            const StreamPtr stream = OpenStream(Write("a", c.text), "rb");
            ASSERT_EQ(std::setvbuf(stream.get(), size ? memory : nullptr, size ? _IOFBF : _IONBF, size), 0);
            File2 file(stream.get());
            EXPECT_EQ(Lines(file, c.stripEol, c.anyLf), c.want);
        }
    }
}

/// The rules for lines, one character at a time.
bool PlainLine(const std::string& text, size_t& pos, std::string& line, bool stripEol, bool anyLf) {
    line.clear();
    bool ended = false;
    for (char previous = 0; !ended && pos < text.size();) {
        const char c = text[pos++];
        line += c;
        if (c != '\n')
            previous = c;
        else
            ended = anyLf || previous == '\r';
    }
    const bool found = !line.empty();
    if (stripEol && !line.empty() && line.back() == '\n') line.pop_back();
    if (stripEol && !line.empty() && line.back() == '\r') line.pop_back();
    if (!stripEol && ended) line += '\n';
    return found;
}

void ExpectPlainLines(std::string text, bool stripEol, bool anyLf) {
    SCOPED_TRACE(testing::PrintToString(text));
    const StreamPtr stream(fmemopen(text.data(), text.size(), "rb"), std::fclose);
    File2 file(stream.get());
    std::string line, want;
    size_t pos = 0;
    for (bool found = true; found;) {
        found = PlainLine(text, pos, want, stripEol, anyLf);
        ASSERT_EQ(file.fgets(line, stripEol, anyLf), found);
        ASSERT_EQ(line, want);
    }
}

TEST(File2Lines, EveryShortTextReadsAsThePlainRulesSay) {
    std::vector<std::string> texts = {""};
    for (size_t next = 0; texts[next].size() < 5; ++next) {
        for (const char c : "a\r\n"s + '\0') texts.push_back(texts[next] + c);
    }
    ASSERT_EQ(texts.size(), 1u + 4 + 16 + 64 + 256 + 1024);
    for (const std::string& text : texts) {
        for (const bool stripEol : {false, true}) {
            for (const bool anyLf : {false, true}) ExpectPlainLines(text, stripEol, anyLf);
        }
    }
}

TEST_F(File2Test, ReadsLongLines) {
    const std::string a(4095, 'a'), b(4096, 'b'), c(1000000, 'c');
    File2 file(Write("a", a + "\n" + b + "\r\n" + c + "\nrest").c_str(), "rb", -1);
    EXPECT_EQ(Lines(file, true, true), (std::vector<std::string>{a, b, c, "rest"}));
}

TEST_F(File2Test, LineAndOtherReadsShareThePosition) {
    File2 file(Write("a", "one\ntwo\nthree\n").c_str(), "r+b", -1);
    std::string line;
    ASSERT_TRUE(file.fgets(line, true, true));
    EXPECT_EQ(file.tell(), 4);
    char c;
    ASSERT_EQ(file.read(&c, 1), 1u);
    EXPECT_EQ(c, 't');
    ASSERT_TRUE(file.fgets(line, true, true));
    EXPECT_EQ(line, "wo");
    EXPECT_EQ(file.seek(0, SEEK_SET), 0);
    EXPECT_EQ(file.writeChar('O'), 'O');
    EXPECT_EQ(file.seek(0, SEEK_CUR), 1);
    ASSERT_TRUE(file.fgets(line, true, true));
    EXPECT_EQ(line, "ne");
    EXPECT_EQ(Bytes("a").substr(0, 4), "One\n");
}

TEST_F(File2Test, LineStartsWithPushedBackBytes) {
    const StreamPtr stream = OpenStream(Write("a", "bc\nd\n"), "rb");
    std::fgetc(stream.get());
    std::ungetc('X', stream.get());
    File2 file(stream.get());
    EXPECT_EQ(Lines(file, true, true), (std::vector<std::string>{"Xc", "d"}));
}

TEST_F(File2Test, ReadErrorEndsTheLines) {
    std::string line = "old";
    File2 folder(m_folder.Path().c_str(), "rb", -1);
    EXPECT_FALSE(folder.fgets(line, true, true));
    EXPECT_EQ(line, "");

    line = "old";
    File2 writer(Path("a").c_str(), "wb", -1);
    writer.writeChar('x');
    EXPECT_FALSE(writer.fgets(line, true, true));
    EXPECT_EQ(line, "");
    writer.close();
    EXPECT_EQ(Bytes("a"), "x");
}

// ---- streams whose callbacks throw

/// A stream whose every callback throws, until its end.
class ThrowingStream {
public:
    ~ThrowingStream() {
        m_throws = false;
        std::fclose(m_file);
    }
    FILE* File() const { return m_file; }

private:
    static int Call(void* cookie) {
        if (*static_cast<bool*>(cookie)) throw std::runtime_error("callback");
        return 0;
    }
    static ssize_t Read(void* cookie, char*, size_t) { return Call(cookie); }
    static ssize_t Write(void* cookie, const char*, size_t) { return Call(cookie); }
    static int Seek(void* cookie, off64_t*, int) { return Call(cookie); }

    bool m_throws = true;
    FILE* m_file = fopencookie(&m_throws, "r+", {Read, Write, Seek, nullptr});
};

TEST(File2Exceptions, BecomeFailureValues) {
    const ThrowingStream stream;
    File2 file(stream.File());
    char buffer[4];
    EXPECT_EQ(file.tell(), -1);
    EXPECT_EQ(file.seek(0, SEEK_END), -1);
    EXPECT_EQ(file.getLength(), -1L);
    EXPECT_EQ(file.read(buffer, 4), 0u);
    ASSERT_EQ(std::setvbuf(stream.File(), nullptr, _IONBF, 0), 0);
    EXPECT_EQ(file.printf("%s", "text"), 0L);
}

TEST(File2Exceptions, FlushFails) {
    const ThrowingStream stream;
    File2 file(stream.File());
    EXPECT_EQ(file.writeChar('x'), 'x');
    EXPECT_FALSE(file.flush());
}

TEST(File2Exceptions, PassThroughUnguardedOperations) {
    const ThrowingStream stream;
    File2 file(stream.File());
    std::string line;
    EXPECT_THROW(file.fgets(line, true, true), std::runtime_error);
    ASSERT_EQ(std::setvbuf(stream.File(), nullptr, _IONBF, 0), 0);
    EXPECT_THROW(file.writeChar('x'), std::runtime_error);
}

/// Whether another thread than the caller's could lock the stream at `argument`.
void* CanLock(void* argument) {
    FILE* const stream = static_cast<FILE*>(argument);
    if (ftrylockfile(stream) != 0) return nullptr;
    funlockfile(stream);
    return argument;
}

/// CanLock() of a new thread.
bool OthersCanLock(FILE* stream) {
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, nullptr, CanLock, stream), 0);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    return result != nullptr;
}

TEST(File2Exceptions, LeaveNoLockBehind) {
    const ThrowingStream stream;
    ASSERT_TRUE(OthersCanLock(stream.File()));
    ASSERT_FALSE(__libc_single_threaded); // since then streams are locked
    File2 file(stream.File());
    std::string line;
    EXPECT_THROW(file.fgets(line, true, true), std::runtime_error);
    EXPECT_TRUE(OthersCanLock(stream.File()));
}

/// Reads from the pipe end at `argument` until it is cancelled.
void* ReadUntilCancelled(void* argument) {
    const StreamPtr stream(fdopen(*static_cast<int*>(argument), "rb"), std::fclose);
    File2 file(stream.get());
    char c;
    file.read(&c, 1);
    return nullptr;
}

TEST(File2Exceptions, CancellationOfTheThreadIsNotSwallowed) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, ReadUntilCancelled, &ends[0]), 0);
    ASSERT_EQ(pthread_cancel(thread), 0); // takes effect in the blocked read, or on the way to it
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    close(ends[1]);
}

} // namespace
