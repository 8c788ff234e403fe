#include "tools/server/Processing.h"

#include "tools/server/Lv2Stage.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <numbers>
#include <type_traits>
#include <utility>

namespace vrx::tool {

namespace {

constexpr double kMostDecibels = 200;
constexpr double kMostDelayedWords = 1 << 20;

template <class Sample>
Sample ToSample(double value) {
    if constexpr (std::is_same_v<Sample, int32_t>) {
        using Limits = std::numeric_limits<int32_t>;
        return static_cast<int32_t>(std::clamp<double>(std::nearbyint(value), Limits::min(), Limits::max()));
    } else {
        return static_cast<Sample>(value);
    }
}

template <class Sample>
class Gain : public Stage {
public:
    explicit Gain(double factor) : m_factor(factor) {}

    void Run(std::span<uint32_t> words) override {
        for (uint32_t& word : words) {
            word = std::bit_cast<uint32_t>(ToSample<Sample>(m_factor * std::bit_cast<Sample>(word)));
        }
    }

private:
    double m_factor;
};

class Delay : public Stage {
public:
    explicit Delay(size_t words) : m_held(words) {}

    void Run(std::span<uint32_t> words) override {
        if (m_held.empty()) return;
        for (uint32_t& word : words) {
            std::swap(word, m_held[m_next]);
            if (++m_next == m_held.size()) m_next = 0;
        }
    }

private:
    std::vector<uint32_t> m_held; // a ring of the words not yet given back
    size_t m_next = 0;
};

template <class Sample>
class Lowpass : public Stage {
public:
    Lowpass(double part, uint32_t channels) : m_part(part), m_level(channels) {}

    void Run(std::span<uint32_t> words) override {
        size_t channel = 0;
        for (uint32_t& word : words) {
            double& level = m_level[channel];
            level += m_part * (static_cast<double>(std::bit_cast<Sample>(word)) - level);
            word = std::bit_cast<uint32_t>(ToSample<Sample>(level));
            if (!std::isfinite(level)) level = 0;
            if (++channel == m_level.size()) channel = 0;
        }
    }

private:
    double m_part;               // of the way to the input that the output goes with each frame
    std::vector<double> m_level; // per channel
};

template <template <class> class Kind, class... Values>
std::unique_ptr<Stage> OfFormat(host::SampleFormat format, Values... values) {
    if (format == host::SampleFormat::kF32) return std::make_unique<Kind<float>>(values...);
    return std::make_unique<Kind<int32_t>>(values...);
}

/// A row: adding one adds a step.
struct StepKind {
    std::string_view name;
    std::string_view value; // what its number is, "" for none
    std::string (*check)(double value, const StreamShape& shape);
    std::unique_ptr<Stage> (*make)(double value, const StreamShape& shape); // null: nothing to do
};

std::string AcceptAny(double, const StreamShape&) {
    return {};
}

constexpr StepKind kSteps[] = {
    {"pass", "", AcceptAny, [](double, const StreamShape&) { return std::unique_ptr<Stage>(); }},
    {"gain", "DB",
     [](double value, const StreamShape&) {
         return std::string(std::abs(value) > kMostDecibels ? "gain is -200 to 200 dB" : "");
     },
     [](double value, const StreamShape& shape) {
         return OfFormat<Gain>(shape.format, std::pow(10.0, value / 20));
     }},
    {"invert", "", AcceptAny,
     [](double, const StreamShape& shape) { return OfFormat<Gain>(shape.format, -1.0); }},
    {"delay", "FRAMES",
     [](double value, const StreamShape& shape) {
         if (value < 0 || value != std::floor(value)) return std::string("delay is a whole number of frames");
         if (value * shape.channels <= kMostDelayedWords) return std::string();
         return std::string("delay holds at most 1048576 words");
     },
     [](double value, const StreamShape& shape) -> std::unique_ptr<Stage> {
         return std::make_unique<Delay>(static_cast<size_t>(value) * shape.channels);
     }},
    {"lowpass", "HZ",
     [](double value, const StreamShape& shape) {
         if (value > 0 && value < shape.rate / 2) return std::string();
         return std::string("lowpass lies above 0 and below half the rate");
     },
     [](double value, const StreamShape& shape) {
         const double part = -std::expm1(-2 * std::numbers::pi * value / shape.rate);
         return OfFormat<Lowpass>(shape.format, part, shape.channels);
     }},
};

std::string ListSteps() {
    std::string list;
    for (const StepKind& kind : kSteps) {
        list.append(kind.name);
        if (!kind.value.empty()) list.append("=").append(kind.value);
        list += ", ";
    }
    return list + "lv2=URI[;SYMBOL=VALUE...]";
}

bool ParseNumber(std::string_view text, double& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
}

} // namespace

std::string ParseStep(std::string_view text, const StreamShape& shape, ProcessStep& step) {
    const size_t equals = text.find('=');
    const bool hasValue = equals != text.npos;
    const std::string_view name = text.substr(0, equals);
    if (name == "lv2" && hasValue) return ParseLv2Step(text.substr(equals + 1), shape, step);

    const auto* const kind = std::ranges::find(kSteps, name, &StepKind::name);
    double value = 0;
    if (kind == std::end(kSteps) || kind->value.empty() == hasValue ||
        (hasValue && !ParseNumber(text.substr(equals + 1), value))) {
        return std::string("'").append(text).append("' is none of ") + ListSteps();
    }
    std::string error = kind->check(value, shape);
    if (error.empty()) step = {[kind, value, shape] { return kind->make(value, shape); }};
    return error;
}

Processor::Processor(const std::vector<ProcessStep>& steps) {
    for (const ProcessStep& step : steps) {
        if (auto stage = step.make()) m_stages.push_back(std::move(stage));
    }
}

void Processor::Run(std::span<uint32_t> words) {
    for (const auto& stage : m_stages) stage->Run(words);
}

uint32_t Processor::Latency() const {
    uint32_t sum = 0;
    for (const auto& stage : m_stages) sum += stage->Latency();
    return sum;
}

} // namespace vrx::tool
