#pragma once

#include "host/Session.h"
#include "tools/commands/ConnectionOptions.h"

#include <asio.hpp>

#include <chrono>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace vrx {

class RawConnection;

struct DoctorOptions {
    ConnectionOptions server;
    std::size_t block = 0;    ///< frames; 0: as the pins say, else one segment
    std::size_t channels = 0; ///< 0: as the pins say, else 2
    int rate = 48000;         ///< frames per second
    bool json = false;
};

/// What a step found out.
struct Finding {
    enum State { kOk, kNote, kFailed };
    State state = kOk;
    std::string detail;
    std::string meaning; ///< "" when it is ok
    std::string advice;
};

/// Goes through one connection step by step, each printed when it is done.
class Checkup {
public:
    Checkup(const DoctorOptions& options, const ServerSettings& server, bool colors)
        : m_options(options), m_server(server), m_session(options.server.plugin, server), m_colors(colors) {}

    /// The exit code.
    int Run();

private:
    using Clock = std::chrono::steady_clock;

    /// Runs a step, notes what it found, and returns whether it did not fail.
    template <class Look>
    bool Step(const char* name, const Look& look);
    void Report(const char* name, const Finding& finding, double milliseconds);

    Finding LookUp();
    Finding Reach();
    Finding Connect() const;
    Finding Command();
    Finding Pins();
    Finding Silence();
    Finding Latency();
    Finding Pieces();

    Finding RefusedBlock(int result);
    std::string RawAnswer();
    asio::error_code OpenRaw(RawConnection& connection) const;
    std::string BlockText() const;
    std::size_t Words() const { return m_block * m_channels; }

    const DoctorOptions& m_options;
    const ServerSettings& m_server;
    Session m_session;
    bool m_colors;
    nlohmann::json m_steps = nlohmann::json::array();
    bool m_failed = false;
    asio::ip::tcp::endpoint m_endpoint;
    asio::error_code m_connectError;
    PinValues m_pins;
    std::size_t m_channels = 0;
    std::size_t m_block = 0;
};

} // namespace vrx
