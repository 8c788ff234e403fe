#include "lv2/Instance.h"

#include "lv2/settings/BundleSettings.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace vrx::lv2 {

namespace {

bool IsOn(const float* port, bool unconnected) {
    return port != nullptr ? *port > 0 : unconnected;
}

template <class Pointer>
bool AllConnected(const std::vector<Pointer>& ports) {
    return std::find(ports.begin(), ports.end(), nullptr) == ports.end();
}

} // namespace

Instance::Instance(const live::Shape& shape, MakeBridge makeBridge)
    : m_shape(shape), m_makeBridge(std::move(makeBridge)), m_in(shape.channels), m_out(shape.channels) {}

void Instance::ConnectPort(std::size_t index, void* data) {
    const std::size_t channels = m_shape.channels;
    auto* const value = static_cast<float*>(data);
    if (index < channels)
        m_in[index] = value;
    else if (index < 2 * channels)
        m_out[index - channels] = value;
    else if (index == PortIndex(ControlPort::kLatency, channels))
        m_latency = value;
    else if (index == PortIndex(ControlPort::kFreeWheeling, channels))
        m_freeWheeling = value;
    else if (index == PortIndex(ControlPort::kEnabled, channels))
        m_enabled = value;
    else if (index == PortIndex(ControlPort::kLate, channels))
        m_late = value;
}

void Instance::Activate() {
    Deactivate();
    m_active = true;
    try {
        m_bridge = m_makeBridge(m_shape);
    } catch (const std::exception&) {
        // No thread or no memory to be had: silence, and the host goes on.
    }
}

void Instance::Deactivate() {
    m_active = false;
    m_bridge.reset();
}

void Instance::Run(std::size_t frames) {
    if (!m_active) Activate(); // offline hosts may leave that out
    if (m_latency != nullptr) *m_latency = static_cast<float>(m_shape.latencyFrames);
    if (AllConnected(m_in) && AllConnected(m_out)) Process(frames);
    if (m_late != nullptr) *m_late = m_bridge ? static_cast<float>(m_bridge->Count().late) : 0;
}

void Instance::Process(std::size_t frames) {
    if (!m_bridge) return PutSilence(frames);
    m_bridge->Freewheel(IsOn(m_freeWheeling, false));
    m_bridge->Bypass(!IsOn(m_enabled, true));
    m_bridge->Process(m_in.data(), m_out.data(), frames);
}

void Instance::PutSilence(std::size_t frames) {
    for (float* const out : m_out) std::fill_n(out, frames, 0.0F);
}

} // namespace vrx::lv2
