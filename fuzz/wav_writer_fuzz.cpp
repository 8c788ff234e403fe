// CWaveWriter's headers against a slow twin, and PCM files read back.
// Input: a byte of flags, bits, channels (2 bytes), sample rate (4 bytes), frames per call, then samples.

#include "base/WaveFile.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Require.h"

#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

std::string Little(uint32_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i, value >>= 8) text += static_cast<char>(value & 0xFF);
    return text;
}

std::string SlowHeader(uint32_t channels, uint32_t rate, uint32_t bits, bool isFloat, uint32_t dataBytes) {
    static const std::string kFixed("\x03\0\0\0\0\0\0\0\0\0\x10\0\0\x80\x71\x9b\x38\0\xaa\0\0\0\0\0", 24);
    const uint32_t align = ((channels * bits) & 0xFFFF) / 8; // 16-bit arithmetic, as the field is
    std::string header = "RIFF" + Little((isFloat ? 80 : 36) + dataBytes, 4) + "WAVEfmt ";
    header += Little(isFloat ? 40 : 16, 4) + Little(isFloat ? 3 : 1, 2) + Little(channels, 2);
    header += Little(rate, 4) + Little(align * rate, 4) + Little(align, 2) + Little(bits, 2);
    if (isFloat) header += Little(20, 2) + Little(32, 2) + Little(0, 4) + Little(0, 4) + kFixed;
    return header + "data" + Little(dataBytes, 4);
}

void RequireReadBack(const std::string& path, const std::string& samples, unsigned frameBytes) {
    CWaveReader reader(path.c_str());
    RequireSame(reader.Open(), 0, "a PCM file opens");
    const auto frames = static_cast<unsigned>(samples.size() / frameBytes);
    std::vector<char> buffer(samples.size());
    RequireSame(reader.ReadSamples(buffer.data(), frames), static_cast<int>(frames), "all frames read");
    RequireSame(std::string(buffer.begin(), buffer.end()), samples, "the samples read back");
    RequireSame(reader.Close(), 9, "the reader closes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const uint8_t flags = input.Byte();
    const bool isFloat = (flags & 1) != 0;
    const int bits = input.Byte();
    const uint32_t channels = input.Byte() | uint32_t{input.Byte()} << 8;
    const uint32_t rate = input.Word();
    const unsigned framesPerCall = input.UpTo(7);
    const uint32_t written = bits > 16 ? 32 : 16;
    const unsigned frameBytes = channels * (written / 8);
    static MemoryFile memory;
    memory.Fill((flags & 2) != 0
                    ? "an older file that is longer than any header, to be replaced as a whole, and "
                      "nothing of it may be left"
                    : "");

    CWaveWriter writer(memory.Path().c_str(), static_cast<int>(channels), static_cast<int>(rate), bits,
                       isFloat);
    RequireSame(writer.Close(), -1, "no file is open yet");
    RequireSame(writer.Open(), 0, "the file is created");
    std::string samples;
    while (!input.AtEnd() && frameBytes > 0) {
        std::string block = input.Bytes(size_t{frameBytes} * framesPerCall);
        block.resize(block.size() / frameBytes * frameBytes);
        const auto frames = static_cast<unsigned>(block.size() / frameBytes);
        RequireSame(WriteSamplesEx(&writer, block.data(), frames), 0, "writing");
        samples += block;
        if (frames == 0) break;
    }
    RequireSame(writer.Close(), 0, "the writer closes");
    const auto dataBytes = static_cast<uint32_t>(samples.size());
    RequireSame(memory.Content(), SlowHeader(channels, rate, written, isFloat, dataBytes) + samples,
                "the file");
    if (!isFloat && frameBytes > 0) RequireReadBack(memory.Path(), samples, frameBytes);
    return 0;
}
