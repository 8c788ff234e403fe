#include "tools/wire/WireTap.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace vrx::tool;

class WireTapTest : public testing::Test {
protected:
    WireTapTest() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_ends), 0); }
    ~WireTapTest() override {
        Close(0);
        Close(1);
    }
    void Close(int end) {
        if (m_ends[end] >= 0) ::close(m_ends[end]);
        m_ends[end] = -1;
    }
    WireTap Tap() const { return WireTap(m_ends[0]); }
    bool Hear() { return WireTap::Hear(m_ends[1], m_event, m_bytes); }

    int m_ends[2] = {-1, -1};
    WireEvent m_event;
    std::string m_bytes = "before";
};

TEST_F(WireTapTest, TellsEachEventInOrder) {
    Tap().Tell({.kind = WireEvent::kOpened, .clientPort = 40000, .serverPort = 7000, .connection = 5});
    Tap().Tell({.kind = WireEvent::kBytes, .fromServer = true, .connection = 5}, std::string("a\0b", 3));
    Tap().Tell({.kind = WireEvent::kReset, .connection = 5});
    Close(0);
    ASSERT_TRUE(Hear());
    EXPECT_EQ(m_event.kind, WireEvent::kOpened);
    EXPECT_EQ(m_event.clientPort, 40000);
    EXPECT_EQ(m_event.serverPort, 7000);
    EXPECT_EQ(m_event.connection, 5U);
    EXPECT_FALSE(m_event.fromServer);
    EXPECT_EQ(m_bytes, "");
    const std::int64_t first = m_event.time;
    ASSERT_TRUE(Hear());
    EXPECT_EQ(m_event.kind, WireEvent::kBytes);
    EXPECT_TRUE(m_event.fromServer);
    EXPECT_EQ(m_bytes, std::string("a\0b", 3));
    EXPECT_GE(m_event.time, first);
    ASSERT_TRUE(Hear());
    EXPECT_EQ(m_event.kind, WireEvent::kReset);
    EXPECT_EQ(m_bytes, "");
    EXPECT_FALSE(Hear()) << "all taps have gone";
}

TEST_F(WireTapTest, CutsWhatNoSegmentHolds) {
    std::string sent;
    for (int i = 0; i < 150'000; ++i) sent += static_cast<char>(i % 251);
    std::thread teller([&] { Tap().Tell({.kind = WireEvent::kBytes}, sent); });
    std::string heard;
    for (const std::size_t length : {65'495U, 65'495U, 19'010U}) {
        ASSERT_TRUE(Hear());
        EXPECT_EQ(m_bytes.size(), length);
        heard += m_bytes;
    }
    teller.join();
    EXPECT_TRUE(heard == sent);
}

TEST_F(WireTapTest, NeedsNobodyWhoListens) {
    WireTap(-1).Tell({.kind = WireEvent::kBytes}, "x");
    Close(1);
    Tap().Tell({.kind = WireEvent::kBytes}, "x"); // neither a signal nor a wait
}

TEST_F(WireTapTest, HearsWhatWasToldBeforeTheListenerEnds) {
    Tap().Tell({.kind = WireEvent::kBytes}, "last");
    ASSERT_EQ(::shutdown(m_ends[1], SHUT_RD), 0);
    ASSERT_TRUE(Hear());
    EXPECT_EQ(m_bytes, "last");
    EXPECT_FALSE(Hear()) << "although a tap is still there";
}

TEST(WireTapConnections, HaveNumbersOfTheirOwn) {
    const std::uint64_t one = WireTap::NewConnection();
    const std::uint64_t other = WireTap::NewConnection();
    EXPECT_NE(one, other);
    EXPECT_EQ(one >> 32, static_cast<std::uint64_t>(::getpid()));
}

} // namespace
