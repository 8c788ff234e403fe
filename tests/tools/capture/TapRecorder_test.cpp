#include "tools/capture/TapRecorder.h"

#include "tests/support/FolderTest.h"
#include "tools/capture/Recording.h"
#include "tools/program/Errors.h"
#include "tools/wire/WireTap.h"

#include <sys/socket.h>
#include <unistd.h>

using namespace vrx::tool;

namespace {

class TapRecorderTest : public FolderTest {
protected:
    TapRecorderTest() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_ends), 0); }
    ~TapRecorderTest() override { ::close(m_ends[0]); }

    void Tell(const WireEvent& event, std::string_view bytes = {}) const {
        WireTap(m_ends[0]).Tell(event, bytes);
    }

    int m_ends[2] = {-1, -1};
    std::vector<std::string> m_said;
};

} // namespace

TEST_F(TapRecorderTest, WritesWhatWasToldOfSeveralConnections) {
    {
        const TapRecorder recorder(Path("a.pcap"), m_ends[1],
                                   [this](const std::string& text) { m_said.push_back(text); });
        Tell({.kind = WireEvent::kOpened, .clientPort = 40001, .serverPort = 7000, .connection = 8});
        Tell({.kind = WireEvent::kOpened, .clientPort = 40002, .serverPort = 7001, .connection = 9});
        Tell({.kind = WireEvent::kBytes, .connection = 9}, "one\n");
        Tell({.kind = WireEvent::kBytes, .connection = 8}, "other\n");
        Tell({.kind = WireEvent::kBytes, .fromServer = true, .connection = 8}, "o");
        Tell({.kind = WireEvent::kBytes, .fromServer = true, .connection = 8}, "k\n");
        Tell({.kind = WireEvent::kReset, .fromServer = true, .connection = 9});
        Tell({.kind = WireEvent::kClosed, .connection = 8});
        Tell({.kind = WireEvent::kClosed, .fromServer = true, .connection = 8});
    }
    Recording recording(Path("a.pcap"));
    Exchange first;
    Exchange second;
    ASSERT_TRUE(recording.Next(first));
    ASSERT_TRUE(recording.Next(second));
    EXPECT_EQ(first.request, "one\n");
    EXPECT_EQ(first.number, 1U);
    EXPECT_TRUE(first.reply.empty());
    EXPECT_EQ(first.end, ServerEnd::kResets);
    EXPECT_EQ(second.request, "other\n");
    EXPECT_EQ(second.number, 2U);
    ASSERT_EQ(second.reply.size(), 2U) << "in the pieces that were sent";
    EXPECT_EQ(second.reply[0].bytes, "o");
    EXPECT_GE(second.reply[1].time, second.reply[0].time);
    EXPECT_EQ(ReplyBytes(second), "ok\n");
    EXPECT_FALSE(recording.Next(first));
    EXPECT_TRUE(m_said.empty());
}

TEST_F(TapRecorderTest, KeepsAFileThatExists) {
    Write("a.pcap", "precious");
    EXPECT_THROW(TapRecorder(Path("a.pcap"), m_ends[1], nullptr), Failure);
    EXPECT_EQ(Bytes("a.pcap"), "precious");
    ::close(m_ends[1]);
}
