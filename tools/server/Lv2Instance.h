#pragma once

#include "tools/server/Lv2Description.h"
#include "tools/server/Lv2Worker.h"

#include <lv2/core/lv2.h>
#include <lv2/options/options.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vrx::tool {

/// The most frames that one run of an instance gets.
inline constexpr int32_t kMostLv2Frames = 4096;

/// One running instance of an LV2 plug-in, with the buffers of all its ports. For one thread at a time.
class Lv2Instance {
public:
    /// Makes and activates it, with its default state and then these values of its control inputs; throws Failure
    /// when the plug-in refuses.
    Lv2Instance(const Lv2Description& description, const std::map<std::string, float>& values, double rate);
    ~Lv2Instance();
    Lv2Instance(const Lv2Instance&) = delete;
    Lv2Instance& operator=(const Lv2Instance&) = delete;

    /// Connects its next audio input and output to buffers of kMostLv2Frames samples that outlive it.
    void ConnectInput(float* samples);
    void ConnectOutput(float* samples);

    /// Runs it on what stands in its inputs; 1 to kMostLv2Frames.
    void Run(uint32_t frames);

    /// What its latency port said last; 0 without one.
    uint32_t Latency() const;

private:
    struct Buffer {
        Lv2Port port;
        std::vector<float> samples; // of a control: one
        std::vector<uint64_t> atom; // aligned as atoms are
    };

    void MakeFeatures(double rate);
    void ConnectOwnBuffers();
    void RestoreDefaultState(const Lv2Description& description);
    void SetControls(const std::map<std::string, float>& values);
    void ConnectNext(Lv2Port::Kind kind, size_t& next, float* samples);
    void PrepareAtoms();

    Lv2Worker m_worker;
    int32_t m_leastFrames = 1;
    int32_t m_mostFrames = kMostLv2Frames;
    int32_t m_sequenceBytes = 65536;
    float m_rate = 0;
    std::vector<LV2_Options_Option> m_options;
    std::vector<LV2_Feature> m_featureList;
    std::vector<const LV2_Feature*> m_features; // ended by null
    std::vector<Buffer> m_buffers;              // one per port
    size_t m_nextInput = 0;
    size_t m_nextOutput = 0;
    LilvInstance* m_instance = nullptr;
};

} // namespace vrx::tool
