#include "tools/audio/FilePump.h"

#include <algorithm>
#include <vector>

namespace vrx::tool {

PumpedFile PumpFile(host::BlockPump& pump, const host::StopCheck& stopped, AudioReader& reader,
                    AudioWriter& writer, const FileRun& run, const BlockDone& done) {
    const std::size_t words = run.blockFrames * reader.Channels();
    std::vector<std::uint32_t> in(words);
    std::vector<std::uint32_t> out(words);
    std::uint64_t tail = run.tail;
    PumpedFile pumped;
    for (bool ended = false;;) {
        const std::size_t fromFile = ended ? 0 : reader.Read(in.data(), run.blockFrames, run.words);
        std::fill(in.begin() + static_cast<std::ptrdiff_t>(fromFile * reader.Channels()), in.end(), 0U);
        ended = fromFile < run.blockFrames;
        const auto fromTail =
            static_cast<std::size_t>(std::min<std::uint64_t>(tail, run.blockFrames - fromFile));
        tail -= fromTail;
        const std::size_t frames = fromFile + fromTail;
        if (frames == 0) return pumped;

        pumped.end = pump.Send(in.data(), out.data(), pumped.last);
        if (pumped.end != host::Sent::kReplied) return pumped;
        writer.Write(out.data(), frames, run.words);
        done({pumped.last, in.data(), out.data(), frames});
        if (stopped && stopped()) {
            pumped.end = host::Sent::kStopped;
            return pumped;
        }
    }
}

} // namespace vrx::tool
