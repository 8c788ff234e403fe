#pragma once

#include "live/Slots.h"
#include "live/Stream.h"
#include "live/Worker.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// Both sides of a bridge on one thread, with a simulated clock and a fake talker, beside a simple model of what must
/// come out. Time passes only by calls of the real-time side, and while a talker is at work or the worker pauses, such
/// calls happen: so replies come as early or late around each decision as the script says. Every frame is compared
/// with the model; what differs throws std::logic_error.
class Rig {
public:
    /// What a talker does with one call.
    struct Answer {
        unsigned callbacks = 0; ///< of the real-time side before it returns
        int result = 0;         ///< of `PumpAudio`
        bool connected = true;  ///< of `Configure`
    };
    struct Script {
        std::function<Answer()> pump = [] { return Answer{}; };
        std::function<Answer()> configure = [] { return Answer{}; };
        std::function<std::size_t()> frames; ///< of the next callback; null: always a period
        /// What the pins' question gives, the answer is the format that the rig was made with; null: nobody asks.
        std::function<int()> pins;
    };

    Rig(const vrx::live::Shape& shape, Script script,
        vrx::host::SampleFormat words = vrx::host::SampleFormat::kF32)
        : m_shape(shape), m_script(std::move(script)), m_words(words), m_parts(MakeParts()),
          m_slots((shape.latencyFrames + shape.periodFrames) / shape.blockFrames + 3,
                  shape.blockFrames * shape.channels),
          m_stream(shape, m_slots), m_worker(m_parts, shape.blockFrames * shape.channels, m_slots, m_state),
          m_held(shape.channels) {
        m_worker.Connect();
    }

    /// One callback.
    void Callback() {
        const std::size_t frames = m_script.frames ? m_script.frames() : m_shape.periodFrames;
        std::vector<std::vector<float>> buffers(m_shape.channels, std::vector<float>(frames));
        std::vector<const float*> in;
        std::vector<float*> out; // processed in place, each channel into the next one's buffer
        for (std::size_t c = 0; c < m_shape.channels; ++c) {
            for (std::size_t i = 0; i < frames; ++i) buffers[c][i] = Input(m_frames + i, c);
            in.push_back(buffers[c].data());
            out.push_back(buffers[(c + 1) % m_shape.channels].data());
        }
        m_stream.Process(in.data(), out.data(), frames);
        for (std::size_t i = 0; i < frames; ++i) CheckFrame(m_frames + i, out, i);
        m_frames += frames;
        ++callbacks;
    }
    void Callbacks(unsigned count) {
        while (count-- > 0) Callback();
    }

    /// The worker's turn: at most one block.
    void Work() { m_worker.Step(std::chrono::microseconds(0)); }

    /// So many callbacks, after each of them a few turns of the worker, and the counts compared with the model's.
    void Run(unsigned count) {
        for (unsigned end = callbacks + count; callbacks < end;) {
            Callback();
            for (int turn = 0; turn < 4; ++turn) Work();
        }
        CheckCounts();
    }

    /// What `Bridge::Stop` does.
    void Stop() {
        m_state.stopped = true;
        m_slots.Close();
    }

    void CheckCounts() const {
        Require(m_stream.Frames() == m_frames, "frames");
        Require(m_stream.Blocks() == m_blocks, "blocks");
        Require(m_stream.LateBlocks() == late, "late");
        Require(m_stream.FailedBlocks() + m_state.failed <= m_stream.LateBlocks(), "lost");
    }

    /// From now on talkers follow this one.
    void Change(Script script) { m_script = std::move(script); }

    double Seconds() const { return static_cast<double>(m_frames) / m_shape.sampleRate; }
    vrx::live::Stream& Stream() { return m_stream; }
    const vrx::live::WorkerState& State() const { return m_state; }
    std::uint64_t Lost() const { return m_stream.FailedBlocks() + m_state.failed; }

    unsigned callbacks = 0;
    std::uint64_t late = 0;            // as the model counts
    std::uint64_t wet = 0;             // blocks
    std::vector<std::string> outages;  // what was told
    std::vector<double> configured;    // when a talker was configured, in seconds
    std::vector<std::string> settings; // with what
    unsigned talkers = 0;              // made so far
    unsigned questions = 0;            // for the pins
    std::vector<std::uint64_t> sent;   // the blocks, in order, from 0

private:
    enum class Kind { kNothing, kWet, kDry, kSilence };

    class Clock : public vrx::host::RunClock {
    public:
        explicit Clock(Rig& rig) : m_rig(rig) {}
        double Now() const override { return m_rig.Seconds(); }
        void SleepUntil(double seconds) override {
            while (Now() < seconds) m_rig.Callback();
        }

    private:
        Rig& m_rig;
    };

    class Talker : public CVRXTalker {
    public:
        explicit Talker(Rig& rig) : m_rig(rig) {}
        float GetAverageCycles() const override { return 0; }
        float GetPumpCycles() const override { return 0; }
        bool Configure(const char* args) override {
            m_rig.configured.push_back(m_rig.Seconds());
            m_rig.settings.push_back(args);
            const Answer answer = m_rig.m_script.configure();
            m_rig.Callbacks(answer.callbacks);
            return answer.connected;
        }
        int PumpAudio(const void* in, void* out, unsigned inCount, unsigned) override {
            return m_rig.Pump(static_cast<const std::uint32_t*>(in), static_cast<std::uint32_t*>(out),
                              inCount);
        }
        int PinProps(unsigned& frames, unsigned& channels, unsigned& floats, unsigned&, unsigned&,
                     unsigned&) override {
            ++m_rig.questions;
            const int result = m_rig.m_script.pins();
            if (result < 0) return result;
            frames = 0;
            channels = 2;
            floats = m_rig.m_words == vrx::host::SampleFormat::kF32 ? 1 : 0;
            return result;
        }
        int SendMessage(const char*, std::string&) override { return 0; }

    private:
        Rig& m_rig;
    };

    template <class Text>
    static void Require(bool right, const Text& what) {
        if (!right) throw std::logic_error(what);
    }

    vrx::live::BridgeParts MakeParts() {
        vrx::live::BridgeParts parts;
        vrx::host::ServerSettings server;
        server.args = "server=h,servport=7000,clport=0,input=In,output=Out,layout=Main";
        server.port = 7000;
        parts.session = std::make_unique<vrx::host::Session>(
            server, vrx::host::SessionParts{[this] {
                                                ++talkers;
                                                return std::make_unique<Talker>(*this);
                                            },
                                            nullptr, nullptr});
        parts.words = m_words;
        if (m_script.pins) parts.words.reset();
        parts.clock = std::make_shared<Clock>(*this);
        parts.outage = [this](const std::string& why) { outages.push_back(why); };
        return parts;
    }

    static constexpr std::uint64_t kPlaces = std::uint64_t{1} << 23;

    /// Tells the frame and channel, and comes again only much later; survives either kind of word.
    float Input(std::uint64_t frame, std::size_t channel) const {
        return static_cast<float>((frame * m_shape.channels + channel) % kPlaces) / kPlaces;
    }

    /// The block that begins with this sample.
    std::uint64_t BlockAt(double sample) const {
        const auto place = static_cast<std::uint64_t>(sample * kPlaces);
        const std::uint64_t now = m_frames * m_shape.channels;
        const std::uint64_t at = now - (now - place) % kPlaces;
        Require(at % (m_shape.blockFrames * m_shape.channels) == 0, "a block that begins elsewhere");
        return at / m_shape.channels / m_shape.blockFrames;
    }

    int Pump(const std::uint32_t* in, std::uint32_t* out, unsigned words) {
        Require(words == m_shape.blockFrames * m_shape.channels, "words of a block");
        const std::uint64_t block = BlockAt(vrx::host::SampleFromWord(in[0], m_words));
        Require(sent.empty() || block >= sent.back(), "an older block");
        Require(block >= m_blocks, "a block whose turn has passed");
        sent.push_back(block);
        for (unsigned i = 0; i < words; ++i) {
            const float sample =
                Input(block * m_shape.blockFrames + i / m_shape.channels, i % m_shape.channels);
            Require(in[i] == vrx::host::WordFromSample(static_cast<double>(sample), m_words),
                    "a sample of a block");
            out[i] = vrx::host::WordFromSample(-static_cast<double>(sample), m_words);
        }
        const Answer answer = m_script.pump();
        Callbacks(answer.callbacks);
        if (answer.result >= 0) m_replied.insert(block);
        return answer.result;
    }

    void BeginBlock(std::uint64_t block) {
        Require(block == m_blocks, "order of blocks");
        ++m_blocks;
        const Kind missing = m_shape.late == vrx::live::Late::kDry ? Kind::kDry : Kind::kSilence;
        m_before = m_kind;
        const bool isWet = m_replied.erase(block) > 0;
        m_kind = isWet ? Kind::kWet : missing;
        late += isWet ? 0 : 1;
        wet += isWet ? 1 : 0;
    }

    float Going(Kind kind, std::uint64_t frame, std::size_t channel) const {
        if (kind == Kind::kWet) return -Input(frame, channel);
        return kind == Kind::kDry ? Input(frame, channel) : 0.0F;
    }

    void CheckFrame(std::uint64_t at, const std::vector<float*>& out, std::size_t i) {
        const std::uint64_t frame = at - m_shape.latencyFrames;
        const std::size_t offset = frame % m_shape.blockFrames;
        const bool before = at < m_shape.latencyFrames;
        if (!before && offset == 0) BeginBlock(frame / m_shape.blockFrames);
        const double fade = std::min<double>(std::max(1.0, std::floor(m_shape.sampleRate / 1000)),
                                             static_cast<double>(m_shape.blockFrames));
        const bool fading =
            m_before != m_kind && m_before != Kind::kNothing && static_cast<double>(offset) < fade;
        for (std::size_t c = 0; c < m_shape.channels; ++c) {
            const float got = out[c][i];
            double want = before ? 0 : static_cast<double>(Going(m_kind, frame, c));
            if (!before && fading) {
                const double from =
                    static_cast<double>(m_before == Kind::kWet ? m_held[c] : Going(m_before, frame, c));
                want = from + (want - from) * (static_cast<double>(offset) + 1) / (fade + 1);
            }
            const double allowed = fading ? 1e-6 : 0;
            if (!(std::abs(static_cast<double>(got) - want) <= allowed))
                Require(false, "frame " + std::to_string(at) + " of channel " + std::to_string(c) + ": " +
                                   std::to_string(got) + " instead of " + std::to_string(want));
            if (!before && m_kind == Kind::kWet) m_held[c] = -Input(frame, c);
        }
    }

    const vrx::live::Shape m_shape;
    Script m_script;
    vrx::host::SampleFormat m_words;
    vrx::live::WorkerState m_state;
    std::uint64_t m_frames = 0;
    vrx::live::BridgeParts m_parts;
    vrx::live::Slots m_slots;
    vrx::live::Stream m_stream;
    vrx::live::Worker m_worker;

    // The model.
    std::uint64_t m_blocks = 0; // whose turn has come
    std::set<std::uint64_t> m_replied;
    Kind m_kind = Kind::kNothing;
    Kind m_before = Kind::kNothing;
    std::vector<float> m_held;
};
