#pragma once

#include "tools/capture/DifferenceSummary.h"
#include "tools/capture/Recording.h"
#include "tools/capture/Timing.h"

#include <functional>
#include <string>

namespace vrx::tool {

/// Asks a server what the clients of the recording asked, one exchange after the other, each on a connection of its
/// own as recorded, and adds what was recorded and what the server answers now to `summary`. A reply is awaited for
/// ten seconds where one was recorded.
///
/// stopped   asked ten times a second whether to give up
///
/// Throws Failure when the file cannot be read or holds no exchange, when no connection can be made (cannot connect),
/// and when it was stopped (interrupted).
void ReplayToServer(Recording& recording, const std::string& host, int port, Timing timing,
                    const std::function<bool()>& stopped, DifferenceSummary& summary);

} // namespace vrx::tool
