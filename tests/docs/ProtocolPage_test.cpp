// The exchange that docs/protocol.md shows, byte by byte, against the talker, vrx serve and the recording.

#include "talker/CVRXTalker.h"
#include "tests/support/RawClient.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Subprocess.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Message {
    std::string sender;
    std::string bytes;
};

/// A line of the page: four blanks, the sender or blanks, the bytes in columns 12 to 61, what they mean.
constexpr size_t kSenderAt = 4;
constexpr size_t kBytesAt = 12;
constexpr size_t kMeaningAt = 62;

std::string Contents(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<Message> ReadPage() {
    std::ifstream page(VRX_SOURCE_DIR "/docs/protocol.md");
    std::vector<Message> messages;
    std::string line;
    while (std::getline(page, line) && line != "## One exchange") {
    }
    while (std::getline(page, line)) {
        const bool ofTable = line.starts_with("    ") && line.size() > kMeaningAt;
        if (!ofTable && messages.empty()) continue;
        if (!ofTable) break; // the table's end
        std::istringstream start(line.substr(kSenderAt, kBytesAt - kSenderAt));
        if (std::string sender; start >> sender) messages.push_back({sender, {}});
        std::istringstream bytes(line.substr(kBytesAt, kMeaningAt - kBytesAt));
        for (std::string byte; bytes >> byte;) {
            messages.back().bytes += static_cast<char>(std::stoi(byte, nullptr, 16));
        }
    }
    return messages;
}

class ProtocolPage : public testing::Test {
protected:
    void SetUp() override {
        const std::vector<Message> messages = ReadPage();
        ASSERT_EQ(messages.size(), 4U);
        for (size_t i = 0; i < 4; ++i) ASSERT_EQ(messages[i].sender, i % 2 == 0 ? "client" : "server");
        connect = messages[0].bytes;
        connected = messages[1].bytes;
        request = messages[2].bytes;
        reply = messages[3].bytes;
        ASSERT_EQ(connect.size(), 23U);
        ASSERT_EQ(connected.size(), 10U);
        ASSERT_EQ(request.size(), 64U);
        ASSERT_EQ(reply.size(), 36U);
    }

    std::string connect, connected, request, reply;
};

TEST_F(ProtocolPage, IsWhatTheTalkerSendsAndUnderstands) {
    std::string heardConnect;
    std::string heardRequest;
    ScriptedServer server({[&](Peer& peer) {
        heardConnect = peer.ReadLine();
        peer.Send(connected);
        heardRequest = peer.ReadPacket();
        peer.Send(reply);
    }});
    const std::unique_ptr<CVRXTalker> talker(TalkerFactory());
    const std::string args = "server=127.0.0.1,servport=" + std::to_string(server.Port()) +
                             ",clport=7001,input=In,output=Out,layout=Main";
    ASSERT_TRUE(talker->Configure(args.c_str()));
    const float in[2] = {0.5F, -0.25F};
    float out[2] = {};
    EXPECT_EQ(talker->PumpAudio(in, out, 2, 2), 0);
    server.Join();

    EXPECT_EQ(heardConnect, connect);
    EXPECT_EQ(heardRequest, request);
    EXPECT_EQ(out[0], -0.5F);
    EXPECT_EQ(out[1], 0.25F);
    EXPECT_EQ(talker->GetAverageCycles(), 7757.0F);
    EXPECT_EQ(talker->GetPumpCycles(), 7757.0F);
}

TEST_F(ProtocolPage, IsWhatTheLoopbackServerAnswers) {
    constexpr size_t kCyclesAt = 20;
    constexpr size_t kCyclesBytes = 8; // measured: they vary
    Subprocess server({VRX_PROGRAM, "serve", "--quiet", "--channels", "1", "--process", "invert"});
    const std::string listening = server.ReadLine();
    const RawClient client(static_cast<uint16_t>(std::stoi(listening.substr(listening.rfind(':') + 1))));

    client.Send(connect);
    EXPECT_EQ(client.Receive(connected.size()), connected);
    client.Send(request);
    std::string answer = client.Receive(reply.size());
    ASSERT_EQ(answer.size(), reply.size());
    answer.replace(kCyclesAt, kCyclesBytes, reply, kCyclesAt, kCyclesBytes);
    EXPECT_EQ(answer, reply);
}

TEST_F(ProtocolPage, IsInTheRecording) {
    const std::string recording = Contents(VRX_SOURCE_DIR "/tests/wireshark/exchange.pcap");
    size_t at = 0;
    for (const std::string& bytes : {connect, connected, request, reply}) {
        at = recording.find(bytes, at);
        ASSERT_NE(at, std::string::npos);
        at += bytes.size();
    }
}

} // namespace
