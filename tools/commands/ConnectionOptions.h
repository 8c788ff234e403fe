#pragma once

#include "host/ServerSettings.h"

#include <CLI/CLI.hpp>
#include <string>

namespace vrx::tool {

/// What the client commands take on their command lines to name the server and the plug-in.
struct ConnectionOptions {
    std::string args; ///< the talker's whole argument line; used instead of the next six when not ""
    std::string server = "127.0.0.1";
    int servport = 0; ///< 0: not given
    int clport = 0;
    std::string input = "In";
    std::string output = "Out";
    std::string layout = "Main";
    std::string plugin; ///< "": searched for
    std::string record; ///< a capture file to leave of what is said; "": none
    bool overwriteRecord = false;
};

/// Adds --server, --servport, --clport, --input, --output, --layout, --args, --plugin and --record.
void AddConnectionOptions(CLI::App& command, ConnectionOptions& options);

/// Adds --clport, --input, --output, --layout and --plugin, for commands that take the server otherwise.
void AddObjectOptions(CLI::App& command, ConnectionOptions& options);

/// Checks the options and builds the argument line. Throws Failure (wrong usage) for a missing port or key
/// and for a value that the talker's key=value list cannot carry, such as one with a comma.
host::ServerSettings ResolveServer(const ConnectionOptions& options);

} // namespace vrx::tool
