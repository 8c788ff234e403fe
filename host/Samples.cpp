#include "host/Samples.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace vrx::host {

namespace {

constexpr double kScale16 = 32768.0;
constexpr double kScale32 = 2147483648.0;

template <class Integer>
Integer Rounded(double value) {
    if (std::isnan(value)) return 0;
    using Limits = std::numeric_limits<Integer>;
    return static_cast<Integer>(std::clamp<double>(std::nearbyint(value), Limits::min(), Limits::max()));
}

} // namespace

std::uint32_t WordFromSample(double sample, SampleFormat kind) {
    if (kind == SampleFormat::kF32) return std::bit_cast<std::uint32_t>(static_cast<float>(sample));
    return static_cast<std::uint32_t>(Rounded<std::int32_t>(sample * kScale32));
}

double SampleFromWord(std::uint32_t word, SampleFormat kind) {
    if (kind == SampleFormat::kF32) return static_cast<double>(std::bit_cast<float>(word));
    return static_cast<std::int32_t>(word) / kScale32;
}

void WordsToPcm16(const std::uint32_t* words, std::size_t count, SampleFormat kind, std::int16_t* out) {
    for (std::size_t i = 0; i < count; ++i)
        out[i] = Rounded<std::int16_t>(SampleFromWord(words[i], kind) * kScale16);
}

void WordsToPcm32(const std::uint32_t* words, std::size_t count, SampleFormat kind, std::int32_t* out) {
    for (std::size_t i = 0; i < count; ++i)
        out[i] = Rounded<std::int32_t>(SampleFromWord(words[i], kind) * kScale32);
}

void WordsToFloat(const std::uint32_t* words, std::size_t count, SampleFormat kind, float* out) {
    for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<float>(SampleFromWord(words[i], kind));
}

} // namespace vrx::host
