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
    std::string detourHost; ///< where talkers connect instead, such as a recorder in front of the server
    int detourPort = 0;     ///< 0: there is none

    /// Sends talkers to another place; `host` and `port` stay what the server is called.
    void GoThrough(const std::string& otherHost, int otherPort);
    int ConnectPort() const { return detourPort != 0 ? detourPort : port; }

    /// "host:port", for messages.
    std::string Place() const { return host + ":" + std::to_string(port); }

    /// The argument line with another server port in place of the one to connect to; all else of it stays, keys
    /// that nobody here knows too.
    std::string ArgsWithPort(int otherPort) const;
};

} // namespace vrx::host
