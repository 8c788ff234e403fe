#include "tools/audio/FilePump.h"

#include "tests/support/FakeTalker.h"
#include "tests/support/FolderTest.h"
#include "tests/tools/VrxRun.h"

namespace {

using namespace vrx;
using namespace vrx::tool;

class FilePump : public FolderTest {
protected:
    std::shared_ptr<FakeServer> m_server = std::make_shared<FakeServer>();
    bool m_stopped = false;
    std::vector<std::size_t> m_frames; // of each block
    std::vector<std::uint64_t> m_numbers;

    PumpedFile Pump(const std::vector<int>& samples, const FileRun& run, unsigned stopAfter = 1000) {
        AudioReader reader(Write("in.wav", Wav16(1, samples)));
        AudioWriter writer(Path("out.wav"), {1, 8000, SampleStorage::kPcm32}, true);
        const auto stopped = [this] { return m_stopped; };
        host::Session session({},
                              {[this] { return std::make_unique<FakeTalker>(m_server); }, nullptr, stopped});
        host::SteadyRunClock clock;
        host::BlockPump pump(session, clock, static_cast<unsigned>(run.blockFrames), 0);
        const PumpedFile pumped = PumpFile(pump, stopped, reader, writer, run, [&](const PumpedBlock& block) {
            m_frames.push_back(block.frames);
            m_numbers.push_back(block.record.number);
            m_stopped = m_numbers.size() == stopAfter;
        });
        if (pumped.end == host::Sent::kReplied) writer.Finish();
        return pumped;
    }
    std::vector<std::uint32_t> Written() {
        AudioReader reader(Path("out.wav"));
        std::vector<std::uint32_t> words(static_cast<std::size_t>(reader.Frames()));
        reader.Read(words.data(), words.size(), host::SampleFormat::kS32);
        return words;
    }
};

TEST_F(FilePump, FillsTheLastBlockAndWritesAsManyFramesAsTheInputHas) {
    EXPECT_EQ(Pump({1, 2, 3}, {host::SampleFormat::kS32, 2, 0}).end, host::Sent::kReplied);
    EXPECT_EQ(m_server->blocks[1], (std::vector<std::uint32_t>{3U << 16, 0}));
    EXPECT_EQ(Written(), (std::vector<std::uint32_t>{(1U << 16) + 1, (2U << 16) + 1, (3U << 16) + 1}))
        << "the fake server adds one";
    EXPECT_EQ(m_frames, (std::vector<std::size_t>{2, 1}));
    EXPECT_EQ(m_numbers, (std::vector<std::uint64_t>{1, 2}));
}

TEST_F(FilePump, SendsTheTailAsSilence) {
    Pump({7, 7}, {host::SampleFormat::kS32, 2, 3});
    EXPECT_EQ(m_frames, (std::vector<std::size_t>{2, 2, 1}));
    EXPECT_EQ(Written().size(), 5U);
}

TEST_F(FilePump, OfNothingMakesNothing) {
    EXPECT_EQ(Pump({}, {host::SampleFormat::kS32, 4, 0}).end, host::Sent::kReplied);
    EXPECT_TRUE(m_server->blocks.empty());
}

TEST_F(FilePump, SaysWhichBlockWasLost) {
    m_server->results = {0, -9995};
    const PumpedFile pumped = Pump({1, 2, 3}, {host::SampleFormat::kS32, 1, 0});
    EXPECT_EQ(pumped.end, host::Sent::kLost);
    EXPECT_EQ(pumped.last.number, 2U);
    EXPECT_EQ(pumped.last.result, -9995);
    EXPECT_EQ(m_numbers, (std::vector<std::uint64_t>{1}));
}

TEST_F(FilePump, StopsBetweenTwoBlocks) {
    EXPECT_EQ(Pump({1, 2, 3}, {host::SampleFormat::kS32, 1, 0}, 2).end, host::Sent::kStopped);
    EXPECT_EQ(m_numbers, (std::vector<std::uint64_t>{1, 2})) << "the block under way is completed";
}

} // namespace
