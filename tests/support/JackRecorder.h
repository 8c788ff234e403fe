#pragma once

#include "tests/support/Await.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <jack/jack.h>
#include <string>
#include <utility>
#include <vector>

/// Plays noise into a client's port, in_1 unless another is named, and records what comes out of out_1, frame by frame. What
/// plays and what records are two clients: a single one before and behind the other would close a circle, which some audio
/// servers break by a period and others cannot run at all. Both go by the server's clock, so a frame that is heard `delay`
/// frames after it was played has been delayed by exactly that.
class JackRecorder {
public:
    explicit JackRecorder(const std::string& name) : JackRecorder(name + ":in_1", name + ":out_1") {}
    JackRecorder(const std::string& intoPort, const std::string& outOfPort) : m_heard(kMost) {
        m_recorder = jack_client_open("recorder", JackNoStartServer, nullptr);
        m_player = jack_client_open("player", JackNoStartServer, nullptr);
        if (m_recorder == nullptr || m_player == nullptr) return;
        m_in = jack_port_register(m_recorder, "in", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
        m_out = jack_port_register(m_player, "out", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
        jack_set_process_callback(m_recorder, Record, this);
        jack_set_process_callback(m_player, Play, this);
        jack_activate(m_recorder);
        jack_activate(m_player);
        m_up = Join(jack_port_name(m_out), intoPort) && Join(outOfPort, jack_port_name(m_in));
    }
    ~JackRecorder() {
        for (jack_client_t* const client : {m_player, m_recorder}) {
            if (client == nullptr) continue;
            jack_deactivate(client);
            jack_client_close(client);
        }
    }

    /// Whether the client was there, and joined.
    bool Up() const { return m_up; }
    /// Waits until so many frames more are heard.
    bool Hear(std::size_t frames) {
        const std::size_t goal = std::min(kMost, m_frames + frames);
        return Await([&] { return m_frames >= goal; });
    }
    void Freewheel(bool on) { jack_set_freewheel(m_recorder, on ? 1 : 0); }
    /// So many are heard, since the recorder began.
    std::size_t Frames() const { return m_frames; }
    std::size_t Period() const { return jack_get_buffer_size(m_recorder); }
    std::size_t SampleRate() const { return jack_get_sample_rate(m_recorder); }

    enum class Frame { kSilence, kWet, kDry, kOther };
    /// What is heard at a frame with this delay; the server inverts.
    Frame At(std::size_t frame, std::size_t delay) const {
        const float heard = m_heard[frame];
        if (heard == 0) return Frame::kSilence;
        const float played = Noise(m_start + static_cast<jack_nframes_t>(frame - delay));
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
        jack_port_get_latency_range(jack_port_by_name(m_recorder, (name + ":out_2").c_str()),
                                    JackCaptureLatency, &capture);
        jack_port_get_latency_range(jack_port_by_name(m_recorder, (name + ":in_2").c_str()),
                                    JackPlaybackLatency, &playback);
        return {jack_nframes_t{capture.max}, jack_nframes_t{playback.max}};
    }
    bool HasPort(const std::string& port) const {
        return jack_port_by_name(m_recorder, port.c_str()) != nullptr;
    }

private:
    static constexpr std::size_t kMost = 48000 * 120;

    /// White noise, of a frame of the server's clock.
    static float Noise(jack_nframes_t time) {
        std::uint32_t bits = time;
        bits = (bits ^ bits >> 16U) * 0x7feb352dU;
        bits = (bits ^ bits >> 15U) * 0x846ca68bU;
        return static_cast<float>(static_cast<std::int32_t>(bits ^ bits >> 16U)) / 2147483648.0F;
    }
    /// A client's ports are there a little before it plays.
    bool Join(const std::string& from, const std::string& to) {
        return Await([&] {
            const int result = jack_connect(m_recorder, from.c_str(), to.c_str());
            return result == 0 || result == EEXIST;
        });
    }
    static int Play(jack_nframes_t frames, void* self) {
        const auto& recorder = *static_cast<JackRecorder*>(self);
        auto* const out = static_cast<float*>(jack_port_get_buffer(recorder.m_out, frames));
        const jack_nframes_t now = jack_last_frame_time(recorder.m_player);
        for (jack_nframes_t i = 0; i < frames; ++i) out[i] = Noise(now + i);
        return 0;
    }
    static int Record(jack_nframes_t frames, void* self) {
        auto& recorder = *static_cast<JackRecorder*>(self);
        const auto* const in = static_cast<const float*>(jack_port_get_buffer(recorder.m_in, frames));
        const jack_nframes_t now = jack_last_frame_time(recorder.m_recorder);
        if (recorder.m_frames == 0) recorder.m_start = now;
        const std::size_t at = now - recorder.m_start;
        if (at + frames > kMost) return 0;
        std::copy_n(in, frames, recorder.m_heard.begin() + static_cast<std::ptrdiff_t>(at));
        recorder.m_frames = at + frames;
        return 0;
    }

    std::vector<float> m_heard;
    jack_nframes_t m_start = 0; ///< the clock at the first of them
    std::atomic<std::size_t> m_frames{0};
    bool m_up = false;
    jack_client_t* m_recorder = nullptr;
    jack_client_t* m_player = nullptr;
    jack_port_t* m_in = nullptr;
    jack_port_t* m_out = nullptr;
};
