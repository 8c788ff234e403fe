#pragma once

#include <string>

namespace vrx::host {

/// The server as a talker sees it.
struct ServerSettings {
    std::string args; ///< the talker's argument line, all six keys present
    std::string host;
    int port = 0;
    int clientPort = 0;
    std::string input;
    std::string output;
    std::string layout;

    /// "host:port", for messages.
    std::string Place() const { return host + ":" + std::to_string(port); }

    /// The argument line with another server port in place of `port`.
    std::string ArgsWithPort(int otherPort) const;
};

} // namespace vrx::host
