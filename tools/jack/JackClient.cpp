#include "tools/jack/JackClient.h"

#include "tools/program/Errors.h"

#include <algorithm>
#include <jack/jack.h>
#include <jack/thread.h>
#include <memory>

namespace vrx::tool {

namespace {

constexpr std::int64_t kFreewheelSettles = 1000000; // microseconds

std::string PortName(const char* direction, std::size_t channel) {
    return direction + std::to_string(channel + 1);
}

} // namespace

JackClient::JackClient(const std::string& name, std::size_t channels) : m_in(channels), m_out(channels) {
    if (name.empty() || name.size() >= static_cast<std::size_t>(jack_client_name_size()))
        throw Failure{kWrongUsage, "--name must have 1 to " + std::to_string(jack_client_name_size() - 1) +
                                       " characters, as JACK names its clients"};
    jack_set_error_function(Quiet);
    jack_set_info_function(Quiet);
    jack_status_t status = {};
    m_client = jack_client_open(name.c_str(), JackNoStartServer, &status);
    if (m_client == nullptr)
        throw Failure{kCannotConnect,
                      "no JACK server runs here, or it takes no more clients: start one (for example "
                      "\"jackd -d alsa\"), or run this under PipeWire with pw-jack"};
    m_sampleRate = jack_get_sample_rate(m_client);
    m_period = jack_get_buffer_size(m_client);
    try {
        RegisterPorts(channels);
        SetCallbacks();
    } catch (...) {
        jack_client_close(m_client);
        throw;
    }
}

JackClient::~JackClient() {
    (void)jack_deactivate(m_client);
    (void)jack_client_close(m_client);
}

void JackClient::RegisterPorts(std::size_t channels) {
    const auto add = [this](const std::string& name, unsigned long flags) {
        jack_port_t* port = jack_port_register(m_client, name.c_str(), JACK_DEFAULT_AUDIO_TYPE, flags, 0);
        if (port == nullptr) throw Failure{kRunFailed, "JACK has no port left for " + name};
        return port;
    };
    for (std::size_t channel = 0; channel < channels; ++channel) {
        m_inputs.push_back(add(PortName("in_", channel), JackPortIsInput));
        m_outputs.push_back(add(PortName("out_", channel), JackPortIsOutput));
    }
}

void JackClient::SetCallbacks() {
    jack_set_process_callback(m_client, OnProcess, this);
    jack_set_buffer_size_callback(m_client, OnPeriod, this);
    jack_set_sample_rate_callback(m_client, OnSampleRate, this);
    jack_set_xrun_callback(m_client, OnXrun, this);
    jack_set_freewheel_callback(m_client, OnFreewheel, this);
    jack_set_latency_callback(
        m_client,
        [](jack_latency_callback_mode_t mode, void* self) {
            const auto& client = *static_cast<const JackClient*>(self);
            if (mode == JackCaptureLatency)
                client.AddLatency(mode, client.m_inputs, client.m_outputs);
            else
                client.AddLatency(mode, client.m_outputs, client.m_inputs);
        },
        this);
    jack_on_info_shutdown(
        m_client,
        [](jack_status_t code, const char*, void* self) {
            auto& client = *static_cast<JackClient*>(self);
            client.m_tooSlow = (code & JackClientZombie) != 0;
            client.m_ended = true;
        },
        this);
}

std::string JackClient::Name() const {
    return jack_get_client_name(m_client);
}

int JackClient::WorkerPriority() const {
    const int own = jack_client_real_time_priority(m_client);
    return own > 1 ? own - 1 : 0;
}

void JackClient::Activate(JackAudio& audio) {
    m_audio = &audio;
    if (jack_activate(m_client) != 0)
        throw Failure{kRunFailed, m_ended ? Ended() : "JACK does not activate the client"};
}

void JackClient::ConnectToPhysical() {
    const auto join = [this](unsigned long flags, const std::vector<jack_port_t*>& ports, bool toOurs) {
        const std::unique_ptr<const char*, void (*)(void*)> names(
            jack_get_ports(m_client, nullptr, JACK_DEFAULT_AUDIO_TYPE, JackPortIsPhysical | flags),
            jack_free);
        for (std::size_t i = 0; names && i < ports.size() && names.get()[i] != nullptr; ++i) {
            const char* ours = jack_port_name(ports[i]);
            const char* theirs = names.get()[i];
            (void)(toOurs ? jack_connect(m_client, theirs, ours) : jack_connect(m_client, ours, theirs));
        }
    };
    join(JackPortIsOutput, m_inputs, true);
    join(JackPortIsInput, m_outputs, false);
}

void JackClient::SetLatency(std::size_t frames) {
    m_latency = frames;
    (void)jack_recompute_total_latencies(m_client);
}

template <class Mode>
void JackClient::AddLatency(Mode mode, const std::vector<jack_port_t*>& from,
                            const std::vector<jack_port_t*>& to) const {
    const auto delay = static_cast<jack_nframes_t>(m_latency.load());
    for (std::size_t i = 0; i < from.size(); ++i) {
        jack_latency_range_t range = {};
        jack_port_get_latency_range(from[i], mode, &range);
        range.min += delay;
        range.max += delay;
        jack_port_set_latency_range(to[i], mode, &range);
    }
}

std::string JackClient::Ended() const {
    if (!m_ended) return {};
    return m_tooSlow ? "JACK removed this client because it was too slow: use longer periods"
                     : "the JACK server has ended";
}

int JackClient::OnProcess(jack_nframes_t frames, void* self) {
    auto& client = *static_cast<JackClient*>(self);
    for (std::size_t i = 0; i < client.m_inputs.size(); ++i) {
        client.m_in[i] = static_cast<const float*>(jack_port_get_buffer(client.m_inputs[i], frames));
        client.m_out[i] = static_cast<float*>(jack_port_get_buffer(client.m_outputs[i], frames));
    }
    client.m_audio->Process(client.m_in.data(), client.m_out.data(), frames);
    return 0;
}

int JackClient::OnPeriod(jack_nframes_t frames, void* self) {
    static_cast<JackClient*>(self)->m_period = frames;
    return 0;
}

int JackClient::OnSampleRate(jack_nframes_t rate, void* self) {
    static_cast<JackClient*>(self)->m_sampleRate = rate;
    return 0;
}

int JackClient::OnXrun(void* self) {
    auto& client = *static_cast<JackClient*>(self);
    const std::int64_t change = client.m_freewheelChange;
    const bool settled =
        change == 0 || static_cast<std::int64_t>(jack_get_time()) - change > kFreewheelSettles;
    if (settled && !client.m_freewheels) ++client.m_xruns;
    return 0;
}

void JackClient::OnFreewheel(int starting, void* self) {
    auto& client = *static_cast<JackClient*>(self);
    client.m_freewheels = starting != 0;
    client.m_freewheelChange = static_cast<std::int64_t>(jack_get_time());
    client.m_audio->Freewheel(starting != 0);
}

} // namespace vrx::tool
