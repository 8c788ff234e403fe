#pragma once

#include "live/Bridge.h"
#include "live/Shape.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace vrx::lv2 {

/// One running plug-in: its ports, and between `Activate` and `Deactivate` a bridge. As LV2 has it, `Run` is called on one
/// thread at a time and never beside the others; hosts that leave out `Activate` or `Deactivate`, or say them twice,
/// are fine. Nothing is thrown.
class Instance {
public:
    using MakeBridge = std::function<std::unique_ptr<live::Bridge>(const live::Shape&)>;

    /// shape        stays; the latency is reported from it
    /// makeBridge   called by each `Activate`; may throw
    Instance(const live::Shape& shape, MakeBridge makeBridge);

    /// data   may be null at any time: control inputs then have their defaults, and without all of the audio ports no
    ///        audio is processed
    void ConnectPort(std::size_t index, void* data);

    /// Starts a new stream, which connects to the server while it runs.
    void Activate();
    /// Any number of frames, 0 too; real-time safe after `Activate`, unless `freeWheeling` is on.
    void Run(std::size_t frames);
    /// Takes at most 0.2 seconds.
    void Deactivate();

private:
    void Process(std::size_t frames);
    void PutSilence(std::size_t frames);

    const live::Shape m_shape;
    const MakeBridge m_makeBridge;
    std::unique_ptr<live::Bridge> m_bridge; // null before `Activate`, and where no bridge could be made
    bool m_active = false;

    std::vector<const float*> m_in;
    std::vector<float*> m_out;
    float* m_latency = nullptr;
    const float* m_freeWheeling = nullptr;
    const float* m_enabled = nullptr;
    float* m_late = nullptr;
};

} // namespace vrx::lv2
