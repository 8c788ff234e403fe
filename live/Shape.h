#pragma once

#include <cstddef>

namespace vrx::live {

inline constexpr std::size_t kMostChannels = 64;

/// What takes the place of a block that is not back when its turn comes.
enum class Late {
    kDry, ///< the input, delayed like everything else
    kSilence,
};

/// The measures of one bridge; they never change while it lives.
struct Shape {
    std::size_t channels = 2;        ///< 1 to kMostChannels
    double sampleRate = 48000;       ///< frames per second, above 0
    std::size_t blockFrames = 256;   ///< sent at a time, at least 1
    std::size_t periodFrames = 256;  ///< the most that one call of `Process` usually brings, at least 1
    std::size_t latencyFrames = 256; ///< from in to out, at least blockFrames
    Late late = Late::kDry;
};

} // namespace vrx::live
