#include "tests/lv2/StrictHost.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <lv2/atom/atom.h>
#include <stdexcept>

namespace stricthost {

namespace {

void Require(bool kept, const std::string& rule) {
    if (!kept) throw std::logic_error("broken: " + rule);
}

/// A buffer of the length of one call in a piece of memory of its own, with guards at both ends.
class Buffer {
public:
    explicit Buffer(std::size_t frames) : m_frames(frames), m_memory(frames + 2 * kGuards, kGuard) {}

    float* Data() { return m_memory.data() + kGuards; }
    void Fill(const std::vector<float>& samples) { std::copy(samples.begin(), samples.end(), Data()); }
    std::vector<float> Samples() const {
        const auto begin = m_memory.begin() + kGuards;
        return {begin, begin + static_cast<std::ptrdiff_t>(m_frames)};
    }
    bool GuardsAreWhole() const {
        const auto isGuard = [](float value) { return value == kGuard; };
        return std::all_of(m_memory.begin(), m_memory.begin() + kGuards, isGuard) &&
               std::all_of(m_memory.end() - kGuards, m_memory.end(), isGuard);
    }

private:
    static constexpr std::ptrdiff_t kGuards = 8;
    static constexpr float kGuard = -12345.0F;

    std::size_t m_frames;
    std::vector<float> m_memory;
};

bool SameBits(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), 4 * a.size()) == 0);
}

} // namespace

Features& Features::WithMap() {
    m_withMap = true;
    return *this;
}

Features& Features::WithOption(const char* uri, std::int32_t value) {
    WithMap();
    m_values.push_back(std::make_unique<std::int32_t>(value));
    m_options.push_back({LV2_OPTIONS_INSTANCE, 0, Map(this, uri), sizeof value, Map(this, LV2_ATOM__Int),
                         m_values.back().get()});
    return *this;
}

Features& Features::WithLog() {
    m_withLog = true;
    return *this;
}

const LV2_Feature* const* Features::Get() {
    m_map = {this, Map};
    m_log = {this, LogPrintf, Log};
    m_features.clear();
    if (m_withMap) m_features.push_back({LV2_URID__map, &m_map});
    if (m_withLog) m_features.push_back({LV2_LOG__log, &m_log});
    if (!m_options.empty()) {
        m_options.push_back({}); // the list's end
        m_features.push_back({LV2_OPTIONS__options, m_options.data()});
    }
    m_list.clear();
    for (const LV2_Feature& feature : m_features) m_list.push_back(&feature);
    m_list.push_back(nullptr);
    return m_list.data();
}

std::vector<std::string> Features::Logged() const {
    const std::lock_guard lock(m_mutex);
    return m_logged;
}

LV2_URID Features::Map(LV2_URID_Map_Handle self, const char* uri) {
    auto& urids = static_cast<Features*>(self)->m_urids;
    return urids.try_emplace(uri, static_cast<LV2_URID>(urids.size() + 1)).first->second;
}

int Features::Log(LV2_Log_Handle self, LV2_URID type, const char* format, va_list arguments) {
    auto* const features = static_cast<Features*>(self);
    char text[1000];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    const std::lock_guard lock(features->m_mutex);
    for (const auto& [uri, urid] : features->m_urids)
        if (urid == type) features->m_logged.push_back(text + uri);
    return length;
}

int Features::LogPrintf(LV2_Log_Handle self, LV2_URID type, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = Log(self, type, format, arguments);
    va_end(arguments);
    return length;
}

Library::Library(const std::string& bundle) : m_bundle(bundle + "/") {
    m_binary = ::dlopen((m_bundle + "vrx_lv2.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    Require(m_binary != nullptr,
            std::string("the binary can be loaded: ") + (m_binary != nullptr ? "" : ::dlerror()));
    Require(::dlsym(m_binary, "lv2_descriptor") == nullptr, "one way to the plug-in only");
    const auto describe =
        reinterpret_cast<LV2_Lib_Descriptor_Function>(::dlsym(m_binary, "lv2_lib_descriptor"));
    Require(describe != nullptr, "lv2_lib_descriptor is exported");
    const LV2_Feature* const none = nullptr;
    m_library = describe(m_bundle.c_str(), &none);
}

Library::~Library() {
    if (m_library != nullptr && m_library->cleanup != nullptr) m_library->cleanup(m_library->handle);
    ::dlclose(m_binary);
}

const LV2_Descriptor* Library::Plugin() const {
    if (m_library == nullptr) return nullptr;
    Require(m_library->size >= sizeof(LV2_Lib_Descriptor), "the library descriptor's size");
    Require(m_library->get_plugin(m_library->handle, 1) == nullptr, "one plug-in a bundle");
    return m_library->get_plugin(m_library->handle, 0);
}

Instance::Instance(const Library& library, std::size_t channels, Habits habits, Features* features,
                   double rate)
    : m_plugin(library.Plugin()), m_channels(channels), m_habits(habits) {
    Require(m_plugin != nullptr, "there is a plug-in");
    const LV2_Feature* const none = nullptr;
    m_handle = m_plugin->instantiate(m_plugin, rate, library.Bundle().c_str(),
                                     features != nullptr ? features->Get() : &none);
    if (m_handle == nullptr) throw std::runtime_error("no instance");
    if (habits.activate) Activate();
}

Instance::~Instance() {
    if (m_active) Deactivate();
    m_plugin->cleanup(m_handle);
}

void Instance::Activate() {
    if (m_plugin->activate != nullptr) m_plugin->activate(m_handle);
    m_active = true;
}

void Instance::Deactivate() {
    if (m_plugin->deactivate != nullptr) m_plugin->deactivate(m_handle);
    m_active = false;
}

void Instance::ConnectControls() {
    const auto connect = [this](std::size_t control, bool connected, float& value) {
        const auto index = static_cast<std::uint32_t>(2 * m_channels + control);
        m_plugin->connect_port(m_handle, index, connected ? &value : nullptr);
    };
    m_freeWheeling = m_habits.freeWheeling.value_or(0);
    m_enabled = m_habits.enabled.value_or(0);
    connect(0, m_habits.latency, m_latency);
    connect(1, m_habits.freeWheeling.has_value(), m_freeWheeling);
    connect(2, m_habits.enabled.has_value(), m_enabled);
    connect(3, m_habits.late, m_late);
}

void Instance::CheckControls() {
    Require(m_freeWheeling == m_habits.freeWheeling.value_or(0), "freeWheeling is an input");
    Require(m_enabled == m_habits.enabled.value_or(0), "enabled is an input");
    if (m_habits.latency)
        Require(m_latency > 0 && m_latency == std::floor(m_latency), "latency is whole frames");
    if (m_habits.late) Require(m_late >= 0 && m_late == std::floor(m_late), "late is a count");
}

Audio Instance::Run(const Audio& in) {
    const std::size_t frames = in.at(0).size();
    ConnectControls();
    std::vector<Buffer> ins(m_channels, Buffer(frames));
    std::vector<Buffer> outs(m_channels, Buffer(frames));
    std::vector<Buffer>& taken = m_habits.inPlace ? outs : ins;
    for (std::uint32_t channel = 0; channel < m_channels; ++channel) {
        taken[channel].Fill(in.at(channel));
        m_plugin->connect_port(m_handle, channel, taken[channel].Data());
        m_plugin->connect_port(m_handle, static_cast<std::uint32_t>(m_channels) + channel,
                               outs[channel].Data());
    }
    const float before = m_latency;
    m_plugin->run(m_handle, static_cast<std::uint32_t>(frames));

    CheckControls();
    Require(before < 0 || !m_habits.latency || m_latency == before, "the latency stays");
    Audio out;
    for (std::size_t channel = 0; channel < m_channels; ++channel) {
        Require(outs[channel].GuardsAreWhole() && ins[channel].GuardsAreWhole(),
                "buffers end where they end");
        Require(m_habits.inPlace || SameBits(ins[channel].Samples(), in[channel]), "inputs stay as they are");
        out.push_back(outs[channel].Samples());
    }
    return out;
}

Audio Instance::Play(const Audio& in, const std::vector<std::size_t>& lengths) {
    Audio out(m_channels);
    const std::size_t frames = in.at(0).size();
    for (std::size_t at = 0, call = 0; at < frames; ++call) {
        const std::size_t length = std::min(lengths[call % lengths.size()], frames - at);
        Audio piece;
        for (const auto& channel : in) {
            const auto begin = channel.begin() + static_cast<std::ptrdiff_t>(at);
            piece.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(length));
        }
        const Audio got = Run(piece);
        for (std::size_t channel = 0; channel < m_channels; ++channel)
            out[channel].insert(out[channel].end(), got[channel].begin(), got[channel].end());
        at += length;
    }
    return out;
}

} // namespace stricthost
