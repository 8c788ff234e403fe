// CWaveReader on any file. Input: the frames to ask for, then the file's bytes.

#include "base/WaveFile.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Require.h"

#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

constexpr size_t kHeaderBytes = 44;
constexpr size_t kMostBytes = 1 << 20;

size_t Word16(const std::string& bytes, size_t offset) {
    return static_cast<unsigned char>(bytes[offset]) | size_t{static_cast<unsigned char>(bytes[offset + 1])}
                                                           << 8;
}

bool IsCanonical(const std::string& bytes) {
    return bytes.compare(0, 4, "RIFF") == 0 && bytes.size() >= 40 && bytes.compare(8, 4, "WAVE") == 0 &&
           bytes.compare(12, 4, "fmt ") == 0 && bytes.compare(36, 4, "data") == 0;
}

/// Reads everything from the reader's position on, in pieces of `frames`.
std::string AllSamples(CWaveReader& reader, unsigned frames, size_t frameBytes) {
    std::string samples;
    std::vector<char> buffer(frames * frameBytes); // exactly: a byte too many is a finding
    for (;;) {
        const int count = reader.ReadSamples(buffer.data(), frames);
        Require(count >= 0 && static_cast<unsigned>(count) <= frames,
                "whole frames, at most those asked for");
        samples.append(buffer.data(), static_cast<size_t>(count) * frameBytes);
        if (static_cast<unsigned>(count) < frames) return samples;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const unsigned frames = input.Byte() + 1u;
    const std::string bytes = input.Rest();
    static MemoryFile memory;
    memory.Fill(bytes);

    CWaveReader reader(memory.Path().c_str());
    RequireSame(reader.ReadSamples(nullptr, frames), -1, "no file is open yet");
    const int opened = reader.Open();
    RequireSame(opened, IsCanonical(bytes) ? 0 : -1, "only the canonical header opens");
    if (opened != 0) {
        RequireSame(reader.Close(), -1, "a rejected file is not left open");
        return 0;
    }

    const size_t frameBytes = Word16(bytes, 22) * (Word16(bytes, 34) == 16 ? 2 : 4);
    if (frameBytes * frames <= kMostBytes) {
        const std::string stored = bytes.size() > kHeaderBytes ? bytes.substr(kHeaderBytes) : "";
        const size_t whole = frameBytes == 0 ? 0 : stored.size() / frameBytes * frameBytes;
        for (int pass = 0; pass < 2; ++pass) {
            RequireSame(AllSamples(reader, frames, frameBytes), stored.substr(0, whole), "the samples");
            RequireSame(reader.Rewind(), 0, "rewinding");
        }
    }
    RequireSame(reader.Close(), 9, "closing");
    RequireSame(reader.Close(), -1, "closing again");
    return 0;
}
