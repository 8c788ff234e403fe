// Any schedule of replies - early, late, failing, with callbacks of any length between and during them - leaves the delay
// and the content of every frame as the model beside the bridge says.

#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "tests/live/Rig.h"

using vrx::fuzz::FuzzInput;
using vrx::live::Late;
using vrx::live::Shape;

namespace {

constexpr unsigned kMostCallbacks = 2000; // bounds the time of one input

constexpr int kResults[] = {0,
                            0,
                            0,
                            0,
                            -5,
                            CVRXTalker::kPeerClosed,
                            CVRXTalker::kReceiveFailed,
                            CVRXTalker::kTimedOut,
                            CVRXTalker::kSendFailed,
                            CVRXTalker::kNoConnection,
                            CVRXTalker::kNotAPacket};

Shape AnyShape(FuzzInput& input) {
    Shape shape;
    shape.channels = 1 + input.UpTo(3);
    shape.sampleRate = 100; // pauses are a few callbacks long, fades a frame
    if (input.Flag()) shape.sampleRate = 4000;
    shape.blockFrames = 1 + input.UpTo(24);
    shape.periodFrames = 1 + input.UpTo(24);
    shape.latencyFrames = shape.blockFrames + input.UpTo(100);
    shape.late = input.Flag() ? Late::kDry : Late::kSilence;
    return shape;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const Shape shape = AnyShape(input);
    const auto words = input.Flag() ? vrx::host::SampleFormat::kF32 : vrx::host::SampleFormat::kS32;
    Rig::Script script;
    script.pump = [&] {
        const unsigned callbacks = input.UpTo(12);
        return Rig::Answer{callbacks, kResults[input.UpTo(std::size(kResults) - 1)], true};
    };
    script.configure = [&] { return Rig::Answer{input.UpTo(3), 0, input.UpTo(3) != 1}; };
    script.frames = [&] { // most calls are as long as they are said to be
        const unsigned choice = input.UpTo(7);
        return choice == 1 ? 0 : choice == 2 ? shape.periodFrames * 3 : choice == 3 ? 1 : shape.periodFrames;
    };
    try {
        Rig rig(shape, script, words);
        while (!input.AtEnd() && rig.callbacks < kMostCallbacks) {
            switch (input.UpTo(2)) {
            case 0:
                rig.Work();
                break;
            case 1:
                rig.Callback();
                break;
            default:
                rig.Callbacks(input.UpTo(8));
            }
            rig.CheckCounts();
        }
    } catch (const std::logic_error& wrong) {
        vrx::fuzz::Fail(wrong.what());
    }
    return 0;
}
