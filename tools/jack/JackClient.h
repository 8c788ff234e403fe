#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// JACK's own names.
typedef struct _jack_client jack_client_t; // NOLINT(bugprone-reserved-identifier)
typedef struct _jack_port jack_port_t;     // NOLINT(bugprone-reserved-identifier)

namespace vrx::tool {

/// What a JACK client plays.
class JackAudio {
public:
    virtual ~JackAudio() = default;
    /// One period, on JACK's real-time thread; one pointer per channel.
    virtual void Process(const float* const* in, float* const* out, std::size_t frames) = 0;
    /// Whether periods come as fast as they are processed from now on; then `Process` may wait.
    virtual void Freewheel(bool on) = 0;
};

/// A client of the running JACK server with as many inputs as outputs, in_1 and out_1 onwards, that delays what goes
/// through it. Prints nothing, and neither does JACK's library. One at a time in a process.
class JackClient {
public:
    /// Joins the server that JACK_DEFAULT_SERVER names, or the default one; starts none. Throws Failure: kCannotConnect when
    /// there is none, kWrongUsage for a name that JACK does not take, kRunFailed when it has no ports left.
    JackClient(const std::string& name, std::size_t channels);
    ~JackClient();
    JackClient(const JackClient&) = delete;
    JackClient& operator=(const JackClient&) = delete;

    /// The name that the server gave: another one where the wanted one was taken.
    std::string Name() const;
    unsigned SampleRate() const { return m_sampleRate; }
    std::size_t PeriodFrames() const { return m_period; }
    /// The priority of a thread that JACK's own ones wait for; 0 where the server does not run in real time.
    int WorkerPriority() const;

    /// Begins to call `audio`, which must outlive this client. Throws Failure.
    void Activate(JackAudio& audio);
    /// Joins the ports to the physical ones, first to first; those without a counterpart stay open.
    void ConnectToPhysical();
    /// Reports this delay between each input and its output from now on.
    void SetLatency(std::size_t frames);

    /// Those that JACK told of, except around changes into and out of freewheeling, which look like such.
    std::uint64_t Xruns() const { return m_xruns; }
    /// Why the server let this client go; "" while it has not.
    std::string Ended() const;

private:
    static void Quiet(const char*) {}
    static int OnProcess(std::uint32_t frames, void* self);
    static int OnPeriod(std::uint32_t frames, void* self);
    static int OnSampleRate(std::uint32_t rate, void* self);
    static int OnXrun(void* self);
    static void OnFreewheel(int starting, void* self);

    void RegisterPorts(std::size_t channels);
    void SetCallbacks();
    /// The latencies of `to`'s ports are those of `from`'s and our delay.
    template <class Mode>
    void AddLatency(Mode mode, const std::vector<jack_port_t*>& from,
                    const std::vector<jack_port_t*>& to) const;

    jack_client_t* m_client = nullptr;
    JackAudio* m_audio = nullptr;
    std::vector<jack_port_t*> m_inputs;
    std::vector<jack_port_t*> m_outputs;
    std::vector<const float*> m_in; // of one period
    std::vector<float*> m_out;
    std::atomic<unsigned> m_sampleRate{0};
    std::atomic<std::size_t> m_period{0};
    std::atomic<std::size_t> m_latency{0};
    std::atomic<std::uint64_t> m_xruns{0};
    std::atomic<bool> m_freewheels{false};
    std::atomic<std::int64_t> m_freewheelChange{0}; // microseconds of JACK's clock
    std::atomic<bool> m_ended{false};
    std::atomic<bool> m_tooSlow{false};
};

} // namespace vrx::tool
