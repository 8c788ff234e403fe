#include "base/File2.h"
#include "base/StringVector.h"
#include "base/internal/Blanks.h"
#include "base/internal/PutBytes.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

namespace {

constexpr size_t kFileBlock = 64 * 1024; // bytes per read and per write of a file
constexpr size_t kTextBlock = 4 * 1024;  // stays in the fastest cache beside the elements
constexpr std::string_view kCrLf = "\r\n";

size_t CountLf(std::string_view text) {
    constexpr size_t kRun = 255; // what a byte can count, so that compilers add up many bytes at once
    size_t count = 0;
    for (; !text.empty(); text.remove_prefix(std::min(kRun, text.size()))) {
        uint8_t inRun = 0;
        for (const char c : text.substr(0, kRun)) inRun = static_cast<uint8_t>(inRun + (c == '\n'));
        count += inRun;
    }
    return count;
}

/// Calls `line` for each LF in `text` with what stands between it and the one before; returns what is left.
template <class Line>
std::string_view ForEachLf(std::string_view text, Line line) {
    for (size_t lf; (lf = text.find('\n')) != std::string_view::npos; text.remove_prefix(lf + 1)) {
        line(text.substr(0, lf));
    }
    return text;
}

std::string_view WithoutCr(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

/// A file that is read in large blocks.
class BlockReader {
public:
    explicit BlockReader(File2& file) : m_file(file) {}

    /// Valid until the next call; empty at the end of the file.
    std::string_view Next() { return {m_block.get(), m_file.read(m_block.get(), kFileBlock)}; }

private:
    File2& m_file;
    std::unique_ptr<char[]> m_block = std::make_unique_for_overwrite<char[]>(kFileBlock);
};

/// How many lines the file holds at most, or 0 where that cannot be told beforehand (a pipe, for example).
/// Short lines load in half the time if the file is read for this first and the list then never grows.
size_t CountLines(File2& file, BlockReader& blocks) {
    if (file.getLength() <= 0) return 0;
    size_t lines = 1;
    for (std::string_view block; !(block = blocks.Next()).empty();) lines += CountLf(block);
    file.seek(0, SEEK_SET);
    return lines;
}

/// Collects texts in `block` and hands them to `sink` whenever that is full.
template <class Sink>
class BlockWriter {
public:
    BlockWriter(std::span<char> block, Sink sink) : m_block(block), m_sink(sink) {}

    /// Adds `text` and, if `crlf` is set, the line end.
    void Add(std::string_view text, bool crlf) {
        if (text.size() + kCrLf.size() > m_block.size() - m_used) {
            Flush();
            if (text.size() + kCrLf.size() > m_block.size()) {
                m_sink(text);
                text = "";
            }
        }
        char* const end = vrx::PutBytes(m_block.data() + m_used, text);
        std::memcpy(end, kCrLf.data(), kCrLf.size());
        m_used += text.size() + (crlf ? kCrLf.size() : 0);
    }

    void Flush() {
        m_sink(std::string_view(m_block.data(), m_used));
        m_used = 0;
    }

private:
    std::span<char> m_block;
    size_t m_used = 0;
    Sink m_sink;
};

} // namespace

int string_vector::LoadFromFile(const char* name) {
    if (vrx::IsEmpty(name)) return -1;
    File2 file;
    const bool opened = file.open(name, "rb"); // the name may stand in this list
    clear();
    if (!opened) return -1;

    BlockReader blocks(file);
    reserve(CountLines(file, blocks));

    // a NUL hides the rest of its line
    const auto add = [this](std::string_view line) { emplace_back(vrx::UpToNul(WithoutCr(line))); };
    std::string begun; // a line's bytes from earlier blocks
    for (std::string_view block; !(block = blocks.Next()).empty();) {
        begun += ForEachLf(block, [&](std::string_view line) {
            if (begun.empty()) return add(line);
            begun += line;
            add(begun);
            begun.clear();
        });
    }
    if (!begun.empty()) add(begun);
    return static_cast<int>(size());
}

int string_vector::LoadFromString(const char* text) {
    if (vrx::IsEmpty(text)) return -1;
    const std::string_view whole(text);
    std::vector<std::string> lines; // the text may stand in this list
    lines.reserve(CountLf(whole) + 1);
    const std::string_view rest =
        ForEachLf(whole, [&](std::string_view line) { lines.emplace_back(WithoutCr(line)); });
    if (!rest.empty()) lines.emplace_back(rest); // a CR at the very end stays, unlike in a file
    swap(lines);
    return static_cast<int>(size());
}

bool string_vector::SaveToFile(const char* name) {
    if (vrx::IsEmpty(name)) return false;
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(name, "wb"), std::fclose);
    if (!file) return false;

    const auto memory = std::make_unique_for_overwrite<char[]>(kFileBlock);
    BlockWriter blocks({memory.get(), kFileBlock}, [&](std::string_view bytes) {
        // a full disk is not reported: callers rely on true for every file that could be created
        static_cast<void>(std::fwrite(bytes.data(), 1, bytes.size(), file.get()));
    });
    for (const std::string& element : *this) blocks.Add(vrx::UpToNul(element), true);
    blocks.Flush();
    return true;
}

bool string_vector::SaveToString(std::string& out, bool crlf) const {
    std::string text = std::move(out); // keeps the memory; an element given as `out` counts as empty
    text.clear();
    out.clear();

    size_t total = 0;
    for (const std::string& element : *this) total += element.size() + (crlf ? kCrLf.size() : 0);
    text.reserve(total);

    char memory[kTextBlock];
    BlockWriter blocks(memory, [&](std::string_view bytes) { text += bytes; });
    for (const std::string& element : *this) blocks.Add(element, crlf);
    blocks.Flush();
    out = std::move(text);
    return true;
}
