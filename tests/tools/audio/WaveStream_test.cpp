#include "tools/audio/WaveStream.h"

#include "tests/support/FolderTest.h"

#include <bit>
#include <fcntl.h>
#include <sndfile.h>
#include <unistd.h>

namespace {

using namespace vrx;
using namespace vrx::tool;

class WaveStreamTest : public FolderTest {
protected:
    int m_fd = ::open(Path("out.wav").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ~WaveStreamTest() override { ::close(m_fd); }
};

constexpr std::uint32_t kHalf = std::bit_cast<std::uint32_t>(0.5F);

TEST_F(WaveStreamTest, WritesAHeaderOfUnknownLengthAndTheSamples) {
    WaveStream stream(m_fd, {2, 48000, SampleStorage::kPcm16});
    const std::uint32_t words[] = {kHalf, 0, std::bit_cast<std::uint32_t>(-1.0F), kHalf};
    EXPECT_TRUE(stream.Write(words, 4, host::SampleFormat::kF32));
    EXPECT_TRUE(stream.Close());
    const std::string want("RIFF\xFF\xFF\xFF\xFFWAVE"
                           "fmt \x10\x00\x00\x00"
                           "\x01\x00\x02\x00" // PCM, two channels
                           "\x80\xBB\x00\x00" // 48,000 frames a second
                           "\x00\xEE\x02\x00" // 192,000 bytes a second
                           "\x04\x00\x10\x00" // 4 bytes a frame, 16 bits
                           "data\xFF\xFF\xFF\xFF"
                           "\x00\x40\x00\x00\x00\x80\x00\x40",
                           52);
    EXPECT_EQ(Bytes("out.wav"), want);
}

TEST_F(WaveStreamTest, SaysWhatItsSamplesAre) {
    struct Case {
        SampleStorage samples;
        int tag;
        int bits;
        int bytes;
    };
    for (const Case& c : {Case{SampleStorage::kPcm16, 1, 16, 46}, Case{SampleStorage::kPcm32, 1, 32, 48},
                          Case{SampleStorage::kFloat, 3, 32, 48}}) {
        ASSERT_EQ(::ftruncate(m_fd, 0), 0);
        ASSERT_EQ(::lseek(m_fd, 0, SEEK_SET), 0);
        WaveStream stream(m_fd, {1, 8000, c.samples});
        EXPECT_TRUE(stream.Write(&kHalf, 1, host::SampleFormat::kF32));
        const std::string bytes = Bytes("out.wav");
        ASSERT_EQ(static_cast<int>(bytes.size()), c.bytes) << "each write is there at once";
        EXPECT_EQ(bytes[20], c.tag);
        EXPECT_EQ(bytes[34], c.bits);
        SF_INFO info{};
        SNDFILE* file = sf_open(Path("out.wav").c_str(), SFM_READ, &info);
        ASSERT_NE(file, nullptr);
        float sample = 0;
        EXPECT_EQ(sf_read_float(file, &sample, 1), 1);
        EXPECT_EQ(sample, 0.5F);
        sf_close(file);
    }
}

TEST_F(WaveStreamTest, IsAHeaderWhereNothingWasWritten) {
    WaveStream stream(m_fd, {1, 8000, SampleStorage::kPcm16});
    EXPECT_TRUE(stream.Close());
    EXPECT_EQ(Bytes("out.wav").size(), 44U);
}

TEST_F(WaveStreamTest, ReportsADescriptorThatTakesNothing) {
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    WaveStream stream(full, {1, 8000, SampleStorage::kPcm16});
    EXPECT_FALSE(stream.Write(&kHalf, 1, host::SampleFormat::kF32));
    ::close(full);
    WaveStream closed(-1, {1, 8000, SampleStorage::kPcm16});
    EXPECT_FALSE(closed.Close());
}

} // namespace
