#include "tools/audio/AudioFile.h"

#include "tests/support/FolderTest.h"
#include "tests/tools/VrxRun.h"
#include "tools/program/Errors.h"

#include <bit>
#include <filesystem>

namespace {

using namespace vrx;
using namespace vrx::tool;

class AudioFile : public FolderTest {
protected:
    template <class Call>
    static std::string FailureOf(const Call& call) {
        try {
            call();
            return "";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code, kFileFailed);
            return failure.message;
        }
    }
};

constexpr std::uint32_t Word(float sample) {
    return std::bit_cast<std::uint32_t>(sample);
}

TEST_F(AudioFile, ReadsFramesAsWordsOfEitherKind) {
    const std::string path = Write("in.wav", Wav16(2, {16384, -16384, 1, 0, -32768, 32767}));
    AudioReader floats(path);
    EXPECT_EQ(floats.Channels(), 2U);
    EXPECT_EQ(floats.SampleRate(), 8000);
    EXPECT_EQ(floats.Frames(), 3U);
    EXPECT_TRUE(floats.Is16Bit());
    std::uint32_t words[8] = {};
    EXPECT_EQ(floats.Read(words, 2, host::SampleFormat::kF32), 2U);
    EXPECT_EQ(words[0], Word(0.5F));
    EXPECT_EQ(words[1], Word(-0.5F));
    EXPECT_EQ(floats.Read(words, 2, host::SampleFormat::kF32), 1U) << "fewer only at the end";
    EXPECT_EQ(floats.Read(words, 2, host::SampleFormat::kF32), 0U);

    AudioReader integers(path);
    EXPECT_EQ(integers.Read(words, 3, host::SampleFormat::kS32), 3U);
    EXPECT_EQ(words[0], 0x40000000U);
    EXPECT_EQ(words[4], 0x80000000U);
}

TEST_F(AudioFile, SaysWhyItCannotRead) {
    EXPECT_EQ(FailureOf([&] { AudioReader reader(Path("none.wav")); }),
              Path("none.wav") + ": cannot be read: No such file or directory");
    const std::string text = Write("text.wav", "no sound");
    EXPECT_EQ(FailureOf([&] { AudioReader reader(text); }).rfind(text + ": cannot be read as audio: ", 0),
              0U);
}

TEST_F(AudioFile, GivesAFileItsNameWhenItIsFinished) {
    const std::uint32_t words[] = {Word(0.5F), Word(-0.5F)};
    {
        AudioWriter writer(Path("out.wav"), {1, 8000, SampleStorage::kPcm16}, false);
        writer.Write(words, 2, host::SampleFormat::kF32);
        EXPECT_FALSE(std::filesystem::exists(Path("out.wav")));
        writer.Finish();
    }
    EXPECT_EQ(Bytes("out.wav"), Wav16(1, {16384, -16384}));
    {
        AudioWriter writer(Path("never.wav"), {1, 8000, SampleStorage::kPcm16}, false);
        writer.Write(words, 2, host::SampleFormat::kF32);
    }
    EXPECT_EQ(m_folder.Count(), 1U) << "without Finish nothing stays";
}

TEST_F(AudioFile, KeepsWhatCameIntoBeingDuringTheRun) {
    AudioWriter writer(Path("out.wav"), {1, 8000, SampleStorage::kPcm16}, false);
    Write("out.wav", "precious");
    EXPECT_EQ(FailureOf([&] { writer.Finish(); }), Path("out.wav") + ": cannot be put in place: File exists");
    EXPECT_EQ(Bytes("out.wav"), "precious");
}

TEST_F(AudioFile, ChecksBeforeALongRun) {
    struct Case {
        const char* name;
        AudioFormat format;
        std::uint64_t frames;
        const char* want; // "" when it may be written
    };
    Write("taken.wav", "precious");
    const Case cases[] = {
        {"ok.wav", {2, 48000, SampleStorage::kPcm16}, 1000, ""},
        {"-", {2, 48000, SampleStorage::kFloat}, UINT64_MAX, ""},
        {"x.mp3x",
         {2, 48000, SampleStorage::kPcm16},
         0,
         "the ending says no known kind of file: use one of .wav"},
        {"x.flac",
         {2, 48000, SampleStorage::kFloat},
         0,
         "this kind of file cannot hold 2 channels at 48000 Hz"},
        {"x.wav", {2, 48000, SampleStorage::kPcm16}, 536870912, "would be longer than the 2 GiB"},
        {"x.w64", {2, 48000, SampleStorage::kPcm16}, 536870912, ""},
        {"taken.wav", {2, 48000, SampleStorage::kPcm16}, 0, "exists already"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = std::string(c.name) == "-" ? "-" : Path(c.name);
        const std::string message = FailureOf([&] { AudioWriter::Check(path, c.format, false, c.frames); });
        if (*c.want == '\0')
            EXPECT_EQ(message, "");
        else
            EXPECT_EQ(message.rfind(path + ": " + c.want, 0), 0U) << message;
    }
}

} // namespace
