#include "tools/server/Processing.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <numbers>
#include <type_traits>

namespace vrx::tool {

namespace {

constexpr double kMostDecibels = 200;
constexpr double kMostDelayedWords = 1 << 20;

struct StepName {
    std::string_view name;
    ProcessStep::Kind kind;
    bool hasValue;
};
constexpr StepName kStepNames[] = {
    {"pass", ProcessStep::kPass, false},      {"gain", ProcessStep::kGain, true},
    {"invert", ProcessStep::kInvert, false},  {"delay", ProcessStep::kDelay, true},
    {"lowpass", ProcessStep::kLowpass, true},
};

bool ParseNumber(std::string_view text, double& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
}

std::string CheckValue(const ProcessStep& step, const StreamShape& shape) {
    const double value = step.value;
    switch (step.kind) {
    case ProcessStep::kPass:
    case ProcessStep::kInvert:
        break;
    case ProcessStep::kGain:
        if (std::abs(value) > kMostDecibels) return "gain is -200 to 200 dB";
        break;
    case ProcessStep::kDelay:
        if (value < 0 || value != std::floor(value)) return "delay is a whole number of frames";
        if (value * shape.channels > kMostDelayedWords) return "delay holds at most 1048576 words";
        break;
    case ProcessStep::kLowpass:
        if (value <= 0 || value >= shape.rate / 2) return "lowpass lies above 0 and below half the rate";
        break;
    }
    return {};
}

template <class Sample>
Sample ToSample(double value) {
    if constexpr (std::is_same_v<Sample, int32_t>) {
        using Limits = std::numeric_limits<int32_t>;
        return static_cast<int32_t>(std::clamp<double>(std::nearbyint(value), Limits::min(), Limits::max()));
    } else {
        return static_cast<Sample>(value);
    }
}

} // namespace

std::string ParseStep(std::string_view text, const StreamShape& shape, ProcessStep& step) {
    const size_t equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    const auto* const known = std::find_if(std::begin(kStepNames), std::end(kStepNames),
                                           [name](const StepName& each) { return each.name == name; });
    const bool hasValue = equals != text.npos;
    ProcessStep parsed;
    if (known == std::end(kStepNames) || known->hasValue != hasValue ||
        (hasValue && !ParseNumber(text.substr(equals + 1), parsed.value))) {
        return std::string("'").append(text).append(
            "' is none of pass, gain=DB, invert, delay=FRAMES, lowpass=HZ");
    }
    parsed.kind = known->kind;
    std::string error = CheckValue(parsed, shape);
    if (error.empty()) step = parsed;
    return error;
}

Processor::Processor(const std::vector<ProcessStep>& steps, const StreamShape& shape)
    : m_format(shape.format) {
    for (const auto& [kind, value] : steps) {
        switch (kind) {
        case ProcessStep::kPass:
            break;
        case ProcessStep::kGain:
            m_steps.emplace_back(Gain{std::pow(10.0, value / 20)});
            break;
        case ProcessStep::kInvert:
            m_steps.emplace_back(Invert{});
            break;
        case ProcessStep::kDelay:
            m_steps.emplace_back(Delay{std::vector<uint32_t>(static_cast<size_t>(value) * shape.channels)});
            break;
        case ProcessStep::kLowpass:
            m_steps.emplace_back(Lowpass{-std::expm1(-2 * std::numbers::pi * value / shape.rate),
                                         std::vector<double>(shape.channels)});
            break;
        }
    }
}

void Processor::Run(std::span<uint32_t> words) {
    for (Step& step : m_steps) {
        std::visit(
            [this, words](auto& each) {
                if (m_format == SampleFormat::kF32) {
                    Apply<float>(each, words);
                } else {
                    Apply<int32_t>(each, words);
                }
            },
            step);
    }
}

template <class Sample>
void Processor::Apply(const Gain& gain, std::span<uint32_t> words) {
    for (uint32_t& word : words) {
        word = std::bit_cast<uint32_t>(ToSample<Sample>(gain.factor * std::bit_cast<Sample>(word)));
    }
}

template <class Sample>
void Processor::Apply(const Invert&, std::span<uint32_t> words) {
    for (uint32_t& word : words) {
        word = std::bit_cast<uint32_t>(ToSample<Sample>(-static_cast<double>(std::bit_cast<Sample>(word))));
    }
}

template <class Sample>
void Processor::Apply(Delay& delay, std::span<uint32_t> words) {
    if (delay.held.empty()) return;
    for (uint32_t& word : words) {
        std::swap(word, delay.held[delay.next]);
        if (++delay.next == delay.held.size()) delay.next = 0;
    }
}

template <class Sample>
void Processor::Apply(Lowpass& lowpass, std::span<uint32_t> words) {
    size_t channel = 0;
    for (uint32_t& word : words) {
        double& level = lowpass.level[channel];
        level += lowpass.part * (static_cast<double>(std::bit_cast<Sample>(word)) - level);
        word = std::bit_cast<uint32_t>(ToSample<Sample>(level));
        if (!std::isfinite(level)) level = 0;
        if (++channel == lowpass.level.size()) channel = 0;
    }
}

} // namespace vrx::tool
