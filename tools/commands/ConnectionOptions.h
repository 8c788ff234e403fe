#pragma once

#include <CLI/CLI.hpp>

#include <cstddef>
#include <string>

namespace vrx {

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
};

/// Adds --server, --servport, --clport, --input, --output, --layout, --args and --plugin.
void AddConnectionOptions(CLI::App& command, ConnectionOptions& options);

/// Adds --clport, --input, --output, --layout and --plugin, for commands that take the server otherwise.
void AddObjectOptions(CLI::App& command, ConnectionOptions& options);

/// The server as the talker will see it.
struct ServerSettings {
    std::string args; ///< the talker's argument line, all six keys present
    std::string host;
    int port = 0;
    std::string input;
    std::string output;
    std::string layout;

    /// "host:port", for messages.
    std::string Place() const { return host + ":" + std::to_string(port); }
};

/// Checks the options and builds the argument line. Throws Failure (wrong usage) for a missing port or key
/// and for a value that the talker's key=value list cannot carry, such as one with a comma.
ServerSettings ResolveServer(const ConnectionOptions& options);

/// The most frames of `channels` words each whose request and reply both fit one Ethernet segment of 1460
/// bytes; at least 1. A longer reply may arrive in several pieces, of which the talker takes the first.
std::size_t FramesPerSegment(const ServerSettings& server, std::size_t channels);

} // namespace vrx
