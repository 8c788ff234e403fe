#include "lv2/Measures.h"

#include "live/Latency.h"

#include <algorithm>

namespace vrx::lv2 {

namespace {

constexpr std::size_t kUsualPeriod = 1024;
constexpr std::size_t kLongestPeriod = 8192; // longer calls are taken in pieces
constexpr double kServerSeconds = 0.02;

std::size_t BlockFor(const BundleSettings& settings, std::size_t period) {
    if (settings.blockFrames > 0) return settings.blockFrames;
    const std::size_t suiting = live::SuitingBlock(period, settings.channels);
    return settings.latencyFrames > 0 ? std::min(suiting, settings.latencyFrames) : suiting;
}

} // namespace

live::Shape ShapeFor(const BundleSettings& settings, double sampleRate,
                     std::optional<std::size_t> hostFrames) {
    live::Shape shape;
    shape.channels = settings.channels;
    shape.sampleRate = sampleRate;
    shape.periodFrames = std::clamp<std::size_t>(hostFrames.value_or(kUsualPeriod), 1, kLongestPeriod);
    shape.blockFrames = BlockFor(settings, shape.periodFrames);
    shape.late = settings.silenceWhenLate ? live::Late::kSilence : live::Late::kDry;
    const std::size_t least = live::LeastLatency(shape.blockFrames, shape.periodFrames);
    const auto forServer = static_cast<std::size_t>(sampleRate * kServerSeconds);
    shape.latencyFrames =
        settings.latencyFrames > 0
            ? settings.latencyFrames
            : live::RoundedLatency(least + forServer, shape.blockFrames, shape.periodFrames);
    return shape;
}

} // namespace vrx::lv2
