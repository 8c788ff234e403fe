#include "tools/audio/WaveStream.h"

#include <bit>
#include <cerrno>
#include <unistd.h>

namespace vrx::tool {

namespace {

static_assert(std::endian::native == std::endian::little, "samples are written as they stand in memory");

constexpr std::uint32_t kUnknownSize = 0xFFFFFFFF;

class HeaderBytes {
public:
    void Text(const char* text) { m_bytes += text; }
    void U16(std::uint32_t value) { Number(value, 2); }
    void U32(std::uint32_t value) { Number(value, 4); }
    const std::string& Bytes() const { return m_bytes; }

private:
    void Number(std::uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) m_bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    }
    std::string m_bytes;
};

/// 44 bytes; the table of WaveStream.h in order.
std::string Header(const AudioFormat& format) {
    const bool isFloat = format.samples == SampleStorage::kFloat;
    const std::uint32_t sampleBytes = format.samples == SampleStorage::kPcm16 ? 2 : 4;
    const std::uint32_t frameBytes = format.channels * sampleBytes;
    const auto rate = static_cast<std::uint32_t>(format.sampleRate);
    HeaderBytes header;
    header.Text("RIFF");
    header.U32(kUnknownSize);
    header.Text("WAVEfmt ");
    header.U32(16);
    header.U16(isFloat ? 3 : 1);
    header.U16(format.channels);
    header.U32(rate);
    header.U32(rate * frameBytes);
    header.U16(frameBytes);
    header.U16(8 * sampleBytes);
    header.Text("data");
    header.U32(kUnknownSize);
    return header.Bytes();
}

} // namespace

bool WaveStream::Write(const std::uint32_t* words, std::size_t count, host::SampleFormat kind) {
    if (!PutHeader()) return false;
    switch (m_format.samples) {
    case SampleStorage::kPcm16:
        m_pcm16.resize(count);
        host::WordsToPcm16(words, count, kind, m_pcm16.data());
        return Put(m_pcm16.data(), count * sizeof m_pcm16[0]);
    case SampleStorage::kPcm32:
        m_pcm32.resize(count);
        host::WordsToPcm32(words, count, kind, m_pcm32.data());
        return Put(m_pcm32.data(), count * sizeof m_pcm32[0]);
    case SampleStorage::kFloat:
        m_float.resize(count);
        host::WordsToFloat(words, count, kind, m_float.data());
        return Put(m_float.data(), count * sizeof m_float[0]);
    }
    return false;
}

bool WaveStream::Close() {
    return PutHeader(); // of a stream without a sample
}

bool WaveStream::PutHeader() {
    if (m_begun) return true;
    m_begun = true;
    const std::string header = Header(m_format);
    return Put(header.data(), header.size());
}

bool WaveStream::Put(const void* bytes, std::size_t count) const {
    const char* at = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t n = ::write(m_descriptor, at, count);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        at += n;
        count -= static_cast<std::size_t>(n);
    }
    return true;
}

} // namespace vrx::tool
