// Line files, settings profiles and WAV files. The files lie in memory (/dev/shm) where the system has that
// folder, so that the disk takes no part.

#include "base/BaseHelpers.h"
#include "bench/Inputs.h"
#include "bench/Rounds.h"

#include <absl/strings/str_join.h>
#include <absl/strings/str_split.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <glib.h>
#include <ini.h>
#include <memory>
#include <sndfile.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace bench {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

/// A folder of this process that goes with it.
class ScratchFolder {
public:
    ScratchFolder() : m_path(Parent() / ("bench-" + std::to_string(::getpid()))) {
        fs::create_directories(m_path);
    }
    ~ScratchFolder() { fs::remove_all(m_path); }

    std::string File(const char* name) const { return m_path / name; }

private:
    static fs::path Parent() {
        const fs::path memory = "/dev/shm";
        return ::access(memory.c_str(), W_OK) == 0 ? memory : fs::temp_directory_path();
    }

    fs::path m_path;
};

const ScratchFolder& Scratch() {
    static const ScratchFolder folder;
    return folder;
}

std::string ReadAll(const std::string& name) {
    std::string content(fs::file_size(name), '\0');
    std::ifstream(name, std::ios::binary).read(content.data(), static_cast<std::streamsize>(content.size()));
    return content;
}

void WriteAll(const std::string& name, const std::string& content) {
    std::ofstream(name, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
}

/// A file that was written: equal when the contents are, so that only checks read it.
struct Written {
    std::string name;

    bool operator==(const Written& other) const { return ReadAll(name) == ReadAll(other.name); }
};

// Lines.

Strings LinesWithStdGetline(std::istream&& in) {
    Strings lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

Strings LinesWithGetline(const std::string& name) {
    Strings lines;
    std::FILE* const file = std::fopen(name.c_str(), "rb");
    char* line = nullptr;
    size_t capacity = 0;
    for (ssize_t length; (length = ::getline(&line, &capacity, file)) > 0;)
        lines.emplace_back(line, static_cast<size_t>(length - (line[length - 1] == '\n')));
    std::free(line);
    std::fclose(file);
    return lines;
}

Strings LinesWithAbsl(const std::string& text) {
    Strings lines = absl::StrSplit(text, '\n');
    if (lines.back().empty()) lines.pop_back(); // behind the last line end
    return lines;
}

void AddLineRows(const char* input, const char* fileName, size_t bytes, size_t lineBytes, double limit) {
    const auto text =
        std::make_shared<const std::string>(WordText(bytes, lineBytes - 1, lineBytes - 1, "\n") + "\n");
    const auto list = std::make_shared<string_vector>();
    list->LoadFromString(text->c_str());
    const std::string name = Scratch().File(fileName);
    const std::string saved = name + ".saved";
    const std::string peerSaved = name + ".peer";
    WriteAll(name, *text);

    const auto copy = Floor("copy of the lines", [list] { return Strings(*list); });
    Compare(
        "string_vector::LoadFromFile", input,
        [name]() -> Strings {
            string_vector lines;
            lines.LoadFromFile(name.c_str());
            return lines;
        },
        Peer(
            "std::getline", [name] { return LinesWithStdGetline(std::ifstream(name)); }, limit),
        Peer(
            "getline(3)", [name] { return LinesWithGetline(name); }, limit),
        Peer(
            "read and absl::StrSplit", [name] { return LinesWithAbsl(ReadAll(name)); }, limit),
        copy);
    Compare(
        "string_vector::LoadFromString", input,
        [text]() -> Strings {
            string_vector lines;
            lines.LoadFromString(text->c_str());
            return lines;
        },
        Peer(
            "std::getline", [text] { return LinesWithStdGetline(std::istringstream(*text)); }, limit),
        Peer(
            "absl::StrSplit", [text] { return LinesWithAbsl(*text); }, limit),
        copy);
    Compare(
        "string_vector::SaveToFile", input,
        [list, saved] {
            list->SaveToFile(saved.c_str());
            return Written{saved};
        },
        Peer("std::ofstream",
             [list, peerSaved] {
                 std::ofstream out(peerSaved, std::ios::binary);
                 for (const std::string& line : *list) out << line << "\r\n";
                 return Written{peerSaved};
             }),
        Peer("absl::StrJoin and write",
             [list, peerSaved] {
                 WriteAll(peerSaved, absl::StrJoin(*list, "\r\n") + "\r\n");
                 return Written{peerSaved};
             }),
        Floor("write of the bytes ready made", [name, peerSaved, text] {
            WriteAll(peerSaved, *text);
            return 0;
        }));
    Compare(
        "string_vector::SaveToString", input,
        [list] {
            std::string out;
            list->SaveToString(out, true);
            return out;
        },
        Peer("absl::StrJoin", [list] { return absl::StrJoin(*list, "\r\n") + "\r\n"; }),
        Floor("copy of the result", [out = absl::StrJoin(*list, "\r\n")] { return std::string(out); }));
}

/// What is kept of lines that are read one after another into one string.
struct LineSums {
    size_t lines = 0;
    size_t bytes = 0;
    size_t lastBytes = 0;

    void Add(const std::string& line) {
        ++lines;
        bytes += line.size();
        lastBytes += static_cast<unsigned char>(line.back());
    }
    bool operator==(const LineSums&) const = default;
};

void AddFgetsRow() {
    static const std::string name = Scratch().File("fgets.txt");
    WriteAll(name, WordText(6 * kMegabyte, 59, 59, "\n") + "\n");
    Compare(
        "File2::fgets", "6 MB of 60-byte lines",
        [] {
            File2 file(name.c_str(), "rb", -1);
            LineSums sums;
            for (std::string line; file.fgets(line, true, true);) sums.Add(line);
            return sums;
        },
        Peer("std::getline", [] {
            std::ifstream file(name, std::ios::binary);
            LineSums sums;
            for (std::string line; std::getline(file, line);) sums.Add(line);
            return sums;
        }));
}

// WAV files: 16-bit stereo.

constexpr int kChannels = 2;
constexpr int kSampleRate = 48'000;
constexpr size_t kFrameBytes = 4;
constexpr size_t kBlockFrames = 4096;
constexpr size_t kBlockBytes = kBlockFrames * kFrameBytes;
constexpr size_t kBlocks = 200 * kMegabyte / kBlockBytes;

void WriteWav(const std::string& name, std::string& block) {
    CWaveWriter writer(name.c_str(), kChannels, kSampleRate, 16, false);
    writer.Open();
    for (size_t i = 0; i < kBlocks; ++i) writer.WriteSamples(block.data(), kBlockFrames);
    writer.Close();
}

void WriteWavWithSndfile(const std::string& name, const std::string& block) {
    SF_INFO info{};
    info.channels = kChannels;
    info.samplerate = kSampleRate;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* const file = sf_open(name.c_str(), SFM_WRITE, &info);
    for (size_t i = 0; i < kBlocks; ++i) sf_write_raw(file, block.data(), kBlockBytes);
    sf_close(file);
}

/// The frames of a file and its last block. Not read beyond: there libsndfile clears the block.
using Samples = std::pair<size_t, std::string>;

Samples ReadWav(const std::string& name) {
    CWaveReader reader(name.c_str());
    reader.Open();
    size_t frames = 0;
    std::string block(kBlockBytes, '\0');
    for (size_t i = 0; i < kBlocks; ++i)
        frames += static_cast<size_t>(reader.ReadSamples(block.data(), kBlockFrames));
    reader.Close();
    return {frames, block};
}

Samples ReadWavWithSndfile(const std::string& name) {
    SF_INFO info{};
    SNDFILE* const file = sf_open(name.c_str(), SFM_READ, &info);
    size_t frames = 0;
    std::string block(kBlockBytes, '\0');
    for (size_t i = 0; i < kBlocks; ++i)
        frames += static_cast<size_t>(sf_read_raw(file, block.data(), kBlockBytes)) / kFrameBytes;
    sf_close(file);
    return {frames, block};
}

void AddWavRows() {
    static std::string block = TextWith(kBlockBytes, "\x80\xFF", 30);
    static const std::string ours = Scratch().File("ours.wav");
    static const std::string theirs = Scratch().File("theirs.wav");
    WriteWavWithSndfile(theirs, block);
    constexpr double kLevel = 1.05; // the system's copying is all there is to it
    const char* const input = "200 MB stereo, blocks of 4,096 frames";
    Compare(
        "CWaveReader", input, [] { return ReadWav(theirs); },
        Peer(
            "libsndfile raw", [] { return ReadWavWithSndfile(theirs); }, kLevel));
    Compare(
        "CWaveWriter", input,
        [] {
            WriteWav(ours, block);
            return Written{ours};
        },
        Peer(
            "libsndfile raw",
            [] {
                WriteWavWithSndfile(theirs, block);
                return Written{theirs};
            },
            kLevel));
}

// Profiles.

const char* const kFirstSection = "section 0";
const char* const kLastSection = "section 49";
const char* const kKey = "key 9";
const char* const kNewValue = "a new value";

std::string ProfileText() {
    std::string text;
    for (int section = 0; section < 50; ++section) {
        text += "[section " + std::to_string(section) + "]\n";
        for (int key = 0; key < 18; ++key)
            text += "key " + std::to_string(key) + "=value " + std::to_string(section * key) + "\n";
        text += "\n";
    }
    return text;
}

struct FreeKeyFile {
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
};
using KeyFile = std::unique_ptr<GKeyFile, FreeKeyFile>;

KeyFile LoadKeyFile(const std::string& text) {
    KeyFile file(g_key_file_new());
    g_key_file_load_from_data(file.get(), text.data(), text.size(), G_KEY_FILE_KEEP_COMMENTS, nullptr);
    return file;
}

std::string KeyFileValue(GKeyFile* file, const char* section) {
    char* const value = g_key_file_get_string(file, section, kKey, nullptr);
    std::string copy = value;
    g_free(value);
    return copy;
}

std::string InihValue(const std::string& text, const char* wantedSection) {
    struct Search {
        std::string section;
        std::string value;
    } search{wantedSection, {}};
    const auto onEntry = [](void* user, const char* section, const char* key, const char* value) {
        auto* const wanted = static_cast<Search*>(user);
        if (wanted->section == section && std::string_view(key) == kKey) wanted->value = value;
        return 1;
    };
    ini_parse_string(text.c_str(), onEntry, &search);
    return search.value;
}

/// The text of a profile; the kinds of line end do not count.
struct ProfileLines {
    std::string text;

    bool operator==(const ProfileLines& other) const {
        return String::Replace(text, "\r\n", "\n") == String::Replace(other.text, "\r\n", "\n");
    }
};

void AddProfileRows() {
    static const std::string text = ProfileText();
    static string_vector loaded;
    loaded.LoadFromString(text.c_str());
    static const KeyFile keyFile = LoadKeyFile(text);

    Compare(
        "string_vector::GetProfileStr", "1,000 lines, from the first section",
        [] { return loaded.GetProfileStr(kFirstSection, kKey, ""); },
        Peer("g_key_file_get_string", [] { return KeyFileValue(keyFile.get(), kFirstSection); }));
    Compare(
        "string_vector::GetProfileStr", "1,000 lines, from text",
        [] {
            string_vector list;
            list.LoadFromString(text.c_str());
            return list.GetProfileStr(kLastSection, kKey, "");
        },
        Peer("GKeyFile", [] { return KeyFileValue(LoadKeyFile(text).get(), kLastSection); }),
        Peer("inih", [] { return InihValue(text, kLastSection); }));
    Compare(
        "string_vector::WriteProfileStr", "1,000 lines, from text to text",
        [] {
            string_vector list;
            list.LoadFromString(text.c_str());
            list.WriteProfileStr(kLastSection, kKey, kNewValue);
            ProfileLines out;
            list.SaveToString(out.text, true);
            return out;
        },
        Peer("GKeyFile", [] {
            const KeyFile file = LoadKeyFile(text);
            g_key_file_set_string(file.get(), kLastSection, kKey, kNewValue);
            gsize size = 0;
            char* const data = g_key_file_to_data(file.get(), &size, nullptr);
            ProfileLines out{std::string(data, size)};
            g_free(data);
            return out;
        }));
}

} // namespace

void AddRows() {
    constexpr double kLevel = 1.05; // allocating a string for each line is all there is to it
    AddLineRows("50 MB of 60-byte lines", "long.txt", 50 * kMegabyte, 60, kLevel);
    AddLineRows("16 MB of 10-byte lines", "short.txt", 16 * kMegabyte, 10, 1.0);
    AddFgetsRow();
    AddWavRows();
    AddProfileRows();
}

} // namespace bench
