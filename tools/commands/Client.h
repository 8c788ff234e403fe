#pragma once

#include "host/Plugin.h"
#include "host/Session.h"
#include "tools/commands/ConnectionOptions.h"
#include "tools/program/CapturedOutput.h"

#include <memory>
#include <string>
#include <string_view>

namespace vrx::tool {

/// What a client command works with: the plug-in, a session with its server, and standard output without the talker's
/// lines in it. One at a time, since standard output is the process's.
class Client {
public:
    /// Loads the plug-in. Throws Failure for wrong options, or when there is no plug-in. Nothing touches the
    /// network yet.
    explicit Client(const ConnectionOptions& options);

    /// Connects. Throws Failure (cannot connect, or interrupted).
    void Connect();

    /// After a transport fault with this result; throws Failure as `Connect` does.
    void Reconnect(int result);

    host::Session& Session() { return m_session; }
    const host::ServerSettings& Server() const { return m_session.Server(); }
    const std::string& PluginFile() const { return m_plugin->File(); }

    /// Another session with the same server, for any thread: it does not look at what its talkers print, and keeps
    /// the plug-in loaded.
    std::unique_ptr<host::Session> NewSession() const;
    /// Forgets what talkers have printed so far.
    void DropLines() { (void)m_output.TakeLines(); }

    /// Writes to the program's standard output. Throws Failure when that fails.
    void Print(std::string_view text) const { m_output.Print(text); }

    /// The program's standard output itself.
    const CapturedOutput& Output() const { return m_output; }

private:
    Client(host::ServerSettings server, const ConnectionOptions& options);
    [[noreturn]] void FailToConnect() const;

    std::shared_ptr<host::Plugin> m_plugin;
    std::shared_ptr<void> m_recording; // null: there is none; outlives the talker
    CapturedOutput m_output;
    host::Session m_session;
};

} // namespace vrx::tool
