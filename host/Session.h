#pragma once

#include "host/Plugin.h"
#include "tools/commands/ConnectionOptions.h"
#include "tools/program/CapturedOutput.h"

#include <cstdint>
#include <memory>
#include <string>

namespace vrx {

/// Both pins' values as the server reports them. `vrx serve` says: frames per block, channels (0: not said),
/// and 1 when the words are 32-bit floats; other servers may mean something else.
struct PinValues {
    unsigned in[3] = {};
    unsigned out[3] = {};
};

/// One talker, its server, and what the talker says about its failures.
class Session {
public:
    /// Loads the plug-in; throws Failure. Nothing touches the network yet.
    Session(const std::string& plugin, ServerSettings server);

    /// Connects. Throws Failure (cannot connect, or interrupted).
    void Connect();

    /// Connects again after a transport fault with the result `result`; false when that failed.
    bool Reconnect(int result);

    /// Gives the connection up; what comes next needs `Reconnect`. A server may take one client at a time.
    void Disconnect() { m_talker = m_plugin.CreateTalker(); }

    /// One block: `words` words out and as many back. A result below 0 is a transport fault if
    /// `TransportFault()`, otherwise the server's own status.
    int PumpAudio(const std::uint32_t* in, std::uint32_t* out, unsigned words);

    int PinProps(PinValues& pins);

    /// Every negative result of this one is a transport fault.
    int SendMessage(const char* text, std::string& reply);

    /// True when the last negative result came from the talker and not from the server: the talker then
    /// prints a line, while it passes a server's status on in silence.
    bool TransportFault() const { return !m_complaint.empty(); }

    /// What the last call's result means, for messages: "result -9995: the server closed the connection". A
    /// time-out says how long it waited, for whom and for what.
    std::string Describe(int result) const;

    const ServerSettings& Server() const { return m_server; }
    const std::string& PluginFile() const { return m_plugin.File(); }
    float AverageCycles() const { return m_talker->GetAverageCycles(); }
    float PumpCycles() const { return m_talker->GetPumpCycles(); }

    /// Writes to the program's standard output, past the talker's own lines.
    void Print(std::string_view text) const { m_output.Print(text); }

private:
    /// Runs one call of the talker that waits for `awaited`, and times it.
    template <class Call>
    int Timed(const char* awaited, const Call& call);
    bool Configure();
    int Checked(int result);
    std::string WhyNotConnected() const;

    ServerSettings m_server;
    Plugin m_plugin;
    CapturedOutput m_output;
    std::unique_ptr<CVRXTalker> m_talker;
    std::string m_complaint; // what the talker printed during the last failing call
    const char* m_awaited = "";
    double m_waited = 0; // seconds that the last call took
};

} // namespace vrx
