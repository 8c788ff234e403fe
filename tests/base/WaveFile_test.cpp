#include "base/WaveFile.h"

#include "tests/support/FolderTest.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using namespace std::string_literals;

class WaveFile : public FolderTest {
protected:
    /// The file that sox writes for `arguments`, 80 frames of two sine tones at 8000 per second.
    std::string Sox(const char* name, const std::string& arguments) const {
        const std::string command = "sox -D -n -r 8000 -c 2 " + arguments + " '" + Path(name) +
                                    "' synth 0.01 sine 440 sine 550 vol 0.9";
        EXPECT_EQ(std::system(command.c_str()), 0) << "the program sox is needed here: " << command;
        return Path(name);
    }
};

// ---- what the writer writes

const std::string kPcmStereo = "RIFF\x34\x00\x00\x00WAVE"         // 36 + 16
                               "fmt \x10\x00\x00\x00"             // chunk of 16 bytes
                               "\x01\x00\x02\x00"                 // integer PCM, 2 channels
                               "\x44\xAC\x00\x00\x10\xB1\x02\x00" // 44100 frames, 176400 bytes per second
                               "\x04\x00\x10\x00"                 // block align 4, 16 bits
                               "data\x10\x00\x00\x00"s;           // 16 bytes

const std::string kFloatStereo = "RIFF\x60\x00\x00\x00WAVE"         // 80 + 16
                                 "fmt \x28\x00\x00\x00"             // chunk of 40 bytes
                                 "\x03\x00\x02\x00"                 // floating point, 2 channels
                                 "\x80\xBB\x00\x00\x00\xDC\x05\x00" // 48000 frames, 384000 bytes per second
                                 "\x08\x00\x20\x00"                 // block align 8, 32 bits
                                 "\x14\x00\x20\x00"                 // 20, 32
                                 "\x00\x00\x00\x00\x00\x00\x00\x00" // 0, reserved
                                 "\x03\x00\x00\x00\x00\x00\x00\x00" // the fixed bytes
                                 "\x00\x00\x10\x00\x00\x80\x71\x9B"
                                 "\x38\x00\xAA\x00\x00\x00\x00\x00"
                                 "data\x10\x00\x00\x00"s; // 16 bytes

/// `header` with the numbers of a file without samples yet.
std::string WithoutSamples(std::string header, char riffSize) {
    header[4] = riffSize;
    header[header.size() - 4] = 0;
    return header;
}

TEST_F(WaveFile, WritesPcm) {
    char samples[] = "ABCDEFGHIJKLMNOP";
    CWaveWriter writer(Path("a").c_str(), 2, 44100, 16, false);
    ASSERT_EQ(writer.Open(), 0);
    EXPECT_EQ(writer.WriteSamples(samples, 3), 0);
    EXPECT_EQ(WriteSamplesEx(&writer, samples + 12, 1), 0);
    EXPECT_EQ(writer.Close(), 0);
    EXPECT_EQ(Bytes("a"), kPcmStereo + "ABCDEFGHIJKLMNOP");
}

TEST_F(WaveFile, WritesFloat) {
    char samples[] = "ABCDEFGHIJKLMNOP";
    CWaveWriter writer(Path("a").c_str(), 2, 48000, 32, true);
    ASSERT_EQ(writer.Open(), 0);
    EXPECT_EQ(writer.WriteSamples(samples, 2), 0);
    EXPECT_EQ(writer.Close(), 0);
    EXPECT_EQ(Bytes("a"), kFloatStereo + "ABCDEFGHIJKLMNOP");
}

TEST_F(WaveFile, HeaderHasNoSamplesBeforeClose) {
    CWaveWriter pcm(Path("pcm").c_str(), 2, 44100, 16, false);
    ASSERT_EQ(pcm.Open(), 0);
    ASSERT_EQ(pcm.Close(), 0);
    EXPECT_EQ(Bytes("pcm"), WithoutSamples(kPcmStereo, 36));

    CWaveWriter floating(Path("float").c_str(), 2, 48000, 32, true);
    ASSERT_EQ(floating.Open(), 0);
    ASSERT_EQ(floating.Close(), 0);
    EXPECT_EQ(Bytes("float"), WithoutSamples(kFloatStereo, 80));
}

uint32_t U32(const std::string& bytes, size_t offset) {
    uint32_t value;
    std::memcpy(&value, bytes.data() + offset, 4);
    return value;
}

uint16_t U16(const std::string& bytes, size_t offset) {
    uint16_t value;
    std::memcpy(&value, bytes.data() + offset, 2);
    return value;
}

TEST_F(WaveFile, SizesAfter480FramesOf24Bits) {
    std::vector<char> block(480 * 8);
    CWaveWriter pcm(Path("pcm").c_str(), 2, 48000, 24, false);
    ASSERT_EQ(pcm.Open(), 0);
    ASSERT_EQ(pcm.WriteSamples(block.data(), 480), 0);
    ASSERT_EQ(pcm.Close(), 0);
    const std::string plain = Bytes("pcm");
    ASSERT_EQ(plain.size(), 44u + 3840u);
    EXPECT_EQ(U32(plain, 4), 3876u);
    EXPECT_EQ(U16(plain, 20), 1u);
    EXPECT_EQ(U32(plain, 28), 384000u);
    EXPECT_EQ(U16(plain, 32), 8u);
    EXPECT_EQ(U16(plain, 34), 32u);
    EXPECT_EQ(U32(plain, 40), 3840u);

    CWaveWriter floating(Path("float").c_str(), 2, 48000, 24, true);
    ASSERT_EQ(floating.Open(), 0);
    ASSERT_EQ(floating.WriteSamples(block.data(), 480), 0);
    ASSERT_EQ(floating.Close(), 0);
    const std::string wide = Bytes("float");
    ASSERT_EQ(wide.size(), 80u + 3840u);
    EXPECT_EQ(U32(wide, 4), 3920u);
    EXPECT_EQ(U32(wide, 76), 3840u);
}

struct FormatCase {
    const char* name;
    int channels, sampleRate, bits;
    bool useFloat;
    uint16_t wantChannels;
    uint32_t wantRate, wantByteRate;
    uint16_t wantAlign, wantBits;
    size_t wantFrame; ///< bytes written for one frame
};
const FormatCase kFormats[] = {
    {"16 bits", 1, 8000, 16, false, 1, 8000, 16000, 2, 16, 2},
    {"17 bits become 32", 1, 8000, 17, false, 1, 8000, 32000, 4, 32, 4},
    {"64 bits become 32", 1, 8000, 64, false, 1, 8000, 32000, 4, 32, 4},
    {"8 bits become 16", 1, 8000, 8, false, 1, 8000, 16000, 2, 16, 2},
    {"negative bits become 16", 1, 8000, -1, false, 1, 8000, 16000, 2, 16, 2},
    {"16 bits called floating point", 1, 8000, 16, true, 1, 8000, 16000, 2, 16, 2},
    {"no channels", 0, 8000, 16, false, 0, 8000, 0, 0, 16, 0},
    {"negative channels", -1, 8000, 16, false, 0xFFFF, 8000, 65520000, 8190, 16, 0},
    {"negative rate", 1, -1, 16, false, 1, 0xFFFFFFFF, 0xFFFFFFFE, 2, 16, 2},
    {"largest product of 16 bits", 4095, 1, 16, false, 4095, 1, 8190, 8190, 16, 8190},
    {"product wraps at 16 bits", 4097, 1, 16, false, 4097, 1, 2, 2, 16, 8194},
    {"product wraps to 0", 2048, 1, 32, false, 2048, 1, 0, 0, 32, 8192},
    {"channels above 16 bits", 65537, 1, 16, false, 1, 1, 2, 2, 16, 131074},
};

TEST_F(WaveFile, HeaderShowsTheFormat) {
    std::vector<char> frame(200000);
    for (const FormatCase& c : kFormats) {
        SCOPED_TRACE(c.name);
        CWaveWriter writer(Path("a").c_str(), c.channels, c.sampleRate, c.bits, c.useFloat);
        ASSERT_EQ(writer.Open(), 0);
        ASSERT_EQ(writer.WriteSamples(frame.data(), 1), 0);
        ASSERT_EQ(writer.Close(), 0);
        const std::string bytes = Bytes("a");
        const size_t header = c.useFloat ? 80 : 44;
        ASSERT_EQ(bytes.size(), header + c.wantFrame);
        EXPECT_EQ(U16(bytes, 20), c.useFloat ? 3u : 1u);
        EXPECT_EQ(U16(bytes, 22), c.wantChannels);
        EXPECT_EQ(U32(bytes, 24), c.wantRate);
        EXPECT_EQ(U32(bytes, 28), c.wantByteRate);
        EXPECT_EQ(U16(bytes, 32), c.wantAlign);
        EXPECT_EQ(U16(bytes, 34), c.wantBits);
        EXPECT_EQ(U32(bytes, header - 4), c.wantFrame);
    }
}

TEST_F(WaveFile, WriterNeedsAnOpenFile) {
    char frame[4] = {};
    CWaveWriter writer(Path("a").c_str(), 2, 8000, 16, false);
    EXPECT_EQ(writer.WriteSamples(frame, 1), -1);
    EXPECT_EQ(WriteSamplesEx(&writer, frame, 1), -1);
    EXPECT_EQ(WriteSamplesEx(nullptr, frame, 1), -1);
    EXPECT_EQ(writer.Close(), -1);
    ASSERT_EQ(writer.Open(), 0);
    EXPECT_EQ(writer.Close(), 0);
    EXPECT_EQ(writer.Close(), -1);
    EXPECT_EQ(writer.WriteSamples(frame, 1), -1);
}

TEST_F(WaveFile, WriterThatCannotCreateItsFile) {
    for (const std::string& name : {Path("missing/a"), m_folder.Path().string(), ""s}) {
        SCOPED_TRACE(name);
        char frame[4] = {};
        CWaveWriter writer(name.c_str(), 2, 8000, 16, false);
        EXPECT_EQ(writer.Open(), -1);
        EXPECT_EQ(writer.WriteSamples(frame, 1), -1);
        EXPECT_EQ(writer.Close(), -1);
    }
    CWaveWriter unnamed(nullptr, 2, 8000, 16, false);
    EXPECT_EQ(unnamed.Open(), -1);
}

TEST_F(WaveFile, WriterStartsAgainAfterClose) {
    char samples[] = "ABCDEFGHIJKLMNOP";
    CWaveWriter writer(Path("a").c_str(), 2, 44100, 16, false);
    for (const unsigned frames : {3u, 4u}) {
        ASSERT_EQ(writer.Open(), 0);
        ASSERT_EQ(writer.WriteSamples(samples, frames), 0);
        ASSERT_EQ(writer.Close(), 0);
    }
    EXPECT_EQ(Bytes("a"), kPcmStereo + "ABCDEFGHIJKLMNOP");
}

TEST_F(WaveFile, NothingIsWrittenFromNowhere) {
    CWaveWriter writer(Path("a").c_str(), 2, 44100, 16, false);
    ASSERT_EQ(writer.Open(), 0);
    EXPECT_EQ(writer.WriteSamples(nullptr, 4), 0);
    ASSERT_EQ(writer.Close(), 0);
    EXPECT_EQ(Bytes("a"), WithoutSamples(kPcmStereo, 36));
}

// ---- the fields, which hosts find by their offsets

template <class T, class Object>
T Field(const Object& object, size_t offset) {
    T value;
    std::memcpy(&value, reinterpret_cast<const char*>(&object) + offset, sizeof value);
    return value;
}

constexpr size_t kName = 8, kFormat = 264, kDataBytes = 284;

TEST_F(WaveFile, WriterKeepsItsFieldsInPlace) {
    char samples[24] = {};
    CWaveWriter writer(Path("a").c_str(), 2, 48000, 24, true);
    EXPECT_EQ(Field<FILE*>(writer, 0), nullptr);
    EXPECT_STREQ(reinterpret_cast<const char*>(&writer) + kName, Path("a").c_str());
    EXPECT_EQ(Field<int32_t>(writer, kDataBytes), 0);
    EXPECT_EQ(Field<int32_t>(writer, 288), 2);
    EXPECT_EQ(Field<int32_t>(writer, 292), 48000);
    EXPECT_EQ(Field<int32_t>(writer, 296), 32);
    EXPECT_EQ(Field<bool>(writer, 300), true);
    ASSERT_EQ(writer.Open(), 0);
    ASSERT_EQ(writer.WriteSamples(samples, 3), 0);
    EXPECT_NE(Field<FILE*>(writer, 0), nullptr);
    EXPECT_EQ(Field<uint16_t>(writer, kFormat), 0u); // the tag goes to the file only
    EXPECT_EQ(Field<uint16_t>(writer, kFormat + 2), 2u);
    EXPECT_EQ(Field<uint32_t>(writer, kFormat + 4), 48000u);
    EXPECT_EQ(Field<uint32_t>(writer, kFormat + 8), 384000u);
    EXPECT_EQ(Field<uint16_t>(writer, kFormat + 12), 8u);
    EXPECT_EQ(Field<uint16_t>(writer, kFormat + 14), 32u);
    EXPECT_EQ(Field<uint16_t>(writer, kFormat + 16), 0u);
    EXPECT_EQ(Field<int32_t>(writer, kDataBytes), 24);
    ASSERT_EQ(writer.Close(), 0);
    EXPECT_EQ(Field<FILE*>(writer, 0), nullptr);
    EXPECT_EQ(Field<int32_t>(writer, kDataBytes), 0);
}

TEST_F(WaveFile, DataSizeCountsWhatAFullDiskRefuses) {
    std::vector<char> block(20000);
    CWaveWriter writer("/dev/full", 1, 8000, 16, false);
    ASSERT_EQ(writer.Open(), 0);
    EXPECT_EQ(writer.WriteSamples(block.data(), 10000), 0);
    EXPECT_EQ(Field<int32_t>(writer, kDataBytes), 20000);
    EXPECT_EQ(writer.Close(), 0);
}

void SetDataBytes(CWaveWriter& writer, int32_t count) {
    std::memcpy(reinterpret_cast<char*>(&writer) + kDataBytes, &count, sizeof count);
}

TEST_F(WaveFile, NothingIsWrittenPastTheCountsRange) {
    char samples[] = "ABCDEFGHIJKLMNOP";
    CWaveWriter writer(Path("a").c_str(), 2, 44100, 16, false);
    ASSERT_EQ(writer.Open(), 0);
    SetDataBytes(writer, INT32_MAX - 7); // as if as much had been written
    EXPECT_EQ(writer.WriteSamples(samples, 1), 0);
    EXPECT_EQ(writer.WriteSamples(samples + 4, 1), 0); // passes the range
    EXPECT_EQ(writer.WriteSamples(samples + 8, 1), 0);
    EXPECT_EQ(writer.Close(), 0);
    const std::string bytes = Bytes("a");
    EXPECT_EQ(bytes.substr(44), "ABCDEFGH");
    EXPECT_EQ(U32(bytes, 4), 0x80000024u);
    EXPECT_EQ(U32(bytes, 40), 0x80000000u);
}

TEST_F(WaveFile, OpenCountsFromTheStart) {
    char samples[] = "ABCDEFGHIJKLMNOP";
    CWaveWriter writer(Path("a").c_str(), 2, 44100, 16, false);
    ASSERT_EQ(writer.Open(), 0);
    ASSERT_EQ(writer.WriteSamples(samples, 2), 0);
    FILE* const forgotten = Field<FILE*>(writer, 0); // the second Open() lets go of it, still open
    ASSERT_EQ(writer.Open(), 0);
    EXPECT_EQ(std::fclose(forgotten), 0);
    std::filesystem::resize_file(Path("a"), 0); // without what the forgotten stream still wrote
    ASSERT_EQ(writer.WriteSamples(samples, 4), 0);
    ASSERT_EQ(writer.Close(), 0);
    EXPECT_EQ(Bytes("a"), kPcmStereo + "ABCDEFGHIJKLMNOP");
}

// ---- what the reader accepts

/// A plain header for 16-bit stereo; the sizes in it are nonsense on purpose.
const std::string kHeader = "RIFF\xFF\xFF\xFF\xFFWAVE"
                            "fmt \x77\x77\x77\x77"             // chunk size
                            "\x55\x00\x02\x00"                 // format tag, 2 channels
                            "\x40\x1F\x00\x00\x00\x7D\x00\x00" // 8000 frames, 32000 bytes per second
                            "\x04\x00\x10\x00"                 // block align 4, 16 bits
                            "data\x00\x00\x00\x00"s;           // data size

std::string ReadAll(CWaveReader& reader, unsigned frames, size_t frameBytes) {
    std::string bytes(frames * frameBytes, '\0');
    const int count = reader.ReadSamples(bytes.data(), frames);
    EXPECT_GE(count, 0);
    bytes.resize(count < 0 ? 0 : static_cast<size_t>(count) * frameBytes);
    return bytes;
}

TEST_F(WaveFile, ReadsToTheEndOfTheFileWhateverTheSizesSay) {
    CWaveReader reader(Write("a", kHeader + "ABCDEFGHIJKLMNOPxy").c_str());
    ASSERT_EQ(reader.Open(), 0);
    EXPECT_EQ(ReadAll(reader, 1, 4), "ABCD");
    EXPECT_EQ(ReadAll(reader, 10, 4), "EFGHIJKLMNOP"); // the two bytes are no whole frame
    EXPECT_EQ(ReadAll(reader, 10, 4), "");
    EXPECT_EQ(reader.Rewind(), 0);
    EXPECT_EQ(ReadAll(reader, 1, 4), "ABCD");
    EXPECT_EQ(reader.ReadSamples(nullptr, 1), 0);
    EXPECT_EQ(reader.Close(), 9);
}

TEST_F(WaveFile, ReaderKeepsItsFieldsInPlace) {
    CWaveReader reader(Write("a", kHeader).c_str());
    EXPECT_EQ(Field<FILE*>(reader, 0), nullptr);
    EXPECT_STREQ(reinterpret_cast<const char*>(&reader) + kName, Path("a").c_str());
    const char* const fields = reinterpret_cast<const char*>(&reader);
    EXPECT_EQ(std::string(fields + kFormat, 18), std::string(18, '\0'));
    EXPECT_EQ(std::string(fields + 284, 12), std::string(12, '\0'));
    ASSERT_EQ(reader.Open(), 0);
    EXPECT_EQ(Field<uint16_t>(reader, kFormat), 0u);
    EXPECT_EQ(Field<uint16_t>(reader, kFormat + 2), 2u);
    EXPECT_EQ(Field<uint32_t>(reader, kFormat + 4), 8000u);
    EXPECT_EQ(Field<uint32_t>(reader, kFormat + 8), 32000u);
    EXPECT_EQ(Field<uint16_t>(reader, kFormat + 12), 4u);
    EXPECT_EQ(Field<uint16_t>(reader, kFormat + 14), 16u);
    EXPECT_EQ(Field<uint16_t>(reader, kFormat + 16), 0u);
    EXPECT_EQ(Field<int32_t>(reader, 284), 2);
    EXPECT_EQ(Field<int32_t>(reader, 288), 8000);
    EXPECT_EQ(Field<int32_t>(reader, 292), 16);
    EXPECT_EQ(reader.Close(), 9);
    EXPECT_EQ(Field<FILE*>(reader, 0), nullptr);
}

TEST_F(WaveFile, ReaderNeedsAnOpenFile) {
    char frame[4];
    CWaveReader reader(Write("a", kHeader).c_str());
    EXPECT_EQ(reader.ReadSamples(frame, 1), -1);
    EXPECT_EQ(reader.Rewind(), -1);
    EXPECT_EQ(reader.Close(), -1);
    ASSERT_EQ(reader.Open(), 0);
    EXPECT_EQ(reader.ReadSamples(frame, 1), 0);
    EXPECT_EQ(reader.Close(), 9);
    EXPECT_EQ(reader.Close(), -1);
    EXPECT_EQ(reader.ReadSamples(frame, 1), -1);
}

struct FrameCase {
    const char* name;
    char channels, bits;
    size_t wantFrame;
};
constexpr FrameCase kFrames[] = {
    {"16-bit mono", 1, 16, 2},   {"16-bit stereo", 2, 16, 4}, {"8-bit mono", 1, 8, 4},
    {"8-bit stereo", 2, 8, 8},   {"24-bit mono", 1, 24, 4},   {"24-bit stereo", 2, 24, 8},
    {"32-bit stereo", 2, 32, 8}, {"15-bit mono", 1, 15, 4},   {"0-bit mono", 1, 0, 4},
};

TEST_F(WaveFile, FramesFollowTheHeader) {
    for (const FrameCase& c : kFrames) {
        SCOPED_TRACE(c.name);
        std::string file = kHeader + std::string(48, 'x');
        file[22] = c.channels;
        file[34] = c.bits;
        CWaveReader reader(Write("a", file).c_str());
        ASSERT_EQ(reader.Open(), 0);
        char buffer[64];
        EXPECT_EQ(reader.ReadSamples(buffer, 3), 3);
        EXPECT_EQ(reader.ReadSamples(buffer, static_cast<unsigned>(64 / c.wantFrame)),
                  static_cast<int>(48 / c.wantFrame) - 3);
        EXPECT_EQ(reader.Close(), 9);
    }
}

TEST_F(WaveFile, HeaderWithoutChannelsHasNoFrames) {
    std::string file = kHeader + "ABCD";
    file[22] = 0;
    CWaveReader reader(Write("a", file).c_str());
    ASSERT_EQ(reader.Open(), 0);
    char buffer[4];
    EXPECT_EQ(reader.ReadSamples(buffer, 1), 0);
    EXPECT_EQ(reader.Close(), 9);
}

struct RejectedCase {
    const char* name;
    std::string file;
};
const RejectedCase kRejected[] = {
    {"empty file", ""},
    {"text", "no sound at all, but more than forty-four bytes of it"},
    {"cut before the data tag's end", kHeader.substr(0, 39)},
    {"RIFF", "RIFX" + kHeader.substr(4)},
    {"WAVE", kHeader.substr(0, 8) + "WAVF" + kHeader.substr(12)},
    {"fmt", kHeader.substr(0, 12) + "fmt\0"s + kHeader.substr(16)},
    {"data", kHeader.substr(0, 36) + "fact" + kHeader.substr(40)},
    {"fmt chunk of 18 bytes", kHeader.substr(0, 36) + "\0\0"s + kHeader.substr(36) + "ABCD"},
    {"LIST chunk before the data",
     kHeader.substr(0, 36) + "LIST\x04\0\0\0INFO"s + kHeader.substr(36) + "ABCD"},
    {"the floating-point header", kFloatStereo + "ABCDEFGHIJKLMNOP"},
};

TEST_F(WaveFile, RefusesOtherLayouts) {
    for (const RejectedCase& c : kRejected) {
        SCOPED_TRACE(c.name);
        CWaveReader reader(Write("a", c.file).c_str());
        char frame[4];
        EXPECT_EQ(reader.Open(), -1);
        EXPECT_EQ(reader.ReadSamples(frame, 1), -1);
        EXPECT_EQ(reader.Close(), -1);
    }
}

TEST_F(WaveFile, OpensAHeaderThatLacksItsDataSize) {
    for (const size_t length : {40u, 41u, 43u, 44u}) {
        SCOPED_TRACE(length);
        CWaveReader reader(Write("a", kHeader.substr(0, length)).c_str());
        EXPECT_EQ(reader.Open(), 0);
        EXPECT_EQ(ReadAll(reader, 1, 4), "");
        EXPECT_EQ(reader.Close(), 9);
    }
}

TEST_F(WaveFile, ShortFileIsRefusedAfterAGoodOneToo) {
    CWaveReader reader(Write("a", kHeader + "ABCD").c_str());
    ASSERT_EQ(reader.Open(), 0);
    ASSERT_EQ(reader.Close(), 9);
    Write("a", "RIFF");
    EXPECT_EQ(reader.Open(), -1);
    EXPECT_EQ(reader.Close(), -1);
}

TEST_F(WaveFile, ReaderThatCannotOpenItsFile) {
    for (const std::string& name : {Path("missing"), m_folder.Path().string(), ""s}) {
        SCOPED_TRACE(name);
        CWaveReader reader(name.c_str());
        EXPECT_EQ(reader.Open(), -1);
        EXPECT_EQ(reader.Rewind(), -1);
    }
    CWaveReader unnamed(nullptr);
    EXPECT_EQ(unnamed.Open(), -1);
}

TEST_F(WaveFile, WrittenSamplesReadBack) {
    std::string samples;
    for (int i = 0; i < 4000; ++i) samples += static_cast<char>(i * 7);
    for (const int bits : {16, 32}) {
        SCOPED_TRACE(bits);
        const size_t frameBytes = bits == 16 ? 4 : 8;
        const auto frames = static_cast<unsigned>(samples.size() / frameBytes);
        CWaveWriter writer(Path("a").c_str(), 2, 44100, bits, false);
        ASSERT_EQ(writer.Open(), 0);
        ASSERT_EQ(writer.WriteSamples(samples.data(), frames), 0);
        ASSERT_EQ(writer.Close(), 0);
        CWaveReader reader(Path("a").c_str());
        ASSERT_EQ(reader.Open(), 0);
        EXPECT_EQ(ReadAll(reader, frames + 1, frameBytes), samples);
        EXPECT_EQ(reader.Close(), 9);
    }
}

// ---- names

TEST_F(WaveFile, NamesOf255CharactersFit) {
    const std::string file = Write("a", kHeader);
    std::string name = file; // slashes in front of a path do not change it
    name.insert(0, 255 - name.size(), '/');
    CWaveReader reader(name.c_str());
    EXPECT_EQ(reader.Open(), 0);
    EXPECT_EQ(reader.Close(), 9);
    CWaveWriter writer(name.c_str(), 2, 44100, 16, false);
    EXPECT_EQ(writer.Open(), 0);
    EXPECT_EQ(writer.Close(), 0);
    EXPECT_EQ(Bytes("a"), WithoutSamples(kPcmStereo, 36));
}

TEST(WaveFileDeathTest, LongerNamesEndTheProcess) {
    const std::string name(256, 'n');
    EXPECT_EXIT({ CWaveReader reader(name.c_str()); }, testing::KilledBySignal(SIGABRT),
                "buffer overflow detected");
    EXPECT_EXIT({ CWaveWriter writer(name.c_str(), 2, 44100, 16, false); }, testing::KilledBySignal(SIGABRT),
                "buffer overflow detected");
}

// ---- files of another program

TEST_F(WaveFile, ReadsWhatSoxWrites) {
    struct Case {
        const char* arguments;
        size_t sampleBytes; ///< of the file
    };
    for (const Case& c : {Case{"-t wav -b 16", 2}, Case{"-t wav -e unsigned -b 8", 1},
                          Case{"-t wavpcm -b 24", 3}, Case{"-t wavpcm -b 32", 4}}) {
        SCOPED_TRACE(c.arguments);
        CWaveReader reader(Sox("a.wav", c.arguments).c_str());
        ASSERT_EQ(reader.Open(), 0);
        const std::string samples = Bytes("a.wav").substr(44);
        ASSERT_EQ(samples.size(), 80 * 2 * c.sampleBytes);
        const size_t frameBytes = c.sampleBytes == 2 ? 4 : 8;
        const std::string whole = samples.substr(0, samples.size() / frameBytes * frameBytes);
        EXPECT_EQ(ReadAll(reader, 1000, frameBytes), whole);
        EXPECT_EQ(reader.Rewind(), 0);
        EXPECT_EQ(ReadAll(reader, 1, frameBytes), whole.substr(0, frameBytes));
        EXPECT_EQ(reader.Close(), 9);
    }
}

TEST_F(WaveFile, RefusesWhatSoxWritesWithOtherHeaders) {
    for (const char* arguments : {"-t wav -b 24", "-t wav -e floating-point -b 32", "-t wav -e a-law"}) {
        SCOPED_TRACE(arguments);
        CWaveReader reader(Sox("a.wav", arguments).c_str());
        EXPECT_EQ(reader.Open(), -1);
        EXPECT_EQ(reader.Close(), -1);
    }
}

} // namespace
