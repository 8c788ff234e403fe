#pragma once

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <jack/jack.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Waits until `condition` holds; false after a long time.
template <class Condition>
bool Await(const Condition& condition) {
    using Clock = std::chrono::steady_clock;
    for (const auto until = Clock::now() + std::chrono::seconds(30); Clock::now() < until;) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return condition();
}

/// Plays noise into a client's port, in_1 unless another is named, and records what comes out of out_1, frame by frame. The
/// way back closes a circle, which adds a period to what it hears.
class JackRecorder {
public:
    explicit JackRecorder(const std::string& name) : JackRecorder(name + ":in_1", name + ":out_1") {}
    JackRecorder(const std::string& intoPort, const std::string& outOfPort) : m_noise(kMost), m_heard(kMost) {
        std::uint32_t state = 1;
        for (float& sample : m_noise) {
            state = state * 1664525 + 1013904223;
            sample = static_cast<float>(static_cast<std::int32_t>(state) / 2147483648.0);
        }
        m_client = jack_client_open("recorder", JackNoStartServer, nullptr);
        if (m_client == nullptr) return;
        m_out = jack_port_register(m_client, "out", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
        m_in = jack_port_register(m_client, "in", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
        jack_set_process_callback(m_client, Process, this);
        jack_activate(m_client);
        const auto join = [&](const std::string& from, const std::string& to) {
            return Await([&] { // a client's ports are there a little before it plays
                const int result = jack_connect(m_client, from.c_str(), to.c_str());
                return result == 0 || result == EEXIST;
            });
        };
        m_up = join("recorder:out", intoPort) && join(outOfPort, "recorder:in");
    }
    ~JackRecorder() {
        if (m_client == nullptr) return;
        jack_deactivate(m_client);
        jack_client_close(m_client);
    }

    /// Whether the client was there, and joined.
    bool Up() const { return m_up; }
    /// Waits until so many frames more are heard.
    bool Hear(std::size_t frames) {
        const std::size_t goal = std::min(kMost, m_frames + frames);
        return Await([&] { return m_frames >= goal; });
    }
    void Freewheel(bool on) { jack_set_freewheel(m_client, on ? 1 : 0); }
    std::size_t Frames() const { return m_frames; }
    std::size_t Period() const { return jack_get_buffer_size(m_client); }
    std::size_t SampleRate() const { return jack_get_sample_rate(m_client); }

    enum class Frame { kSilence, kWet, kDry, kOther };
    /// What is heard at a frame with this delay; the server inverts.
    Frame At(std::size_t frame, std::size_t delay) const {
        const float heard = m_heard[frame];
        if (heard == 0) return Frame::kSilence;
        if (frame < delay) return Frame::kOther;
        const float played = m_noise[frame - delay];
        return heard == -played ? Frame::kWet : heard == played ? Frame::kDry : Frame::kOther;
    }
    struct Counts {
        std::size_t silence = 0;
        std::size_t wet = 0;
        std::size_t dry = 0;
        std::size_t other = 0;
    };
    Counts Count(std::size_t from, std::size_t to, std::size_t delay) const {
        Counts counts;
        for (std::size_t frame = from; frame < to; ++frame) {
            switch (At(frame, delay)) {
            case Frame::kSilence:
                ++counts.silence;
                break;
            case Frame::kWet:
                ++counts.wet;
                break;
            case Frame::kDry:
                ++counts.dry;
                break;
            case Frame::kOther:
                ++counts.other;
                break;
            }
        }
        return counts;
    }
    /// The longest row of frames that are neither wet nor dry: what a fade between the two takes.
    std::size_t LongestFade(std::size_t from, std::size_t to, std::size_t delay) const {
        std::size_t longest = 0;
        std::size_t row = 0;
        for (std::size_t frame = from; frame < to; ++frame) {
            const Frame heard = At(frame, delay);
            row = heard == Frame::kWet || heard == Frame::kDry ? 0 : row + 1;
            longest = std::max(longest, row);
        }
        return longest;
    }
    /// The first wet frame from there on; `Frames()` where there is none.
    std::size_t FirstWet(std::size_t from, std::size_t delay) const {
        while (from < Frames() && At(from, delay) != Frame::kWet) ++from;
        return from;
    }
    /// Frames of delay between a port's two sides as JACK reports it: {capture of out_1, playback of in_1}.
    std::pair<jack_nframes_t, jack_nframes_t> Latencies(const std::string& name) const {
        jack_latency_range_t capture = {};
        jack_latency_range_t playback = {};
        jack_port_get_latency_range(jack_port_by_name(m_client, (name + ":out_2").c_str()),
                                    JackCaptureLatency, &capture);
        jack_port_get_latency_range(jack_port_by_name(m_client, (name + ":in_2").c_str()),
                                    JackPlaybackLatency, &playback);
        return {jack_nframes_t{capture.max}, jack_nframes_t{playback.max}};
    }
    bool HasPort(const std::string& port) const {
        return jack_port_by_name(m_client, port.c_str()) != nullptr;
    }

private:
    static constexpr std::size_t kMost = 48000 * 120;

    static int Process(jack_nframes_t frames, void* self) {
        auto& recorder = *static_cast<JackRecorder*>(self);
        auto* const out = static_cast<float*>(jack_port_get_buffer(recorder.m_out, frames));
        const auto* const in = static_cast<const float*>(jack_port_get_buffer(recorder.m_in, frames));
        const std::size_t at = recorder.m_frames;
        if (at + frames > kMost) return 0;
        std::copy_n(recorder.m_noise.begin() + static_cast<std::ptrdiff_t>(at), frames, out);
        std::copy_n(in, frames, recorder.m_heard.begin() + static_cast<std::ptrdiff_t>(at));
        recorder.m_frames = at + frames;
        return 0;
    }

    std::vector<float> m_noise;
    std::vector<float> m_heard;
    std::atomic<std::size_t> m_frames{0};
    bool m_up = false;
    jack_client_t* m_client = nullptr;
    jack_port_t* m_out = nullptr;
    jack_port_t* m_in = nullptr;
};
