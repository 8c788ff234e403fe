// Feeds files, or all files of folders, to a fuzz target: how the corpora run as tests.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Path = std::filesystem::path;

std::vector<Path> FilesBelow(const Path& path) {
    if (!std::filesystem::is_directory(path)) return {path};
    std::vector<Path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

void Replay(const Path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        std::exit(1);
    }
    std::fprintf(stderr, "replay %s\n", file.c_str()); // stays the last line if the target ends the process
    const std::vector<char> bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char** argv) {
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const Path& file : FilesBelow(argv[i])) {
            Replay(file);
            ++count;
        }
    }
    if (count == 0) std::fprintf(stderr, "usage: %s FILE_OR_FOLDER... (with at least one file)\n", argv[0]);
    return count == 0 ? 1 : 0;
}
