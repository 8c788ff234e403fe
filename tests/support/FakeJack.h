#pragma once

#include <cstdint>
#include <jack/jack.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// JACK's library as a program of tests brings it itself: no server runs, the test calls the client back. One client at a
/// time, everything on one thread.
struct FakeJack {
    struct Port {
        std::string name; // with the client's
        unsigned long flags = 0;
        std::vector<float> samples;
        std::map<jack_latency_callback_mode_t, jack_latency_range_t> latency;
    };

    // What the server says.
    bool running = true;
    unsigned sampleRate = 48000;
    unsigned period = 64;
    int priority = -1; // -1: not in real time
    bool activates = true;
    std::size_t mostPorts = 1000;
    std::uint64_t microseconds = 0;
    std::vector<std::string> physicalInputs;  // ports that take sound
    std::vector<std::string> physicalOutputs; // ports that give it

    // What the client did.
    std::vector<Port> ports;
    std::vector<std::pair<std::string, std::string>> connections; // from, to
    int closed = 0;
    int recomputed = 0;
    bool active = false;

    // The client's callbacks.
    JackProcessCallback process = nullptr;
    JackBufferSizeCallback periodChanged = nullptr;
    JackSampleRateCallback rateChanged = nullptr;
    JackXRunCallback xrun = nullptr;
    JackFreewheelCallback freewheel = nullptr;
    JackLatencyCallback latency = nullptr;
    JackInfoShutdownCallback shutdown = nullptr;
    void* argument = nullptr;

    Port& PortOf(const std::string& name);
};

/// The one that the program's JACK functions work on.
FakeJack& TheJack();
