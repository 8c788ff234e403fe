#pragma once

#include <cstddef>
#include <cstdint>

namespace vrx::host {

/// How a sample becomes one 32-bit word of a block.
enum class SampleFormat {
    kF32, ///< an IEEE float, full scale -1 to 1
    kS32, ///< a signed integer, full scale -2^31 to 2^31 - 1
};

/// Conversions between words and samples. Integers are taken at full scale: a 16-bit sample s is s / 2^15 as
/// a float and s * 2^16 as a word. Towards fewer bits values are rounded to the nearest, halves to the even
/// one; what lies outside the range is clipped to its ends, and what is no number becomes 0. A 16-bit
/// sample therefore survives either kind of word unchanged, and a 32-bit sample the integer kind.

std::uint32_t WordFromSample(double sample, SampleFormat kind);
double SampleFromWord(std::uint32_t word, SampleFormat kind);

void WordsToPcm16(const std::uint32_t* words, std::size_t count, SampleFormat kind, std::int16_t* out);
void WordsToPcm32(const std::uint32_t* words, std::size_t count, SampleFormat kind, std::int32_t* out);
void WordsToFloat(const std::uint32_t* words, std::size_t count, SampleFormat kind, float* out);

} // namespace vrx::host
