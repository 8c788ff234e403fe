// File2::fgets against a slow twin, on a borrowed stream with any kind of buffer.
// Input: a byte of flags (strip the line end, any LF ends a line, a buffer of a few bytes, no buffer, a
// character pushed back), the small buffer's size, then the file's bytes.

#include "base/File2.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Require.h"
#include "fuzz/twins/FileLines.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace vrx::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const uint8_t flags = input.Byte();
    const bool stripEol = (flags & 1) != 0;
    const bool anyLf = (flags & 2) != 0;
    std::vector<char> buffer(input.Byte() + size_t{1});
    std::string bytes = input.Rest();
    static MemoryFile memory;
    memory.Fill(bytes);

    FILE* stream = std::fopen(memory.Path().c_str(), "rb");
    Require(stream != nullptr, "the file opens");
    if ((flags & 4) != 0)
        (void)std::setvbuf(stream, buffer.data(), _IOFBF, buffer.size()); // any buffer will do
    if ((flags & 8) != 0) (void)std::setvbuf(stream, nullptr, _IONBF, 0);
    if ((flags & 16) != 0 && std::fgetc(stream) != EOF) {
        std::ungetc('\r', stream);
        bytes[0] = '\r';
    }

    File2 file(stream);
    std::vector<std::string> lines;
    std::string line = "old";
    while (lines.size() <= bytes.size() && file.fgets(line, stripEol, anyLf)) {
        lines.push_back(line);
        Require(file.tell() > 0 && file.tell() <= file.getLength(), "the position stays inside");
    }
    RequireSame(lines, SlowFileLines(bytes, stripEol, anyLf), "the lines");
    RequireSame(line, std::string(), "the end of the file gives an empty line");
    RequireSame(file.tell(), static_cast<int>(bytes.size()), "everything was read");
    std::fclose(stream);
    return 0;
}
