#include "tests/support/ScriptedServer.h"

#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kPatienceMs = 10000;
constexpr int kSliceMs = 5;

int Listen(int& port) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener, 512), 0);
    socklen_t length = sizeof address;
    EXPECT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    port = ntohs(address.sin_port);
    return listener;
}

} // namespace

bool Peer::Readable() {
    pollfd waiting{m_socket, POLLIN, 0};
    for (int waited = 0; waited < kPatienceMs; waited += kSliceMs) {
        if (::poll(&waiting, 1, kSliceMs) == 1) return true;
        if (m_stop) return false;
    }
    return false;
}

std::string Peer::Read(size_t count) {
    std::string bytes;
    while (bytes.size() < count && Readable()) {
        char piece[4096];
        const ssize_t got = ::read(m_socket, piece, std::min(sizeof piece, count - bytes.size()));
        if (got <= 0) break;
        bytes.append(piece, static_cast<size_t>(got));
    }
    return bytes;
}

std::string Peer::ReadLine() {
    std::string line;
    for (std::string byte = Read(1); !byte.empty(); byte = Read(1)) {
        line += byte;
        if (byte == "\n") break;
    }
    return line;
}

std::string Peer::ReadPacket() {
    std::string packet = Read(8);
    if (packet.size() < 8) return packet;
    unsigned total;
    std::memcpy(&total, packet.data() + 4, sizeof total);
    return packet + Read(total - 8);
}

bool Peer::WaitForClose() {
    while (Readable()) {
        char piece[4096];
        if (::read(m_socket, piece, sizeof piece) <= 0) return true;
    }
    return false;
}

void Peer::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::write(m_socket, bytes.data(), bytes.size());
        if (sent <= 0) return; // the client has gone: what follows in the script finds out
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
}

void Peer::Close() {
    if (m_socket >= 0) ::close(m_socket);
    m_socket = -1;
}

void Peer::Reset() {
    const linger now{1, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    Close();
}

ScriptedServer::ScriptedServer(std::vector<Script> scripts) {
    m_listener = Listen(m_port);
    m_thread = std::thread([this, scripts = std::move(scripts)] { Run(scripts); });
}

ScriptedServer::~ScriptedServer() {
    m_stop = true;
    Join();
    ::close(m_listener);
}

void ScriptedServer::Join() {
    if (m_thread.joinable()) m_thread.join();
}

void ScriptedServer::Run(const std::vector<Script>& scripts) {
    for (const Script& script : scripts) {
        pollfd waiting{m_listener, POLLIN, 0};
        while (::poll(&waiting, 1, kSliceMs) == 0)
            if (m_stop) return;
        Peer peer(::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC), m_stop);
        script(peer);
    }
}

int RefusedPort() {
    int port = 0;
    ::close(Listen(port));
    return port;
}

std::string Words(std::initializer_list<unsigned> words) {
    std::string bytes;
    for (const unsigned word : words)
        for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(word >> shift);
    return bytes;
}
