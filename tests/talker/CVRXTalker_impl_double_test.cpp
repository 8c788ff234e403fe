#include "talker/CVRXTalker.h"

#include "tests/talker/ChannelDouble.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>

namespace {

using enum CVRXTalker::Result;

class TalkerOnDouble : public testing::Test {
protected:
    void SetUp() override {
        TheChannel() = {};
        TheChannel().buffer.assign(0x100000, 0);
        ASSERT_TRUE(m_talker->Configure("server=host,servport=-7,clport=3,input=In,output=Out,layout=Main"));
    }

    template <class Call>
    static std::string Printed(Call call) {
        testing::internal::CaptureStdout();
        call();
        return testing::internal::GetCapturedStdout();
    }

    std::unique_ptr<CVRXTalker> m_talker{TalkerFactory()};
};

TEST_F(TalkerOnDouble, ConnectAsksWithATenSecondTimeOut) {
    EXPECT_EQ(TheChannel().host, "host");
    EXPECT_EQ(TheChannel().port, -7); // a negative port is passed on as it is
    EXPECT_EQ(TheChannel().sent, "connect,host,3");
    EXPECT_EQ(TheChannel().timeout, 1000);
}

TEST_F(TalkerOnDouble, PacketsAreAskedForRawWithATenSecondTimeOut) {
    Printed([&] { EXPECT_EQ(m_talker->PumpAudio(nullptr, nullptr, 0, 0), kNotAPacket); });
    EXPECT_EQ(TheChannel().port, -7);
    EXPECT_EQ(TheChannel().timeout, 1000);
    EXPECT_TRUE(TheChannel().raw);
}

TEST_F(TalkerOnDouble, SendMessageAsksWithoutATimeOutAndPassesTheTextOn) {
    std::string reply;
    TheChannel().reply = "answer";
    TheChannel().result = 1;
    EXPECT_EQ(m_talker->SendMessage("text\n", reply), kReplied);
    EXPECT_EQ(TheChannel().sent, "text\n");
    EXPECT_EQ(TheChannel().timeout, -1);
    EXPECT_EQ(reply, "answer");
    TheChannel().result = -12345;
    EXPECT_EQ(m_talker->SendMessage("x", reply), -12345);
}

TEST_F(TalkerOnDouble, TextInPlaceOfAPacketIsPrintedByPumpAudioOnly) {
    TheChannel().reply = "no such layout";
    unsigned out = 5;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(m_talker->PumpAudio(nullptr, &out, 0, 1), kNotAPacket); }),
              "CVRXTalker::PumpAudio: SendBinaryMessage replied with no such layout\n");
    EXPECT_EQ(out, 5u);
    EXPECT_EQ(m_talker->GetPumpCycles(), 0.0f);
    unsigned pins[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(Printed([&] {
                  EXPECT_EQ(m_talker->PinProps(pins[0], pins[1], pins[2], pins[3], pins[4], pins[5]),
                            kNotAPacket);
              }),
              "CVRXTalker::PinProps: SendBinaryMessage did not reply with packet\n");
    EXPECT_EQ(pins[0], 1u);
}

TEST_F(TalkerOnDouble, TextBesideAPacketIsNotLookedAt) {
    TheChannel().reply = "beside";
    std::memcpy(TheChannel().buffer.data(), "\x03\x00\xFF\x07", 4);
    TheChannel().buffer[16] = 9;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(m_talker->PumpAudio(nullptr, nullptr, 0, 0), 9); }), "");
}

TEST_F(TalkerOnDouble, ChannelDiesWithTheTalkerAndWithAFailedConnect) {
    EXPECT_EQ(TheChannel().channels, 1);
    TheChannel().result = kReceiveFailed;
    Printed([&] {
        EXPECT_FALSE(m_talker->Configure("server=host,servport=1,clport=3,input=In,output=Out,layout=Main"));
    });
    EXPECT_EQ(TheChannel().channels, 0);
    TheChannel().result = 0; // not negative: a success
    EXPECT_TRUE(m_talker->Configure("server=host,servport=1,clport=3,input=In,output=Out,layout=Main"));
    EXPECT_EQ(TheChannel().channels, 1);
    m_talker.reset();
    EXPECT_EQ(TheChannel().channels, 0);
}

} // namespace
