#pragma once

#include "host/BlockPump.h"
#include "tools/audio/AudioFile.h"

#include <cstdint>
#include <functional>

namespace vrx::tool {

struct FileRun {
    host::SampleFormat words = host::SampleFormat::kF32;
    std::size_t blockFrames = 0;
    std::uint64_t tail = 0; ///< frames of silence to send after the end of the input
};

/// A block after its exchange, with the words of both sides.
struct PumpedBlock {
    const host::BlockRecord& record;
    const std::uint32_t* in;
    const std::uint32_t* out;
    std::size_t frames; ///< how many of them belong to the output
};

using BlockDone = std::function<void(const PumpedBlock& block)>;

/// How pumping a file ended, and the last block that was sent.
struct PumpedFile {
    host::Sent end = host::Sent::kReplied; ///< kReplied: all of it came back
    host::BlockRecord last;
};

/// Sends the whole input and the tail, the last block filled up with silence, and writes as many frames as
/// the two have; tells `done` after each block. Looks at the session's stop check between blocks. Throws Failure
/// of the reader and the writer.
PumpedFile PumpFile(host::BlockPump& pump, const host::StopCheck& stopped, AudioReader& reader,
                    AudioWriter& writer, const FileRun& run, const BlockDone& done);

} // namespace vrx::tool
