#pragma once

#include "host/Session.h"
#include "tools/wire/Requests.h"

#include <asio.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

namespace vrx::tool {

class RawConnection;
struct RawReply;

struct CheckupOptions {
    std::size_t block = 0;    ///< frames; 0: as the pins say, else one segment
    std::size_t channels = 0; ///< 0: as the pins say, else 2
    int rate = 48000;         ///< frames per second
    bool json = false;        ///< one object at the end instead of a line a step
    bool colors = false;
};

/// What a step found out.
struct Finding {
    enum State {
        kOk,
        kNote,
        kFailed,
        kNothing, ///< there is nothing to look at; nobody is told
    };
    State state = kOk;
    std::string detail;
    std::string meaning; ///< "" when it is ok
    std::string advice;
};

/// Goes through one connection step by step, each printed when it is done.
class Checkup {
public:
    using Print = std::function<void(std::string_view text)>;

    /// session      knows its server and has not connected yet; must live longer, as `options` must
    /// pluginFile   for the report
    /// print        writes to standard output
    Checkup(const CheckupOptions& options, host::Session& session, std::string pluginFile, Print print)
        : m_options(options), m_session(session), m_server(session.Server()),
          m_pluginFile(std::move(pluginFile)), m_print(std::move(print)) {}

    /// The exit code.
    int Run();

private:
    using Clock = std::chrono::steady_clock;

    struct Step;
    static const Step kSteps[];

    Finding Try(const Step& step);
    void Report(const char* name, const Finding& finding, double milliseconds);

    Finding LookUpServer();
    Finding Reach();
    Finding Connect();
    Finding Command();
    Finding Pins();
    Finding AskPins();
    Finding Silence();
    Finding Latency();
    Finding Whole();
    Finding Pieces();

    Finding InPieces(const RawReply& reply) const;

    Finding RefusedBlock(int result);
    std::string RawAnswer();
    asio::ip::tcp::endpoint RawEndpoint() const;
    std::string ConnectText() const;
    void ChooseBlock();
    std::string BlockText() const;
    ObjectNames Names() const { return {m_server.layout, m_server.input, m_server.output}; }
    std::size_t Words() const { return m_block * m_channels; }

    const CheckupOptions& m_options;
    host::Session& m_session;
    const host::ServerSettings& m_server;
    std::string m_pluginFile;
    Print m_print;
    nlohmann::json m_steps = nlohmann::json::array();
    asio::ip::tcp::endpoint m_endpoint;
    asio::error_code m_connectError;
    host::PinValues m_pins;
    std::size_t m_channels = 0;
    std::size_t m_block = 0;
    bool m_standsWhole = false; // the server gives whole replies
};

} // namespace vrx::tool
