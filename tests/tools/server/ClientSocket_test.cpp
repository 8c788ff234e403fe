#include "tools/server/ClientSocket.h"

#include <array>
#include <cerrno>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

using vrx::tool::ClientSocket;

namespace {

/// Both ends of a TCP connection.
class ClientSocketTest : public testing::Test {
protected:
    ClientSocketTest()
        : m_listener(::socket(AF_INET, SOCK_STREAM, 0)), m_peer(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof address;
        EXPECT_EQ(::bind(m_listener, any, size), 0);
        EXPECT_EQ(::listen(m_listener, 1), 0);
        EXPECT_EQ(::getsockname(m_listener, any, &size), 0);
        EXPECT_EQ(::connect(m_peer, any, size), 0);
        m_socket.emplace(::accept(m_listener, nullptr, nullptr));
    }
    ~ClientSocketTest() override {
        ::close(m_peer);
        ::close(m_listener);
    }

    std::string Receive() const {
        std::array<char, 100> space;
        const auto count = m_socket->Receive(space);
        return count ? std::string(space.data(), *count) : "none";
    }

    int m_listener;
    int m_peer;
    std::optional<ClientSocket> m_socket;
};

TEST_F(ClientSocketTest, ReceivesWhatThereIs) {
    EXPECT_FALSE(m_socket->HasWaitingBytes());
    EXPECT_EQ(Receive(), "");
    ASSERT_EQ(::send(m_peer, "block", 5, 0), 5);
    EXPECT_TRUE(m_socket->HasWaitingBytes());
    EXPECT_EQ(Receive(), "block");
    EXPECT_FALSE(m_socket->HasWaitingBytes());
    EXPECT_EQ(Receive(), "");
}

TEST_F(ClientSocketTest, ReceivesNoneAtTheEnd) {
    ASSERT_EQ(::send(m_peer, "last", 4, 0), 4);
    ASSERT_EQ(::shutdown(m_peer, SHUT_WR), 0);
    EXPECT_EQ(Receive(), "last");
    EXPECT_EQ(Receive(), "none");
}

TEST_F(ClientSocketTest, SendsWhatTheSystemTakes) {
    const std::string block(1 << 20, 'x');
    size_t sent = 0;
    for (size_t count = 1; count > 0; sent += count) count = m_socket->Send(block).value();
    EXPECT_GT(sent, 0U);
    m_socket->SendNoMore();

    std::array<char, 65536> space;
    size_t received = 0;
    for (ssize_t count = 1; count > 0; received += static_cast<size_t>(count))
        count = ::recv(m_peer, space.data(), space.size(), 0);
    EXPECT_EQ(received, sent);
}

TEST_F(ClientSocketTest, SendsNoneToAPeerThatHasReset) {
    const linger atOnce{1, 0};
    ASSERT_EQ(::setsockopt(m_peer, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce), 0);
    ::close(m_peer);
    m_peer = -1;
    EXPECT_EQ(m_socket->Send("block"), std::nullopt);
    EXPECT_EQ(m_socket->Send("block"), std::nullopt); // without a signal
}

TEST_F(ClientSocketTest, ClosesInOrder) {
    char byte;
    m_socket->Close();
    EXPECT_FALSE(m_socket->IsOpen());
    EXPECT_EQ(::recv(m_peer, &byte, 1, 0), 0);
    EXPECT_EQ(Receive(), "none");
    EXPECT_EQ(m_socket->Send("block"), std::nullopt);
    m_socket->Close(); // once more changes nothing
}

TEST_F(ClientSocketTest, ResetsThePeer) {
    m_socket->Reset();
    EXPECT_FALSE(m_socket->IsOpen());
    char byte;
    EXPECT_EQ(::recv(m_peer, &byte, 1, 0), -1);
    EXPECT_EQ(errno, ECONNRESET);
}

} // namespace
