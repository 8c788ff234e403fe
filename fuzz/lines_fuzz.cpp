// Line files and texts. The input is the text; as a file it is taken whole, as a string up to its first NUL.

#include "base/StringVector.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Require.h"
#include "fuzz/twins/FileLines.h"

#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

using Lines = std::vector<std::string>;

const Lines& AsLines(const string_vector& list) {
    return list;
}

Lines SlowTextLines(const std::string& text) {
    Lines lines;
    std::string line;
    for (size_t pos = 0; pos < text.size(); ++pos) {
        const bool crLf = text.compare(pos, 2, "\r\n") == 0;
        if (!crLf && text[pos] != '\n') {
            line += text[pos];
            continue;
        }
        if (crLf) ++pos;
        lines.push_back(line);
        line.clear();
    }
    if (!line.empty()) lines.push_back(line);
    return lines;
}

Lines CutAtNul(Lines lines) {
    for (std::string& line : lines)
        line.resize(line.find('\0') == std::string::npos ? line.size() : line.find('\0'));
    return lines;
}

std::string WithCrLf(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\r\n";
    return text;
}

string_vector LoadedFile(MemoryFile& memory, const std::string& bytes) {
    memory.Fill(bytes);
    string_vector list;
    list.push_back("old");
    const int count = list.LoadFromFile(memory.Path().c_str());
    RequireSame(count, static_cast<int>(list.size()), "loading a file gives the number of lines");
    return list;
}

void CheckSaving(MemoryFile& memory, string_vector& list) {
    Require(list.SaveToFile(memory.Path().c_str()), "the list is saved");
    RequireSame(memory.Content(), WithCrLf(CutAtNul(list)), "the saved file");

    std::string text = "old";
    Require(list.SaveToString(text, true), "saving to a string always succeeds");
    RequireSame(text, WithCrLf(list), "the saved text");

    string_vector back;
    (void)back.LoadFromFile(memory.Path().c_str()); // its result has been checked above
    RequireSame(AsLines(back), AsLines(list), "what was saved loads again");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const std::string bytes = input.Rest();
    static MemoryFile memory;

    string_vector fromFile = LoadedFile(memory, bytes);
    RequireSame(AsLines(fromFile), CutAtNul(SlowFileLines(bytes, true, true)), "lines of the file");

    const std::string text = bytes.c_str();
    string_vector fromText;
    fromText.push_back("old");
    const int count = fromText.LoadFromString(text.c_str());
    RequireSame(count, text.empty() ? -1 : static_cast<int>(fromText.size()),
                "loading a text gives the number of lines");
    RequireSame(AsLines(fromText), text.empty() ? Lines{"old"} : SlowTextLines(text), "lines of the text");

    // Only a CR at the very end is kept by one and dropped by the other.
    if (!text.empty() && text.back() != '\r') {
        fromFile = LoadedFile(memory, text);
        RequireSame(AsLines(fromFile), AsLines(fromText), "file and text agree");
    }
    CheckSaving(memory, fromText);
    return 0;
}
