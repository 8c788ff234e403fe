#pragma once

#include "host/Packet.h"
#include "host/Samples.h"
#include "host/Session.h"

#include <cstddef>

namespace vrx::host {

/// The most frames of `channels` words each whose request and reply both fit one segment; at least 1.
std::size_t FramesPerSegment(const ServerSettings& server, std::size_t channels);

/// The most frames whose reply fits a talker's receive buffer.
std::size_t MostFramesPerBlock(std::size_t channels);

/// The frames of a block that the input pin asks for; where it says nothing usable, as many as let request
/// and reply fit one segment.
std::size_t PreferredBlock(const PinValues& pins, const ServerSettings& server, std::size_t channels);

/// What the words of a block are, as the input pin says; floats where it says nothing.
SampleFormat PreferredWords(const PinValues& pins);

/// The way of taking replies that suits blocks of `words` words: whole ones where a reply does not fit one segment and
/// a whole reply can hold it, else single ones.
Replies SuitingReplies(std::size_t words);

} // namespace vrx::host
