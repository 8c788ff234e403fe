#pragma once

#include <lilv/lilv.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vrx::tool {

struct Lv2Port {
    enum Kind {
        kAudioIn,
        kAudioOut,
        kControlIn,
        kControlOut,
        kCvIn,
        kCvOut,
        kAtomIn,
        kAtomOut,
        kUnconnected, ///< of a kind that nobody here knows, and may stay without a buffer
    };
    Kind kind = kUnconnected;
    uint32_t index = 0;
    std::string symbol;
    std::string name;
    float low = 0; ///< of a control or CV input; NaN: no limit
    float high = 0;
    float value = 0;             ///< its default
    size_t bytes = 0;            ///< room of an atom port
    bool reportsLatency = false; ///< a control output that says by how many frames audio is late
};

/// An installed plug-in as far as it matters here.
struct Lv2Description {
    const LilvPlugin* plugin = nullptr;
    std::string uri;
    std::string name;
    std::vector<Lv2Port> ports;
    std::string unusable;         ///< why it cannot be run here; "" when it can
    bool hasDefaultState = false; ///< and wants it restored

    size_t Count(Lv2Port::Kind kind) const;
};

/// rate   frames per second, in which some controls are measured
///
/// The caller holds the host's lock.
Lv2Description DescribeLv2(const LilvPlugin* plugin, double rate);

} // namespace vrx::tool
