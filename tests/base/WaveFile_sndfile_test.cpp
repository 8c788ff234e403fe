// What the WAV classes write and read, seen by libsndfile.
#include "base/WaveFile.h"

#include "tests/support/FolderTest.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

class WaveFileSndfile : public FolderTest {
protected:
    const std::string m_path = Path("a.wav");
};

using SndfilePtr = std::unique_ptr<SNDFILE, int (*)(SNDFILE*)>;

SndfilePtr OpenSndfile(const std::string& path, int mode, SF_INFO& info) {
    return {sf_open(path.c_str(), mode, &info), sf_close};
}

constexpr int kChannels = 3;
constexpr unsigned kFrames = 1000;

/// Samples that differ from each other, both ends of the range included.
template <class Sample>
std::vector<Sample> Samples() {
    std::vector<Sample> samples(kFrames * kChannels);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<Sample>(i * 715827883u);
    samples[0] = std::numeric_limits<Sample>::min();
    samples[1] = std::numeric_limits<Sample>::max();
    return samples;
}

template <class Sample>
void WriteFile(const std::string& path, std::vector<Sample> samples) {
    CWaveWriter writer(path.c_str(), kChannels, 44100, 8 * int{sizeof(Sample)}, false);
    ASSERT_EQ(writer.Open(), 0);
    ASSERT_EQ(writer.WriteSamples(samples.data(), 1), 0);
    ASSERT_EQ(writer.WriteSamples(samples.data() + kChannels, kFrames - 1), 0);
    ASSERT_EQ(writer.Close(), 0);
}

void ExpectInfo(const SF_INFO& info, int subtype) {
    EXPECT_EQ(info.frames, sf_count_t{kFrames});
    EXPECT_EQ(info.channels, kChannels);
    EXPECT_EQ(info.samplerate, 44100);
    EXPECT_EQ(info.format, SF_FORMAT_WAV | subtype);
}

TEST_F(WaveFileSndfile, ReadsOur16Bits) {
    const auto samples = Samples<int16_t>();
    WriteFile(m_path, samples);
    SF_INFO info{};
    const SndfilePtr file = OpenSndfile(m_path, SFM_READ, info);
    ASSERT_NE(file, nullptr);
    ExpectInfo(info, SF_FORMAT_PCM_16);
    std::vector<int16_t> read(samples.size() + kChannels);
    ASSERT_EQ(sf_readf_short(file.get(), read.data(), kFrames + 1), sf_count_t{kFrames});
    read.resize(samples.size());
    EXPECT_EQ(read, samples);
}

TEST_F(WaveFileSndfile, ReadsOur32Bits) {
    const auto samples = Samples<int32_t>();
    WriteFile(m_path, samples);
    SF_INFO info{};
    const SndfilePtr file = OpenSndfile(m_path, SFM_READ, info);
    ASSERT_NE(file, nullptr);
    ExpectInfo(info, SF_FORMAT_PCM_32);
    std::vector<int32_t> read(samples.size() + kChannels);
    ASSERT_EQ(sf_readf_int(file.get(), read.data(), kFrames + 1), sf_count_t{kFrames});
    read.resize(samples.size());
    EXPECT_EQ(read, samples);
}

TEST_F(WaveFileSndfile, WritesWhatWeRead) {
    const auto samples = Samples<int16_t>();
    SF_INFO info{};
    info.channels = kChannels;
    info.samplerate = 44100;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SndfilePtr file = OpenSndfile(m_path, SFM_WRITE, info);
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(sf_writef_short(file.get(), samples.data(), kFrames), sf_count_t{kFrames});
    file.reset();

    CWaveReader reader(m_path.c_str());
    ASSERT_EQ(reader.Open(), 0);
    std::vector<int16_t> read(samples.size() + kChannels);
    EXPECT_EQ(reader.ReadSamples(read.data(), kFrames + 1), static_cast<int>(kFrames));
    EXPECT_EQ(reader.Close(), 9);
    read.resize(samples.size());
    EXPECT_EQ(read, samples);
}

TEST_F(WaveFileSndfile, TitleBeforeTheSamplesIsRefused) {
    const auto samples = Samples<int16_t>();
    SF_INFO info{};
    info.channels = kChannels;
    info.samplerate = 44100;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SndfilePtr file = OpenSndfile(m_path, SFM_WRITE, info);
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(sf_set_string(file.get(), SF_STR_TITLE, "title"), 0); // a LIST chunk
    ASSERT_EQ(sf_writef_short(file.get(), samples.data(), kFrames), sf_count_t{kFrames});
    file.reset();

    CWaveReader reader(m_path.c_str());
    EXPECT_EQ(reader.Open(), -1);
    EXPECT_EQ(reader.Close(), -1);
}

} // namespace
