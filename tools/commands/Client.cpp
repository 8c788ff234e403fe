#include "tools/commands/Client.h"

#include "tools/commands/RecordOption.h"
#include "tools/program/Errors.h"
#include "tools/program/Interrupt.h"

#include <utility>

namespace vrx::tool {

namespace {

std::shared_ptr<host::Plugin> LoadPlugin(const std::string& path) {
    std::string error;
    std::shared_ptr<host::Plugin> plugin = host::Plugin::Load(path, error);
    if (!plugin) throw Failure{kFileFailed, error};
    return plugin;
}

} // namespace

Client::Client(const ConnectionOptions& options) : Client(ResolveServer(options), options) {}

Client::Client(host::ServerSettings server, const ConnectionOptions& options)
    : m_plugin(LoadPlugin(options.plugin)),
      m_recording(StartRecording(options.record, options.overwriteRecord, server)),
      m_session(std::move(server), {[this] { return m_plugin->CreateTalker(); },
                                    [this] { return m_output.TakeLines(); }, Interrupted}) {}

void Client::Connect() {
    if (!m_session.Connect()) FailToConnect();
}

void Client::Reconnect(int result) {
    if (!m_session.Reconnect(result)) FailToConnect();
}

std::unique_ptr<host::Session> Client::NewSession() const {
    const auto makeTalker = [plugin = m_plugin] { return plugin->CreateTalker(); };
    return std::make_unique<host::Session>(Server(), host::SessionParts{makeTalker, nullptr, nullptr});
}

void Client::FailToConnect() const {
    const std::string place = Server().Place();
    if (Interrupted()) throw Failure{kInterrupted, "interrupted while connecting to " + place};
    throw Failure{kCannotConnect, "cannot connect to " + place + ": " + m_session.WhyNotConnected()};
}

} // namespace vrx::tool
