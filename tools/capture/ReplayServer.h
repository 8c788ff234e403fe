#pragma once

#include "tools/capture/Timing.h"

#include <functional>
#include <memory>
#include <string>

namespace vrx::tool {

/// Answers clients as the server of a recording did: with the same bytes in the same pieces and the same ends of the
/// connections. A client gets the answers of the first recorded connection that begins as it does and that no other
/// client has; once every one was had they can be had again. Its requests have to be the recorded ones, in order.
class ReplayServer {
public:
    /// listenPort   on 127.0.0.1; 0: the system picks a free one
    /// Throws Failure when the file cannot be read or holds no exchange, and when it cannot listen.
    ReplayServer(const std::string& file, int listenPort, Timing timing);
    ~ReplayServer();
    ReplayServer(const ReplayServer&) = delete;
    ReplayServer& operator=(const ReplayServer&) = delete;

    int Port() const;

    /// Serves until `stopped`, which is asked twenty times a second, is true, and returns ""; or until a client asks
    /// something else than was recorded: then that client gets an error line, and the result says which exchange and
    /// what of it differs. Throws Failure when the file cannot be read any more.
    std::string Run(const std::function<bool()>& stopped);

private:
    class Service;
    std::unique_ptr<Service> m_service;
};

} // namespace vrx::tool
