// Halves the volume of a 16-bit WAV file, block by block. It makes its own input: a falling ramp in stereo.
#include "base/BaseHelpers.h"

#include <cstdint>
#include <cstdio>

namespace {

bool WriteRamp(const char* name) {
    CWaveWriter writer(name, 2, 8000, 16, false);
    if (writer.Open() != 0) return false;
    for (int16_t frame = 5; frame > 0; --frame) {
        int16_t samples[2] = {static_cast<int16_t>(1000 * frame), static_cast<int16_t>(-1000 * frame)};
        writer.WriteSamples(samples, 1);
    }
    return writer.Close() == 0;
}

bool Halve(const char* from, const char* to) {
    CWaveReader reader(from);
    CWaveWriter writer(to, 2, 8000, 16, false);
    if (reader.Open() != 0 || writer.Open() != 0) return false;
    int16_t block[2 * 2]; // two frames; real programs take more
    for (int frames; (frames = reader.ReadSamples(block, 2)) > 0;) {
        for (int16_t& sample : block) sample = static_cast<int16_t>(sample / 2);
        writer.WriteSamples(block, static_cast<unsigned>(frames));
    }
    return writer.Close() == 0 && reader.Close() == 9; // 9 is the reader's success
}

bool Print(const char* name) {
    CWaveReader reader(name);
    if (reader.Open() != 0) return false;
    for (int16_t frame[2]; reader.ReadSamples(frame, 1) == 1;) std::printf("%6d %6d\n", frame[0], frame[1]);
    return reader.Close() == 9;
}

} // namespace

int main() {
    return WriteRamp("ramp.wav") && Halve("ramp.wav", "half.wav") && Print("half.wav") ? 0 : 1;
}
