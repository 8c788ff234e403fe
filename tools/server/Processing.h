#pragma once

#include "tools/wire/Samples.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vrx::tool {

/// One step of processing as it is written on the command line.
struct ProcessStep {
    enum Kind { kPass, kGain, kInvert, kDelay, kLowpass };
    Kind kind = kPass;
    double value = 0; ///< decibels, frames or hertz
};

/// What the blocks are made of.
struct StreamShape {
    SampleFormat format = SampleFormat::kF32;
    uint32_t channels = 2; ///< interleaved; at least 1
    double rate = 48000;   ///< frames per second
};

/// Reads `pass`, `gain=DB` (-200 to 200), `invert`, `delay=FRAMES` (at most a million words over all
/// channels) or `lowpass=HZ` (above 0, below half the rate). Returns "" and sets `step`, or says what is
/// wrong.
std::string ParseStep(std::string_view text, const StreamShape& shape, ProcessStep& step);

/// Processes the blocks of one connection in order. Delay and low-pass carry their state from block to
/// block; every block begins with the first channel.
///
/// f32: gain and low-pass may leave -1..1; a NaN or an infinity passes but does not stay in the low-pass.
/// s32: results are rounded and saturate; the inverse of the smallest integer is the largest one.
class Processor {
public:
    Processor(const std::vector<ProcessStep>& steps, const StreamShape& shape);

    /// Replaces every sample of the block by its result. `words` hold samples of the stream's format.
    void Run(std::span<uint32_t> words);

private:
    struct Gain {
        double factor;
    };
    struct Invert {};
    struct Delay {
        std::vector<uint32_t> held; // a ring of the words not yet given back
        size_t next = 0;
    };
    struct Lowpass {
        double part;               // of the way to the input that the output goes with each frame
        std::vector<double> level; // per channel
    };
    using Step = std::variant<Gain, Invert, Delay, Lowpass>;

    template <class Sample>
    static void Apply(const Gain& gain, std::span<uint32_t> words);
    template <class Sample>
    static void Apply(const Invert& invert, std::span<uint32_t> words);
    template <class Sample>
    static void Apply(Delay& delay, std::span<uint32_t> words);
    template <class Sample>
    static void Apply(Lowpass& lowpass, std::span<uint32_t> words);

    SampleFormat m_format;
    std::vector<Step> m_steps;
};

} // namespace vrx::tool
