#pragma once

#include "live/Bridge.h"
#include "live/TimeHistogram.h"
#include "tools/jack/JackClient.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

namespace vrx::tool {

/// Plays the bridge of the moment, and silence while there is none. Times what it does.
class LivePlayer : public JackAudio {
public:
    explicit LivePlayer(std::size_t channels) : m_channels(channels) {}
    ~LivePlayer() override;

    void Process(const float* const* in, float* const* out, std::size_t frames) override;
    void Freewheel(bool on) override;

    /// Takes the bridge out and stops it; its counts stay in `Count`. Returns when the callback is out of it.
    void Stop();
    void Play(std::unique_ptr<live::Bridge> bridge);

    /// Of all bridges so far.
    live::Bridge::Counts Count() const;
    /// How long the calls of `Process` took, outside freewheeling.
    const live::TimeHistogram& Times() const { return m_times; }

private:
    const std::size_t m_channels;
    std::atomic<live::Bridge*> m_playing{nullptr};
    std::atomic<bool> m_busy{false}; // the callback may be in the bridge
    std::atomic<bool> m_freewheels{false};
    live::TimeHistogram m_times;

    mutable std::mutex m_mutex; // never taken by the callback
    std::unique_ptr<live::Bridge> m_bridge;
    live::Bridge::Counts m_before; // of the bridges that are gone
};

} // namespace vrx::tool
