#pragma once

#include "tests/support/ScriptedServer.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

/// A server within the test's process that turns the sign of every sample round, for one client after the other.
class InvertingServer {
public:
    InvertingServer() : m_server(std::vector<ScriptedServer::Script>(kMostClients, Serve)) {}
    int Port() const { return m_server.Port(); }

private:
    static constexpr std::size_t kMostClients = 200;

    static void Serve(Peer& peer) {
        for (std::string start; (start = peer.Read(4)).size() == 4;) {
            if (start != std::string_view("\x03\x00\xFF\x07", 4)) { // a line of text
                (void)peer.ReadLine();
                peer.Send("hello\n");
                continue;
            }
            const std::string length = peer.Read(4);
            if (length.size() < 4) return;
            std::uint32_t bytes = 0;
            std::memcpy(&bytes, length.data(), 4);
            const std::string rest = peer.Read(bytes - 8);
            if (rest.size() < bytes - 8) return;
            peer.Send(Reply(start + length + rest));
        }
    }

    static std::string Reply(const std::string& request) {
        std::vector<std::uint32_t> in(request.size() / 4);
        std::memcpy(in.data(), request.data(), 4 * in.size());
        const std::uint32_t replyWords = in.at(4);
        // The tag, the length, the words that follow, the command; then the status, two figures and the samples.
        std::vector<std::uint32_t> out{0x07FF0003, 16 + 4 * replyWords, replyWords, in.at(3)};
        out.resize(4 + std::size_t{replyWords});
        const std::size_t samples = in.at(2) - 1; // behind the reply's size
        for (std::size_t i = 0; i < samples && 7 + i < out.size(); ++i)
            out[7 + i] = in.at(5 + i) ^ 0x80000000;
        return {reinterpret_cast<const char*>(out.data()), 4 * out.size()};
    }

    ScriptedServer m_server;
};
