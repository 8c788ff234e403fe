#include "tools/server/Lv2Stage.h"

#include "tools/program/Errors.h"
#include "tools/program/Numbers.h"
#include "tools/server/Lv2Description.h"
#include "tools/server/Lv2Host.h"
#include "tools/server/Lv2Instance.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace vrx::tool {

namespace {

/// What every connection's instances are made from.
struct Recipe {
    Lv2Description description;
    std::map<std::string, float> values; // of control inputs, by symbol
    StreamShape shape;
};

/// The instances for one stream: one for all channels, or one per channel.
class Lv2Stage : public Stage {
public:
    explicit Lv2Stage(const Recipe& recipe)
        : m_format(recipe.shape.format),
          m_channels(recipe.shape.channels, std::vector<float>(kMostLv2Frames)), m_results(m_channels) {
        const size_t each = recipe.description.Count(Lv2Port::kAudioIn);
        for (size_t first = 0; first < m_channels.size(); first += each) {
            m_instances.push_back(
                std::make_unique<Lv2Instance>(recipe.description, recipe.values, recipe.shape.rate));
            for (size_t channel = first; channel < first + each; ++channel) {
                m_instances.back()->ConnectInput(m_channels[channel].data());
                m_instances.back()->ConnectOutput(m_results[channel].data());
            }
        }
    }

    void Run(std::span<uint32_t> words) override {
        const size_t most = kMostLv2Frames * m_channels.size();
        for (size_t at = 0; at < words.size(); at += most)
            RunPart(words.subspan(at, std::min(most, words.size() - at)));
    }

    uint32_t Latency() const override {
        uint32_t longest = 0;
        for (const auto& instance : m_instances) longest = std::max(longest, instance->Latency());
        return longest;
    }

private:
    /// A last frame that lacks channels is silent there.
    void RunPart(std::span<uint32_t> words) {
        const size_t channels = m_channels.size();
        const size_t frames = (words.size() + channels - 1) / channels;
        for (size_t i = 0; i < frames * channels; ++i) {
            const double sample = i < words.size() ? host::SampleFromWord(words[i], m_format) : 0;
            m_channels[i % channels][i / channels] = static_cast<float>(sample);
        }
        for (const auto& instance : m_instances) instance->Run(static_cast<uint32_t>(frames));
        for (size_t i = 0; i < words.size(); ++i) words[i] = Word(m_results[i % channels][i / channels]);
    }

    uint32_t Word(float sample) const {
        return m_format == host::SampleFormat::kF32 ? std::bit_cast<uint32_t>(sample)
                                                    : host::WordFromSample(sample, m_format);
    }

    host::SampleFormat m_format;
    std::vector<std::vector<float>> m_channels;
    std::vector<std::vector<float>> m_results;
    std::vector<std::unique_ptr<Lv2Instance>> m_instances;
};

std::string Shown(float value) {
    char text[32];
    (void)std::snprintf(text, sizeof text, "%g", static_cast<double>(value));
    return text;
}

/// "0 to 1", "from 0", "up to 1" or "any value".
std::string Range(const Lv2Port& port) {
    if (std::isnan(port.low) && std::isnan(port.high)) return "any value";
    if (std::isnan(port.high)) return "from " + Shown(port.low);
    if (std::isnan(port.low)) return "up to " + Shown(port.high);
    return Shown(port.low) + " to " + Shown(port.high);
}

bool ParseNumber(std::string_view text, float& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
}

/// Reads one "SYMBOL=VALUE"; "" or what is wrong.
std::string ParseControl(std::string_view text, Recipe& recipe) {
    const size_t equals = std::min(text.find('='), text.size());
    const std::string symbol(text.substr(0, equals));
    const auto port = std::ranges::find_if(recipe.description.ports, [&symbol](const Lv2Port& each) {
        return each.kind == Lv2Port::kControlIn && each.symbol == symbol;
    });
    const std::string owner = " of " + recipe.description.uri;
    if (port == recipe.description.ports.end()) {
        return "'" + symbol + "' is no control" + owner + "; --process lv2=list lists them";
    }
    float value = 0;
    if (equals == text.size() || !ParseNumber(text.substr(equals + 1), value)) {
        return "'" + std::string(text) + "' is not SYMBOL=VALUE with a number";
    }
    if (value < port->low || value > port->high) return symbol + owner + " is " + Range(*port);
    recipe.values[symbol] = value;
    return {};
}

/// Whether the stream's channels fit the plug-in; "" or why not.
std::string CheckChannels(const Lv2Description& description, uint32_t channels) {
    const size_t inputs = description.Count(Lv2Port::kAudioIn);
    const size_t outputs = description.Count(Lv2Port::kAudioOut);
    if (inputs == outputs && (inputs == 1 || inputs == channels)) return {};
    return description.uri + " has " + Counted(inputs, "audio input") + " and " + Counted(outputs, "output") +
           ", the stream has " + Counted(channels, "channel") + "; see --channels";
}

std::string ParseRecipe(std::string_view text, Recipe& recipe) {
    Lv2Host& host = Lv2Host::Get();
    const std::lock_guard lock(host.Lock());
    const size_t uriEnd = std::min(text.find(';'), text.size());
    const std::string_view uri = text.substr(0, uriEnd);
    const LilvPlugin* const plugin = uri.find(':') == uri.npos ? nullptr : host.Find(uri);
    if (plugin == nullptr) {
        return "no LV2 plug-in '" + std::string(uri) +
               "' is installed; --process lv2=list lists those that are";
    }
    recipe.description = DescribeLv2(plugin, recipe.shape.rate);
    if (!recipe.description.unusable.empty())
        return recipe.description.uri + ": " + recipe.description.unusable;
    if (std::string error = CheckChannels(recipe.description, recipe.shape.channels); !error.empty())
        return error;
    for (size_t at = uriEnd; at < text.size();) {
        const size_t end = std::min(text.find(';', at + 1), text.size());
        if (std::string error = ParseControl(text.substr(at + 1, end - at - 1), recipe); !error.empty())
            return error;
        at = end;
    }
    return {};
}

std::string Describe(const Lv2Description& description) {
    std::string text = description.uri + "\n  " + description.name + ": " +
                       Counted(description.Count(Lv2Port::kAudioIn), "audio input") + ", " +
                       Counted(description.Count(Lv2Port::kAudioOut), "output");
    if (!description.unusable.empty()) text += "; cannot be used: " + description.unusable;
    text += "\n";
    for (const Lv2Port& port : description.ports) {
        if (port.kind != Lv2Port::kControlIn) continue;
        text += "  " + port.symbol + "  " + Range(port) + ", default " + Shown(port.value) + "  " +
                port.name + "\n";
    }
    return text;
}

} // namespace

std::string ParseLv2Step(std::string_view text, const StreamShape& shape, ProcessStep& step) {
    auto recipe = std::make_shared<Recipe>();
    recipe->shape = shape;
    std::string error = ParseRecipe(text, *recipe);
    if (error.empty()) step = {[recipe] { return std::make_unique<Lv2Stage>(*recipe); }, true};
    return error;
}

std::string DescribeLv2Plugins(double rate) {
    Lv2Host& host = Lv2Host::Get();
    const std::lock_guard lock(host.Lock());
    std::map<std::string, std::string> byUri;
    const LilvPlugins* const plugins = lilv_world_get_all_plugins(host.World());
    LILV_FOREACH(plugins, i, plugins) {
        const Lv2Description description = DescribeLv2(lilv_plugins_get(plugins, i), rate);
        byUri[description.uri] = Describe(description);
    }
    std::string text;
    for (const auto& [uri, lines] : byUri) text += lines;
    return text.empty() ? "none; packages such as mda-lv2 and x42-plugins bring some\n" : text;
}

} // namespace vrx::tool
