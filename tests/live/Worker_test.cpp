#include "live/Worker.h"
#include "tests/live/Rig.h"

#include <gtest/gtest.h>

using vrx::live::Late;
using vrx::live::Shape;

namespace {

constexpr double kRate = 48000;
constexpr Shape kShape{2, kRate, 48, 48, 144, Late::kDry}; // a millisecond a block

/// Answers the exchanges from the given one on with `result`, so many of them.
std::function<Rig::Answer()> Failing(unsigned first, unsigned count, int result) {
    return [=, n = 0U]() mutable {
        const bool fails = n >= first && n < first + count;
        ++n;
        return Rig::Answer{0, fails ? result : 0, true};
    };
}

struct Recovery {
    const char* name;
    int result;
    unsigned configures; // beyond the first one
    unsigned talkers;
};
constexpr Recovery kRecoveries[] = {
    {"the server closed the connection: the next call", CVRXTalker::kPeerClosed, 0, 1},
    {"receiving failed: the next call", CVRXTalker::kReceiveFailed, 0, 1},
    {"no reply in time: the next call", CVRXTalker::kTimedOut, 0, 1},
    {"sending failed: a new connect", CVRXTalker::kSendFailed, 1, 1},
    {"no connection: a new connect", CVRXTalker::kNoConnection, 1, 1},
    {"the reply was no packet: a new talker", CVRXTalker::kNotAPacket, 1, 2},
};

TEST(Worker, RecoversFromEachTransportFaultInItsWay) {
    for (const Recovery& c : kRecoveries) {
        SCOPED_TRACE(c.name);
        Rig::Script script;
        script.pump = Failing(10, 1, c.result);
        Rig rig(kShape, script);
        rig.Run(2000);
        EXPECT_EQ(rig.configured.size(), 1 + c.configures);
        EXPECT_EQ(rig.talkers, c.talkers);
        ASSERT_EQ(rig.outages.size(), 1U);
        EXPECT_EQ(rig.outages[0].find("result " + std::to_string(c.result) + ": "), 0U) << rig.outages[0];
        EXPECT_EQ(rig.State().reconnects, 1U);
        EXPECT_EQ(rig.State().attempts, 0U);
        EXPECT_EQ(rig.Lost(), 1U);
        EXPECT_NEAR(static_cast<double>(rig.late), 500, 15); // the pause, a millisecond a block
    }
}

TEST(Worker, ANegativeStatusFailsThatBlockAlone) {
    Rig::Script script;
    script.pump = Failing(10, 3, -5);
    Rig rig(kShape, script);
    rig.Run(200);
    EXPECT_EQ(rig.late, 3U);
    EXPECT_EQ(rig.Lost(), 3U);
    EXPECT_TRUE(rig.outages.empty());
    EXPECT_EQ(rig.State().reconnects, 0U);
    EXPECT_EQ(rig.configured.size(), 1U);
}

TEST(Worker, PausesLongerFromAttemptToAttempt) {
    Rig rig(kShape, {});
    rig.Run(100);
    const double begin = rig.Seconds();
    const auto isBack = [&] { return rig.Seconds() - begin > 18; }; // during the seventh pause
    Rig::Script script;
    script.pump = [&] { return Rig::Answer{0, isBack() ? 0 : CVRXTalker::kNoConnection, true}; };
    script.configure = [&] { return Rig::Answer{0, 0, isBack()}; };
    rig.Change(script);
    while (rig.State().reconnects == 0) rig.Run(1);
    const std::vector<double> expected = {0.5, 1.5, 3.5, 7.5, 12.5, 17.5, 22.5};
    ASSERT_EQ(rig.configured.size(), 1 + expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(rig.configured[i + 1] - begin, expected[i], 0.02) << "attempt " << i + 1;
    EXPECT_EQ(rig.outages.size(), 1U);
}

TEST(Worker, ProcessedSoundIsBackWithinThePauseAndTwoBlocks) {
    for (const std::size_t latency : {48U, 144U, 4800U}) {
        Shape shape = kShape;
        shape.latencyFrames = latency;
        Rig::Script script;
        script.pump = Failing(300, 1, CVRXTalker::kPeerClosed);
        Rig rig(shape, script);
        while (rig.outages.empty()) rig.Run(1);
        // Blocks that were back when it began may still be on their way out.
        while (rig.State().attempts > 0) rig.Run(1);
        const std::uint64_t wet = rig.wet;
        const double back = rig.Seconds();
        while (rig.wet == wet) rig.Run(1);
        EXPECT_LE(rig.Seconds() - back, 2.5 * 48 / kRate) << latency;
    }
}

TEST(Worker, BlocksWhoseTurnHasPassedAreNotSent) {
    Rig::Script script;
    unsigned n = 0;
    script.pump = [&] { return Rig::Answer{n++ == 10 ? 100U : 0U, 0, true}; };
    Rig rig(kShape, script);
    rig.Run(300);
    EXPECT_GT(rig.late, 95U);
    EXPECT_LT(rig.late, 110U);
    EXPECT_LT(rig.sent.size(), rig.callbacks - 90U); // the rig itself refuses a block whose turn has passed
    EXPECT_EQ(rig.Lost(), 0U);
}

/// The pause of an outage is over before the block's turn, the new connect after it.
TEST(Worker, ABlockWhoseTurnPassesDuringAConnectIsNotSent) {
    Shape shape = kShape;
    shape.latencyFrames += static_cast<std::size_t>(shape.sampleRate) / shape.blockFrames * shape.blockFrames;
    Rig::Script script;
    unsigned n = 0;
    script.pump = [&] { return Rig::Answer{0, n++ == 10 ? CVRXTalker::kSendFailed : 0, true}; };
    script.configure = [&] {
        return Rig::Answer{static_cast<unsigned>(2 * shape.latencyFrames / shape.periodFrames), 0, true};
    };
    Rig rig(shape, script);
    rig.Run(static_cast<unsigned>(6 * shape.latencyFrames / shape.periodFrames));
    EXPECT_EQ(rig.State().reconnects, 1U);
    EXPECT_EQ(rig.Lost(), 1U);
}

/// The first block waits for the pins' answer, which comes whole, but behind its turn or behind the end.
TEST(Worker, ABlockThatWasNeverTriedIsLateAndNotLost) {
    for (const bool stops : {false, true}) {
        SCOPED_TRACE(stops);
        Rig* playing = nullptr;
        Rig::Script script;
        script.pins = [&] {
            if (stops)
                playing->Stop();
            else
                playing->Callbacks(10);
            return 0;
        };
        Rig rig(kShape, script, vrx::host::SampleFormat::kS32);
        playing = &rig;
        rig.Run(30);
        EXPECT_EQ(rig.questions, 1U);
        EXPECT_GT(rig.late, 0U);
        EXPECT_EQ(rig.Lost(), 0U);
    }
}

TEST(Worker, AServerThatIsNotThereAtTheStartIsAnOutage) {
    Rig::Script script;
    unsigned n = 0;
    script.configure = [&] { return Rig::Answer{0, 0, n++ == 3}; };
    Rig rig(kShape, script);
    EXPECT_EQ(rig.outages.size(), 1U);
    rig.Run(100);
    EXPECT_EQ(rig.State().reconnects, 1U);
    EXPECT_GT(rig.wet, 50U);
}

TEST(Worker, AThousandOutages) {
    Rig::Script script;
    unsigned n = 0;
    constexpr int kResults[] = {CVRXTalker::kPeerClosed, CVRXTalker::kReceiveFailed, CVRXTalker::kTimedOut,
                                CVRXTalker::kSendFailed, CVRXTalker::kNoConnection,  CVRXTalker::kNotAPacket};
    script.pump = [&] { return Rig::Answer{n % 3, ++n % 4 == 0 ? kResults[n / 4 % 6] : 0, true}; };
    Rig rig({1, kRate, 480, 480, 960, Late::kDry}, script);
    while (rig.State().reconnects < 1000) rig.Run(1);
    const std::uint64_t all = rig.State().reconnects + (rig.State().attempts > 0 ? 1 : 0);
    EXPECT_EQ(rig.outages.size(), all);
    EXPECT_EQ(rig.Lost(), all);
}

TEST(Worker, BlocksBeyondOneSegmentAreTakenAsWholeReplies) {
    struct Case {
        std::size_t block;
        const char* port; // 7000, or that much below zero as it asks for whole replies
    };
    for (const Case& c : {Case{179, "servport=7000,"}, Case{180, "servport=-58536,"},
                          Case{1020, "servport=-58536,"}, Case{1021, "servport=7000,"}}) {
        Rig rig({2, kRate, c.block, c.block, c.block, Late::kDry}, {});
        rig.Run(20);
        EXPECT_NE(rig.settings.back().find(c.port), std::string::npos)
            << c.block << ": " << rig.settings.back();
        EXPECT_EQ(rig.late, 0U);
    }
}

TEST(Worker, IntegerWordsGoAndComeBack) {
    Rig rig(kShape, {}, vrx::host::SampleFormat::kS32);
    rig.Run(200);
    EXPECT_EQ(rig.late, 0U);
    EXPECT_GT(rig.wet, 100U);
}

TEST(Worker, AsksThePinsForTheWordsBeforeTheFirstBlock) {
    using vrx::host::SampleFormat;
    struct Case {
        const char* name;
        SampleFormat words;
        std::vector<int> answers; // further ones are 0
        unsigned questions;
        std::size_t outages;
    };
    for (const Case& c : {
             Case{"floats", SampleFormat::kF32, {}, 1, 0},
             Case{"integers", SampleFormat::kS32, {}, 1, 0},
             Case{"integers behind an outage", SampleFormat::kS32, {CVRXTalker::kTimedOut}, 2, 1},
             Case{"a new connect",
                  SampleFormat::kS32,
                  {CVRXTalker::kSendFailed, CVRXTalker::kPeerClosed},
                  3,
                  1},
             Case{"no pins: floats", SampleFormat::kF32, {-5}, 1, 0},
             Case{"no answer to that, ever: floats", SampleFormat::kF32,
                  std::vector<int>(9, CVRXTalker::kPeerClosed), 3, 1},
         }) {
        SCOPED_TRACE(c.name);
        Rig::Script script;
        script.pins = [&, n = 0U]() mutable { return n < c.answers.size() ? c.answers[n++] : 0; };
        Rig rig(kShape, script, c.words);
        rig.Run(4000);
        EXPECT_EQ(rig.questions, c.questions);
        EXPECT_EQ(rig.outages.size(), c.outages);
        EXPECT_GT(rig.wet, 400U);
    }
}

/// The reply comes so many callbacks after its block was sent; with three blocks of latency that may be up to two.
TEST(Worker, TheTurnDecidesToTheBlock) {
    for (unsigned callbacks = 0; callbacks < 8; ++callbacks) {
        SCOPED_TRACE(callbacks);
        Rig::Script script;
        script.pump = [&, n = 0]() mutable { return Rig::Answer{n++ % 20 == 10 ? callbacks : 0, 0, true}; };
        Rig rig(kShape, script);
        rig.Run(400);
        // The block itself is late when the third callback comes meanwhile, and one more with each further one.
        EXPECT_EQ(rig.late > 0, callbacks > 2);
    }
}

} // namespace
