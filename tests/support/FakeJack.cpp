#include "tests/support/FakeJack.h"

#include <cstdlib>
#include <stdexcept>

FakeJack& TheJack() {
    static FakeJack jack;
    return jack;
}

FakeJack::Port& FakeJack::PortOf(const std::string& name) {
    for (Port& port : ports)
        if (port.name == name) return port;
    throw std::out_of_range("no port " + name);
}

namespace {

/// Ports are known to the client by their number, from 1.
jack_port_t* Handle(std::size_t number) {
    return reinterpret_cast<jack_port_t*>(number);
}

FakeJack::Port& At(const jack_port_t* port) {
    return TheJack().ports.at(reinterpret_cast<std::size_t>(port) - 1);
}

template <class Callback>
int Set(Callback& place, Callback callback, void* argument) {
    place = callback;
    TheJack().argument = argument;
    return 0;
}

} // namespace

// The part of JACK's library that the client uses.
extern "C" {

int jack_client_name_size() {
    return 33;
}
void jack_set_error_function(void (*)(const char*)) {}
void jack_set_info_function(void (*)(const char*)) {}
jack_client_t* jack_client_open(const char*, jack_options_t, jack_status_t*, ...) {
    return TheJack().running ? reinterpret_cast<jack_client_t*>(&TheJack()) : nullptr;
}
int jack_client_close(jack_client_t*) {
    ++TheJack().closed;
    return 0;
}
char* jack_get_client_name(jack_client_t*) {
    static char name[] = "fake";
    return name;
}
jack_nframes_t jack_get_sample_rate(jack_client_t*) {
    return TheJack().sampleRate;
}
jack_nframes_t jack_get_buffer_size(jack_client_t*) {
    return TheJack().period;
}
int jack_client_real_time_priority(jack_client_t*) {
    return TheJack().priority;
}
int jack_activate(jack_client_t*) {
    TheJack().active = TheJack().activates;
    return TheJack().activates ? 0 : 1;
}
int jack_deactivate(jack_client_t*) {
    TheJack().active = false;
    return 0;
}
jack_time_t jack_get_time() {
    return TheJack().microseconds;
}

jack_port_t* jack_port_register(jack_client_t*, const char* name, const char*, unsigned long flags,
                                unsigned long) {
    FakeJack& jack = TheJack();
    if (jack.ports.size() == jack.mostPorts) return nullptr;
    jack.ports.push_back({std::string("fake:") + name, flags, std::vector<float>(jack.period), {}});
    return Handle(jack.ports.size());
}
const char* jack_port_name(const jack_port_t* port) {
    return At(port).name.c_str();
}
void* jack_port_get_buffer(jack_port_t* port, jack_nframes_t) {
    return At(port).samples.data();
}
void jack_port_get_latency_range(jack_port_t* port, jack_latency_callback_mode_t mode,
                                 jack_latency_range_t* range) {
    *range = At(port).latency[mode];
}
void jack_port_set_latency_range(jack_port_t* port, jack_latency_callback_mode_t mode,
                                 jack_latency_range_t* range) {
    At(port).latency[mode] = *range;
}
int jack_recompute_total_latencies(jack_client_t*) {
    ++TheJack().recomputed;
    return 0;
}

const char** jack_get_ports(jack_client_t*, const char*, const char*, unsigned long flags) {
    const std::vector<std::string>& names =
        (flags & JackPortIsInput) != 0 ? TheJack().physicalInputs : TheJack().physicalOutputs;
    if (names.empty()) return nullptr;
    auto** const list = static_cast<const char**>(std::calloc(names.size() + 1, sizeof(char*)));
    for (std::size_t i = 0; i < names.size(); ++i) list[i] = names[i].c_str();
    return list;
}
void jack_free(void* memory) {
    std::free(memory);
}
int jack_connect(jack_client_t*, const char* from, const char* to) {
    TheJack().connections.emplace_back(from, to);
    return 0;
}

int jack_set_process_callback(jack_client_t*, JackProcessCallback callback, void* argument) {
    return Set(TheJack().process, callback, argument);
}
int jack_set_buffer_size_callback(jack_client_t*, JackBufferSizeCallback callback, void* argument) {
    return Set(TheJack().periodChanged, callback, argument);
}
int jack_set_sample_rate_callback(jack_client_t*, JackSampleRateCallback callback, void* argument) {
    return Set(TheJack().rateChanged, callback, argument);
}
int jack_set_xrun_callback(jack_client_t*, JackXRunCallback callback, void* argument) {
    return Set(TheJack().xrun, callback, argument);
}
int jack_set_freewheel_callback(jack_client_t*, JackFreewheelCallback callback, void* argument) {
    return Set(TheJack().freewheel, callback, argument);
}
int jack_set_latency_callback(jack_client_t*, JackLatencyCallback callback, void* argument) {
    return Set(TheJack().latency, callback, argument);
}
void jack_on_info_shutdown(jack_client_t*, JackInfoShutdownCallback callback, void* argument) {
    (void)Set(TheJack().shutdown, callback, argument);
}
}
