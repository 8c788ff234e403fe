#pragma once

#include "fuzz/Allowance.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/ScriptedServer.h"
#include "fuzz/twins/ChannelModel.h"
#include "tcpio/CTcpIOTalk.h"

#include <string>
#include <vector>

namespace vrx::fuzz {

/// A channel's surroundings and what it must make of them. The channel itself belongs to the fuzz target, or
/// to the talker that it tests. Every exchange runs on the model first, which tells what is to be delivered.
class ScriptedChannel {
public:
    GoodServer server;
    ChannelModel model;
    Allowance slowCases;

    /// Gives the channel a scripted connection.
    void Connect(CTcpIOTalk& talk) {
        m_connection.Open(talk);
        model.Connect();
    }

    void Kill(CTcpIOTalk* talk) {
        if (talk) ScriptedConnection::Kill(*talk);
        model.Kill();
    }

    /// Takes the next reply from the input; the channel is connected if it is not.
    void Script(CTcpIOTalk& talk, FuzzInput& input, End end, bool serverLeaves) {
        if (!model.connected) Connect(talk);
        model.Script(input, end, slowCases);
        if (serverLeaves) model.Leave();
    }

    /// Runs one exchange: `expected` on the model, then `actual` on the channel, which checks the outcome.
    /// `messages` are what the server must have got.
    template <class Expected, class Actual>
    void Exchange(CTcpIOTalk& talk, Expected expected, Actual actual,
                  const std::vector<std::string>& messages) {
        const bool gone = model.gone;
        expected();
        m_connection.Deliver(talk, model.taken, model.endReached ? &model.end : nullptr);
        if (gone) m_connection.Close();
        actual();
        m_connection.Join();
        if (!gone) RequireSame(m_connection.Requests(), messages, "the request");
        if (gone) model.pieces.clear(); // what was not received by now never comes
    }

    /// To be called behind each exchange if the channel still exists.
    void RequireState(CTcpIOTalk& talk) {
        RequireSame(ScriptedConnection::SocketOf(talk) >= 0, model.connected, "a connection stands");
        if (model.reconnected) Kill(&talk);
        if (model.connected) Require(!ScriptedConnection::HasUnread(talk), "everything was received");
    }

    /// Tells the model that the good server has answered a text over a connection of its own.
    void AnsweredWell() {
        model.Connect();
        model.pieces = {std::string(GoodServer::kAnswer) + "\n"};
        (void)model.Text("", false); // the answer is one line
    }

private:
    ScriptedConnection m_connection{server};
};

/// The messages that a text goes out as.
inline std::vector<std::string> TextMessages(const std::string& text) {
    constexpr size_t kPiece = 1024;
    if (text.empty()) return {};
    const std::string line = text.back() == '\n' ? text : text + "\n";
    std::vector<std::string> messages;
    for (size_t at = 0; at < line.size(); at += kPiece) messages.push_back(line.substr(at, kPiece));
    return messages;
}

} // namespace vrx::fuzz
