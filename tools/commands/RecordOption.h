#pragma once

#include "host/ServerSettings.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

namespace vrx::tool {

/// Adds --record where this program was built with the capture libraries.
void AddRecordOption(CLI::App& command, std::string& file);

/// Records what talkers of this process say to `server` as long as the result lives, and sends them through the
/// recorder. Null and nothing changed when `file` is "". Throws Failure when the file cannot be created.
std::shared_ptr<void> StartRecording(const std::string& file, bool overwrite, host::ServerSettings& server);

/// Records what the WireTaps at the other end of `socket` tell as long as the result lives, which owns the socket.
/// Throws Failure when the file exists or cannot be created.
std::shared_ptr<void> StartTapRecording(const std::string& file, int socket);

} // namespace vrx::tool
