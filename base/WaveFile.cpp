#include "base/WaveFile.h"

#include "base/internal/LittleEndian.h"

#include <array>
#include <cstring>
#include <string_view>

static_assert(offsetof(vrx::WaveFormat, channels) == 2);
static_assert(offsetof(vrx::WaveFormat, samplesPerSecond) == 4);
static_assert(offsetof(vrx::WaveFormat, bytesPerSecond) == 8);
static_assert(offsetof(vrx::WaveFormat, blockAlign) == 12);
static_assert(offsetof(vrx::WaveFormat, bitsPerSample) == 14);
static_assert(offsetof(vrx::WaveFormat, extraSize) == 16);

struct CWaveReader::Layout {
    static_assert(offsetof(CWaveReader, m_file) == 0);
    static_assert(offsetof(CWaveReader, m_name) == 8);
    static_assert(offsetof(CWaveReader, m_format) == 264);
    static_assert(offsetof(CWaveReader, m_channels) == 284);
    static_assert(offsetof(CWaveReader, m_sampleRate) == 288);
    static_assert(offsetof(CWaveReader, m_bits) == 292);
    static_assert(sizeof(CWaveReader) == 296);
};

struct CWaveWriter::Layout {
    static_assert(offsetof(CWaveWriter, m_file) == 0);
    static_assert(offsetof(CWaveWriter, m_name) == 8);
    static_assert(offsetof(CWaveWriter, m_format) == 264);
    static_assert(offsetof(CWaveWriter, m_dataBytes) == 284);
    static_assert(offsetof(CWaveWriter, m_channels) == 288);
    static_assert(offsetof(CWaveWriter, m_sampleRate) == 292);
    static_assert(offsetof(CWaveWriter, m_bits) == 296);
    static_assert(offsetof(CWaveWriter, m_float) == 300);
    static_assert(sizeof(CWaveWriter) == 304);
};

namespace {

constexpr size_t kPcmHeader = 44;
constexpr size_t kFloatHeader = 80;
constexpr uint16_t kPcmTag = 1;
constexpr uint16_t kFloatTag = 3;

/// The C library's checked copy: it ends the process when the name is too long.
template <size_t N>
void CopyName(char (&to)[N], const char* name) {
    __builtin___strcpy_chk(to, name ? name : "", N);
}

/// The size of one frame in memory and in the file.
size_t FrameBytes(int bits, int channels) {
    const size_t sampleBytes = bits == 16 ? 2 : 4; // so 8 and 24 bits take 4 as well: callers rely on it
    return channels > 0 ? sampleBytes * static_cast<size_t>(channels) : 0;
}

/// The header field: the product wraps at 16 bits before it is divided.
uint16_t BlockAlign(uint16_t channels, uint16_t bits) {
    return static_cast<uint16_t>(unsigned{channels} * bits) / 8;
}

// RIFF/WAVE header, little-endian. The sizes at 4 and at "data" are the count's 32 bits as they stand.
//
//   offset  size  integer PCM            floating point
//        0     4  "RIFF"                 "RIFF"
//        4     4  36 + data bytes        80 + data bytes (not less 8, as files always had it)
//        8     4  "WAVE"                 "WAVE"
//       12     4  "fmt "                 "fmt "
//       16     4  16                     40
//       20     2  1                      3
//       22     2  channels               channels
//       24     4  frames per second      frames per second
//       28     4  bytes per second       bytes per second
//       32     2  block align            block align
//       34     2  bits per sample        bits per sample
//       36     2                         20
//       38     2                         32
//       40     8                         0
//       48    24                         fixed bytes, whatever channels and bits are
//    36/72     4  "data"                 "data"
//    40/76     4  data bytes             data bytes
void WriteHeader(FILE* file, const vrx::WaveFormat& format, bool isFloat, uint32_t dataBytes) {
    static constexpr unsigned char kFixedBytes[24] = {0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                                      0x00, 0x00, 0x10, 0x00, 0x00, 0x80, 0x71, 0x9b,
                                                      0x38, 0x00, 0xaa, 0x00, 0x00, 0x00, 0x00, 0x00};
    std::array<unsigned char, kFloatHeader> header;
    vrx::LeWriter to(header.data());
    to.Raw("RIFF", 4);
    to.U32((isFloat ? 80 : 36) + dataBytes);
    to.Raw("WAVEfmt ", 8);
    to.U32(isFloat ? 40 : 16);
    to.U16(isFloat ? kFloatTag : kPcmTag);
    to.U16(format.channels);
    to.U32(format.samplesPerSecond);
    to.U32(format.bytesPerSecond);
    to.U16(format.blockAlign);
    to.U16(format.bitsPerSample);
    if (isFloat) {
        to.U16(20);
        to.U16(32);
        to.U32(0);
        to.U32(0);
        to.Raw(kFixedBytes, sizeof kFixedBytes);
    }
    to.Raw("data", 4);
    to.U32(dataBytes);
    static_cast<void>(std::fwrite(header.data(), 1, isFloat ? kFloatHeader : kPcmHeader, file));
}

} // namespace

CWaveReader::CWaveReader(const char* name) {
    CopyName(m_name, name);
}

int CWaveReader::Open() {
    m_file = std::fopen(m_name, "rb");
    if (!m_file) return -1;

    std::array<char, kPcmHeader> header{}; // a file that ends early leaves zeros, and its tags decide
    [[maybe_unused]] const size_t count = std::fread(header.data(), 1, header.size(), m_file);
    const auto tagAt = [&](size_t offset) { return std::string_view(header.data() + offset, 4); };
    if (tagAt(0) != "RIFF" || tagAt(8) != "WAVE" || tagAt(12) != "fmt " || tagAt(36) != "data") {
        Close();
        return -1;
    }

    m_format.channels = vrx::LoadLe16(&header[22]);
    m_format.samplesPerSecond = vrx::LoadLe32(&header[24]);
    m_format.bytesPerSecond = vrx::LoadLe32(&header[28]);
    m_format.blockAlign = vrx::LoadLe16(&header[32]);
    m_format.bitsPerSample = vrx::LoadLe16(&header[34]);
    m_channels = m_format.channels;
    m_sampleRate = static_cast<int32_t>(m_format.samplesPerSecond);
    m_bits = m_format.bitsPerSample;
    return 0;
}

int CWaveReader::Close() {
    if (!m_file) return -1;
    std::fclose(m_file);
    m_file = nullptr;
    return 9; // not 0: callers rely on it
}

int CWaveReader::Rewind() {
    if (!m_file) return -1;
    std::fseek(m_file, kPcmHeader, SEEK_SET);
    return 0;
}

int CWaveReader::ReadSamples(void* buffer, unsigned int frames) {
    if (!m_file) return -1;
    if (!buffer) return 0;
    return static_cast<int>(std::fread(buffer, FrameBytes(m_bits, m_channels), frames, m_file));
}

CWaveWriter::CWaveWriter(const char* name, int channels, int sampleRate, int bits, bool useFloat)
    : m_channels(channels), m_sampleRate(sampleRate), m_bits(bits > 16 ? 32 : 16), m_float(useFloat) {
    CopyName(m_name, name);
}

int CWaveWriter::Open() {
    m_file = std::fopen(m_name, "wb");
    if (!m_file) return -1;

    m_format.channels = static_cast<uint16_t>(m_channels);
    m_format.samplesPerSecond = static_cast<uint32_t>(m_sampleRate);
    m_format.bitsPerSample = static_cast<uint16_t>(m_bits);
    m_format.blockAlign = BlockAlign(m_format.channels, m_format.bitsPerSample);
    m_format.bytesPerSecond = m_format.blockAlign * m_format.samplesPerSecond;
    m_dataBytes = 0;
    WriteHeader(m_file, m_format, m_float, 0);
    return 0;
}

int CWaveWriter::Close() {
    if (!m_file) return -1;
    std::fseek(m_file, 0, SEEK_SET);
    WriteHeader(m_file, m_format, m_float, static_cast<uint32_t>(m_dataBytes));
    std::fclose(m_file);
    m_file = nullptr;
    m_dataBytes = 0;
    return 0;
}

int CWaveWriter::WriteSamples(void* buffer, unsigned int frames) {
    if (!m_file) return -1;
    if (!buffer || m_dataBytes < 0) return 0;
    const size_t frameBytes = FrameBytes(m_bits, m_channels);
    static_cast<void>(std::fwrite(buffer, frameBytes, frames, m_file)); // the count is of bytes handed in
    const auto added = static_cast<uint32_t>(frameBytes * frames);
    m_dataBytes = static_cast<int32_t>(static_cast<uint32_t>(m_dataBytes) + added);
    return 0;
}

int WriteSamplesEx(void* writer, void* buffer, unsigned int frames) {
    return writer ? static_cast<CWaveWriter*>(writer)->WriteSamples(buffer, frames) : -1;
}
