#pragma once

#include "tools/audio/AudioFile.h"

namespace vrx::tool {

/// Writes a WAV file of one pass: the sizes in its header are 0xFFFFFFFF, "unknown", and nothing is ever gone back to, so it
/// may be a pipe. Each `Write` reaches the descriptor at once. The header has 44 bytes: RIFF, "fmt " with
/// format tag 1 (PCM) or 3 (IEEE float), "data", as RIFF/WAVE has them.
class WaveStream final : public SampleSink {
public:
    /// The descriptor stays the caller's.
    WaveStream(int descriptor, const AudioFormat& format) : m_descriptor(descriptor), m_format(format) {}

    bool Write(const std::uint32_t* words, std::size_t count, host::SampleFormat kind) override;
    bool Close() override;

private:
    bool PutHeader();
    bool Put(const void* bytes, std::size_t count) const;

    int m_descriptor;
    AudioFormat m_format;
    bool m_begun = false;
    std::vector<std::int16_t> m_pcm16;
    std::vector<std::int32_t> m_pcm32;
    std::vector<float> m_float;
};

} // namespace vrx::tool
