// An LV2 plug-in that looks at what its host gives it: out = in * gain + offset, the offset from its default state,
// plus 1 once its work has been answered; silence when anything is not as the host owes it.

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <cstring>

namespace {

struct Probe {
    const void* ports[9] = {&kNothing, &kNothing, &kNothing, &kNothing, &kNothing,
                            &kNothing, &kNothing, &kNothing, &kNothing};
    LV2_URID_Map* map = nullptr;
    LV2_Worker_Schedule* schedule = nullptr;
    float rate = 0;
    float optionRate = 0;
    int mostFrames = 0;
    bool right = false;
    bool active = false;
    bool answered = false;
    float offset = 0;

    static constexpr int kNothing = 0;

    float Control(int port) const { return *static_cast<const float*>(ports[port]); }
};

template <class Feature>
Feature* Find(const LV2_Feature* const* features, const char* uri) {
    for (; *features != nullptr; ++features) {
        if (std::strcmp((*features)->URI, uri) == 0) return static_cast<Feature*>((*features)->data);
    }
    return nullptr;
}

void ReadOptions(Probe& probe, const LV2_Options_Option* option) {
    for (; option != nullptr && option->key != 0; ++option) {
        if (option->key == probe.map->map(probe.map->handle, LV2_BUF_SIZE__maxBlockLength))
            probe.mostFrames = *static_cast<const int*>(option->value);
        if (option->key == probe.map->map(probe.map->handle, LV2_PARAMETERS__sampleRate))
            probe.optionRate = *static_cast<const float*>(option->value);
    }
}

LV2_Handle Make(const LV2_Descriptor*, double rate, const char*, const LV2_Feature* const* features) {
    auto* const probe = new Probe;
    probe->rate = static_cast<float>(rate);
    probe->map = Find<LV2_URID_Map>(features, LV2_URID__map);
    probe->schedule = Find<LV2_Worker_Schedule>(features, LV2_WORKER__schedule);
    auto* const unmap = Find<LV2_URID_Unmap>(features, LV2_URID__unmap);
    auto* const log = Find<LV2_Log_Log>(features, LV2_LOG__log);
    if (probe->map == nullptr || probe->schedule == nullptr || unmap == nullptr || log == nullptr)
        return probe;
    ReadOptions(*probe, Find<const LV2_Options_Option>(features, LV2_OPTIONS__options));
    const LV2_URID number = probe->map->map(probe->map->handle, "urn:vrx:some-name");
    const char* const name = unmap->unmap(unmap->handle, number);
    probe->right = number != 0 && name != nullptr && std::strcmp(name, "urn:vrx:some-name") == 0 &&
                   unmap->unmap(unmap->handle, 999999) == nullptr;
    log->printf(log->handle, probe->map->map(probe->map->handle, LV2_LOG__Trace), "never shown\n");
    log->printf(log->handle, probe->map->map(probe->map->handle, LV2_LOG__Note), "probe made at %.0f Hz\n",
                rate);
    return probe;
}

LV2_Handle Refuse(const LV2_Descriptor*, double, const char*, const LV2_Feature* const*) {
    return nullptr;
}

void Connect(LV2_Handle instance, uint32_t port, void* data) {
    static_cast<Probe*>(instance)->ports[port] = data;
}

void Activate(LV2_Handle instance) {
    static_cast<Probe*>(instance)->active = true;
}

bool IsFilled(const Probe& probe, uint32_t frames) {
    const auto* const events = static_cast<const LV2_Atom*>(probe.ports[5]);
    const auto* const notes = static_cast<const LV2_Atom*>(probe.ports[6]);
    const auto* const bend = static_cast<const float*>(probe.ports[7]);
    return probe.right && probe.active && frames >= 1 && frames <= static_cast<uint32_t>(probe.mostFrames) &&
           !(probe.optionRate < probe.rate) && !(probe.optionRate > probe.rate) &&
           events->type == probe.map->map(probe.map->handle, LV2_ATOM__Sequence) &&
           events->size == sizeof(LV2_Atom_Sequence_Body) && notes->size >= 100000 - sizeof(LV2_Atom) &&
           notes->type == probe.map->map(probe.map->handle, LV2_ATOM__Chunk) && bend[0] == 0.5F &&
           bend[frames - 1] == 0.5F && probe.ports[8] == nullptr && probe.Control(3) == probe.rate / 4;
}

void Run(LV2_Handle instance, uint32_t frames) {
    auto& probe = *static_cast<Probe*>(instance);
    const auto* const in = static_cast<const float*>(probe.ports[0]);
    auto* const out = static_cast<float*>(const_cast<void*>(probe.ports[1]));
    *static_cast<float*>(const_cast<void*>(probe.ports[4])) = 77;
    const bool right = IsFilled(probe, frames);
    for (uint32_t i = 0; i < frames; ++i) {
        out[i] = right ? in[i] * probe.Control(2) + probe.offset + (probe.answered ? 1 : 0) : 0;
    }
    probe.schedule->schedule_work(probe.schedule->handle, 4, "work");
}

void Free(LV2_Handle instance) {
    delete static_cast<Probe*>(instance);
}

LV2_Worker_Status Work(LV2_Handle, LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle handle,
                       uint32_t size, const void* data) {
    const bool right = size == 4 && std::memcmp(data, "work", 4) == 0;
    return respond(handle, 4, right ? "done" : "fail");
}

LV2_Worker_Status TakeAnswer(LV2_Handle instance, uint32_t size, const void* data) {
    static_cast<Probe*>(instance)->answered = size == 4 && std::memcmp(data, "done", 4) == 0;
    return LV2_WORKER_SUCCESS;
}

LV2_State_Status Restore(LV2_Handle instance, LV2_State_Retrieve_Function retrieve, LV2_State_Handle state,
                         uint32_t, const LV2_Feature* const*) {
    auto& probe = *static_cast<Probe*>(instance);
    size_t size = 0;
    uint32_t type = 0;
    uint32_t flags = 0;
    const void* const value =
        retrieve(state, probe.map->map(probe.map->handle, "urn:vrx:probe#offset"), &size, &type, &flags);
    if (value != nullptr && size == sizeof probe.offset) std::memcpy(&probe.offset, value, size);
    return LV2_STATE_SUCCESS;
}

const void* ExtensionData(const char* uri) {
    static constexpr LV2_Worker_Interface kWorker{Work, TakeAnswer, nullptr};
    static constexpr LV2_State_Interface kState{nullptr, Restore};
    if (std::strcmp(uri, LV2_WORKER__interface) == 0) return &kWorker;
    return std::strcmp(uri, LV2_STATE__interface) == 0 ? &kState : nullptr;
}

constexpr LV2_Descriptor kPlugins[] = {
    {"urn:vrx:probe", Make, Connect, Activate, Run, nullptr, Free, ExtensionData},
    {"urn:vrx:probe-refusing", Refuse, Connect, nullptr, Run, nullptr, Free, nullptr},
};

} // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index < 2 ? &kPlugins[index] : nullptr;
}
