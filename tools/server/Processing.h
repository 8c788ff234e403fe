#pragma once

#include "host/Samples.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vrx::tool {

/// What the blocks are made of.
struct StreamShape {
    host::SampleFormat format = host::SampleFormat::kF32;
    uint32_t channels = 2; ///< interleaved; at least 1
    double rate = 48000;   ///< frames per second
};

/// One step of processing at work on the blocks of one connection, in order.
class Stage {
public:
    virtual ~Stage() = default;

    /// Replaces every sample of the block by its result. `words` hold samples of the stream's format and begin
    /// with the first channel.
    virtual void Run(std::span<uint32_t> words) = 0;

    /// By how many frames what Run gives lags behind what it takes, apart from a delay that was asked for.
    virtual uint32_t Latency() const { return 0; }
};

/// One step of processing as the command line names it.
struct ProcessStep {
    /// Makes its stage for a connection, or throws Failure. May be called by any thread.
    std::function<std::unique_ptr<Stage>()> make;
    bool costly = false; ///< making it takes long enough to keep other clients waiting
};

/// Reads `pass`, `gain=DB` (-200 to 200), `invert`, `delay=FRAMES` (at most a million words over all
/// channels), `lowpass=HZ` (above 0, below half the rate) or `lv2=URI[;SYMBOL=VALUE...]` (see Lv2Stage.h).
/// Returns "" and sets `step`, or says what is wrong.
///
/// Delay and low-pass carry their state from block to block. f32: gain and low-pass may leave -1..1; a NaN or
/// an infinity passes but does not stay in the low-pass. s32: results are rounded and saturate; the inverse of
/// the smallest integer is the largest one.
std::string ParseStep(std::string_view text, const StreamShape& shape, ProcessStep& step);

/// The steps for the blocks of one connection, one after the other. For one thread at a time.
class Processor {
public:
    /// Throws Failure when a step cannot be made.
    explicit Processor(const std::vector<ProcessStep>& steps);

    void Run(std::span<uint32_t> words);

    /// Of all steps together, as of the last block.
    uint32_t Latency() const;

private:
    std::vector<std::unique_ptr<Stage>> m_stages;
};

} // namespace vrx::tool
