#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vrx::tool {

/// What the server says about itself.
struct ServerFigures {
    size_t clients = 0; ///< connected now
    uint64_t packets = 0;
    uint64_t errors = 0;
    double uptimeSeconds = 0;
    uint64_t blocks = 0;        ///< packets that were blocks
    double busy = 0;            ///< 0 to 1, the share of the worker threads' time spent processing lately
    uint32_t latencyFrames = 0; ///< of the processing
};

/// The answer to one text line, without a line feed. An answer to a line that is not understood begins with
/// "error: ".
std::string AnswerLine(std::string_view line, const ServerFigures& figures);

} // namespace vrx::tool
