#pragma once

namespace vrx::tool {

/// When a replay does what was recorded.
enum class Timing {
    kRecorded, ///< after the same pauses
    kFast,     ///< at once; only the pieces of a reply stay a millisecond apart where they were, or less
};

} // namespace vrx::tool
