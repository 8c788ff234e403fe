// Checks that one audio file is another one at a changed volume: every sample has to be the nearest 16-bit
// value to the original times the gain.
// usage: compare_gain ORIGINAL CHANGED DECIBELS
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sndfile.h>
#include <string>
#include <vector>

namespace {

bool Read(const char* name, SF_INFO& info, std::vector<short>& samples) {
    SNDFILE* file = sf_open(name, SFM_READ, &info);
    if (file == nullptr) return std::fprintf(stderr, "%s: %s\n", name, sf_strerror(nullptr)), false;
    const sf_count_t count = info.frames * info.channels;
    samples.resize(static_cast<std::size_t>(count));
    const bool whole = sf_read_short(file, samples.data(), count) == count;
    sf_close(file);
    if (!whole) std::fprintf(stderr, "%s: cut short\n", name);
    return whole;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) return std::fputs("usage: compare_gain ORIGINAL CHANGED DECIBELS\n", stderr), 1;
    SF_INFO before{};
    SF_INFO after{};
    std::vector<short> original;
    std::vector<short> changed;
    if (!Read(argv[1], before, original) || !Read(argv[2], after, changed)) return 2;
    if (before.channels != after.channels || before.samplerate != after.samplerate || original.empty() ||
        original.size() != changed.size())
        return std::fputs("the two files differ in length, channels or rate, or are empty\n", stderr), 2;

    const double gain = std::pow(10.0, std::strtod(argv[3], nullptr) / 20);
    constexpr double kHalfAStep = 0.501; // the rounding, and a little for the float arithmetic in between
    for (std::size_t i = 0; i < original.size(); ++i)
        if (std::abs(changed[i] - original[i] * gain) > kHalfAStep) {
            std::fprintf(stderr, "sample %zu is %d instead of %.2f\n", i, changed[i], original[i] * gain);
            return 4;
        }
    std::printf("%zu samples compared, gain %s dB: all as they should be\n", original.size(), argv[3]);
    return 0;
}
