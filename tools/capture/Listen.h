#pragma once

#include "tools/program/Errors.h"

#include <asio.hpp>
#include <chrono>
#include <cstdint>
#include <string>

namespace vrx::tool {

/// How often a server looks whether it is to stop.
inline constexpr std::chrono::milliseconds kAskWhetherStopped{50};
/// Out of descriptors, say: new clients wait until one is free.
inline constexpr std::chrono::milliseconds kRetryAccept{100};

/// Listens on 127.0.0.1 at this port; 0: one of the system's choice. Throws Failure when that cannot be.
inline asio::ip::tcp::acceptor Listen(asio::io_context& io, int port) {
    using asio::ip::tcp;
    tcp::acceptor acceptor(io, tcp::v4());
    acceptor.set_option(tcp::acceptor::reuse_address(true));
    asio::error_code error;
    acceptor.bind({asio::ip::address_v4::loopback(), static_cast<std::uint16_t>(port)}, error);
    if (!error) acceptor.listen(asio::socket_base::max_listen_connections, error);
    if (!error) return acceptor;
    throw Failure{kCannotConnect, "cannot listen on 127.0.0.1:" + std::to_string(port) + ": " +
                                      error.message() + "; choose another --port"};
}

} // namespace vrx::tool
