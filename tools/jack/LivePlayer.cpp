#include "tools/jack/LivePlayer.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace vrx::tool {

namespace {

live::Bridge::Counts Sum(live::Bridge::Counts a, const live::Bridge::Counts& b) {
    a.frames += b.frames;
    a.blocks += b.blocks;
    a.late += b.late;
    a.lost += b.lost;
    a.reconnects += b.reconnects;
    a.outage = b.outage;
    return a;
}

} // namespace

LivePlayer::~LivePlayer() {
    Stop();
}

void LivePlayer::Process(const float* const* in, float* const* out, std::size_t frames) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    m_busy = true;
    if (live::Bridge* const bridge = m_playing)
        bridge->Process(in, out, frames);
    else
        for (std::size_t channel = 0; channel < m_channels; ++channel)
            std::fill_n(out[channel], frames, 0.0F);
    m_busy = false;
    if (!m_freewheels) m_times.Add(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
}

void LivePlayer::Freewheel(bool on) {
    const std::lock_guard lock(m_mutex);
    m_freewheels = on;
    if (m_bridge) m_bridge->Freewheel(on);
}

void LivePlayer::Stop() {
    const std::lock_guard lock(m_mutex);
    if (!m_bridge) return;
    m_playing = nullptr;
    (void)m_bridge->Stop(); // ends a wait of the callback too
    while (m_busy) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    m_before = Sum(m_before, m_bridge->Count());
    m_bridge.reset();
}

void LivePlayer::Play(std::unique_ptr<live::Bridge> bridge) {
    Stop();
    const std::lock_guard lock(m_mutex);
    m_bridge = std::move(bridge);
    m_bridge->Freewheel(m_freewheels);
    m_playing = m_bridge.get();
}

live::Bridge::Counts LivePlayer::Count() const {
    const std::lock_guard lock(m_mutex);
    return m_bridge ? Sum(m_before, m_bridge->Count()) : m_before;
}

} // namespace vrx::tool
