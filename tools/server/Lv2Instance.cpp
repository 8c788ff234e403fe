#include "tools/server/Lv2Instance.h"

#include "tools/program/Errors.h"
#include "tools/server/Lv2Host.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/parameters/parameters.h>
#include <lv2/state/state.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>

namespace vrx::tool {

Lv2Instance::Lv2Instance(const Lv2Description& description, const std::map<std::string, float>& values,
                         double rate) {
    Lv2Host& host = Lv2Host::Get();
    MakeFeatures(rate);
    for (const Lv2Port& port : description.ports) m_buffers.push_back({port, {}, {}});

    const std::lock_guard lock(host.Lock());
    m_instance = lilv_plugin_instantiate(description.plugin, rate, m_features.data());
    if (m_instance == nullptr)
        throw Failure{kRunFailed, "the plug-in " + description.uri + " could not be made"};
    const auto* const worker = static_cast<const LV2_Worker_Interface*>(
        lilv_instance_get_extension_data(m_instance, LV2_WORKER__interface));
    if (worker != nullptr) m_worker.Start(lilv_instance_get_handle(m_instance), worker);
    ConnectOwnBuffers();
    if (description.hasDefaultState) RestoreDefaultState(description);
    SetControls(values);
    lilv_instance_activate(m_instance);
}

Lv2Instance::~Lv2Instance() {
    if (m_instance == nullptr) return;
    m_worker.Stop();
    const std::lock_guard lock(Lv2Host::Get().Lock());
    lilv_instance_deactivate(m_instance);
    lilv_instance_free(m_instance);
}

void Lv2Instance::MakeFeatures(double rate) {
    Lv2Host& host = Lv2Host::Get();
    Lv2Numbers& numbers = host.Numbers();
    m_rate = static_cast<float>(rate);
    const auto option = [&](const char* key, const char* type, const void* value) {
        m_options.push_back({LV2_OPTIONS_INSTANCE, 0, numbers.Map(key), 4, numbers.Map(type), value});
    };
    option(LV2_BUF_SIZE__minBlockLength, LV2_ATOM__Int, &m_leastFrames);
    option(LV2_BUF_SIZE__maxBlockLength, LV2_ATOM__Int, &m_mostFrames);
    option(LV2_BUF_SIZE__nominalBlockLength, LV2_ATOM__Int, &m_mostFrames);
    option(LV2_BUF_SIZE__sequenceSize, LV2_ATOM__Int, &m_sequenceBytes);
    option(LV2_PARAMETERS__sampleRate, LV2_ATOM__Float, &m_rate);
    m_options.push_back({LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr});

    m_featureList = {{LV2_URID__map, numbers.MapFeature()},       {LV2_URID__unmap, numbers.UnmapFeature()},
                     {LV2_OPTIONS__options, m_options.data()},    {LV2_BUF_SIZE__boundedBlockLength, nullptr},
                     {LV2_WORKER__schedule, m_worker.Schedule()}, {LV2_LOG__log, host.LogFeature()},
                     {LV2_STATE__loadDefaultState, nullptr}};
    for (const LV2_Feature& feature : m_featureList) m_features.push_back(&feature);
    m_features.push_back(nullptr);
}

/// All ports but those of audio, which are connected by whoever has their samples.
void Lv2Instance::ConnectOwnBuffers() {
    for (auto& [port, samples, atom] : m_buffers) {
        void* data = nullptr;
        if (port.kind == Lv2Port::kControlIn || port.kind == Lv2Port::kControlOut) {
            samples.assign(1, port.value);
            data = samples.data();
        } else if (port.kind == Lv2Port::kCvIn || port.kind == Lv2Port::kCvOut) {
            samples.assign(kMostLv2Frames, port.value);
            data = samples.data();
        } else if (port.bytes > 0) {
            atom.resize((port.bytes + 7) / 8);
            data = atom.data();
        }
        lilv_instance_connect_port(m_instance, port.index, data);
    }
    PrepareAtoms();
}

void Lv2Instance::RestoreDefaultState(const Lv2Description& description) {
    Lv2Host& host = Lv2Host::Get();
    LilvState* const state = lilv_state_new_from_world(host.World(), host.Numbers().MapFeature(),
                                                       lilv_plugin_get_uri(description.plugin));
    if (state == nullptr) return;
    // No ports: of those the state only repeats the defaults, and not in terms of the sample rate.
    lilv_state_restore(state, m_instance, nullptr, nullptr, 0, m_features.data());
    lilv_state_free(state);
}

void Lv2Instance::SetControls(const std::map<std::string, float>& values) {
    for (auto& [port, samples, atom] : m_buffers) {
        const auto value = values.find(port.symbol);
        if (port.kind == Lv2Port::kControlIn && value != values.end()) samples[0] = value->second;
    }
}

void Lv2Instance::ConnectInput(float* samples) {
    ConnectNext(Lv2Port::kAudioIn, m_nextInput, samples);
}

void Lv2Instance::ConnectOutput(float* samples) {
    ConnectNext(Lv2Port::kAudioOut, m_nextOutput, samples);
}

void Lv2Instance::ConnectNext(Lv2Port::Kind kind, size_t& next, float* samples) {
    while (m_buffers[next].port.kind != kind) ++next;
    lilv_instance_connect_port(m_instance, m_buffers[next++].port.index, samples);
}

/// Inputs hold an empty sequence, outputs say how much room there is.
void Lv2Instance::PrepareAtoms() {
    Lv2Numbers& numbers = Lv2Host::Get().Numbers();
    static const LV2_URID kSequence = numbers.Map(LV2_ATOM__Sequence);
    static const LV2_URID kChunk = numbers.Map(LV2_ATOM__Chunk);
    for (auto& [port, samples, atom] : m_buffers) {
        if (atom.empty()) continue;
        LV2_Atom_Sequence sequence{};
        const bool input = port.kind == Lv2Port::kAtomIn;
        sequence.atom.type = input ? kSequence : kChunk;
        sequence.atom.size =
            static_cast<uint32_t>(input ? sizeof(LV2_Atom_Sequence_Body) : port.bytes - sizeof(LV2_Atom));
        std::memcpy(atom.data(), &sequence, sizeof sequence);
    }
}

void Lv2Instance::Run(uint32_t frames) {
    PrepareAtoms();
    lilv_instance_run(m_instance, frames);
    m_worker.Deliver();
}

uint32_t Lv2Instance::Latency() const {
    for (const auto& [port, samples, atom] : m_buffers) {
        if (!port.reportsLatency || !(samples[0] > 0)) continue;
        return static_cast<uint32_t>(std::lround(std::min(samples[0], 1e9F)));
    }
    return 0;
}

} // namespace vrx::tool
