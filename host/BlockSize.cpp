#include "host/BlockSize.h"

#include <algorithm>

namespace vrx::host {

std::size_t FramesPerSegment(const ServerSettings& server, std::size_t channels) {
    const std::size_t path = SamplesPath(server.layout, server.input, server.output).size();
    const std::size_t request = kRequestHeaderBytes + PaddedText(path);
    const std::size_t room = kSegmentBytes - std::min(kSegmentBytes, std::max(request, kReplyHeaderBytes));
    return std::max<std::size_t>(1, room / 4 / channels);
}

std::size_t MostFramesPerBlock(std::size_t channels) {
    return kMostWords / channels;
}

std::size_t PreferredBlock(const PinValues& pins, const ServerSettings& server, std::size_t channels) {
    const std::size_t asked = pins.in[0];
    return asked > 0 && asked <= MostFramesPerBlock(channels) ? asked : FramesPerSegment(server, channels);
}

SampleFormat PreferredWords(const PinValues& pins) {
    const bool saysSomething = pins.in[0] != 0 || pins.in[1] != 0;
    return saysSomething && pins.in[2] == 0 ? SampleFormat::kS32 : SampleFormat::kF32;
}

Replies SuitingReplies(std::size_t words) {
    const bool fitsSegment = kReplyHeaderBytes + 4 * words <= kSegmentBytes;
    return fitsSegment || words > kWholeReplyWords ? Replies::kSingle : Replies::kWhole;
}

} // namespace vrx::host
