#pragma once

#include "host/Samples.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sndfile.h>
#include <string>
#include <vector>

namespace vrx::tool {

/// The name that stands for standard input or standard output.
inline constexpr char kStandardStream[] = "-";

/// Reads any sound file that libsndfile knows, as interleaved words. From a pipe it reads no further ahead than it
/// was asked to.
class AudioReader {
public:
    /// path   "-": standard input. Throws Failure when it cannot be opened or is no sound file.
    explicit AudioReader(const std::string& path);

    unsigned Channels() const { return static_cast<unsigned>(m_info.channels); }
    int SampleRate() const { return m_info.samplerate; }
    /// As the file's header says; 0 when it does not say.
    std::uint64_t Frames() const;
    bool Is16Bit() const { return (m_info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16; }

    /// Reads up to `frames` frames; fewer only at the end. Throws Failure where the file is damaged.
    std::size_t Read(std::uint32_t* words, std::size_t frames, host::SampleFormat kind);

private:
    struct Close {
        void operator()(SNDFILE* file) const { sf_close(file); }
    };

    std::string m_path;
    SF_INFO m_info{};
    std::unique_ptr<SNDFILE, Close> m_file;
    std::uint64_t m_framesRead = 0;
    std::vector<double> m_samples;
};

/// How samples are stored in the file.
enum class SampleStorage { kPcm16, kPcm32, kFloat };

struct AudioFormat {
    unsigned channels = 0;
    int sampleRate = 0;
    SampleStorage samples = SampleStorage::kPcm16;
};

/// Writes one kind of file; what `AudioWriter` uses beneath its temporary name.
class SampleSink {
public:
    virtual ~SampleSink() = default;
    virtual bool Write(const std::uint32_t* words, std::size_t count, host::SampleFormat kind) = 0;
    /// Completes the file; false when not everything reached it.
    virtual bool Close() = 0;
};

/// Writes a sound file, or to standard output a WAV file of unknown length, block by block. A file is written under a temporary name in the same folder; `Finish` gives it its own name, and
/// without `Finish` nothing of it stays. The kind of file follows from the ending: PCM .wav is written by
/// the toolkit's CWaveWriter; float .wav and .flac, .aif, .aiff, .au, .caf, .w64, .rf64, .ogg and .opus by
/// libsndfile. FLAC holds 24 bits where 32 are asked for; .ogg and .opus have their own sample format.
class AudioWriter {
public:
    /// Throws Failure when the ending is unknown, when the file exists and `overwrite` is false, when it
    /// exists and is no ordinary file, or when nothing can be written there.
    AudioWriter(const std::string& path, const AudioFormat& format, bool overwrite);

    /// Writes a WAV file of unknown length to `descriptor`, which stays the caller's.
    AudioWriter(int descriptor, const AudioFormat& format);
    ~AudioWriter();
    AudioWriter(const AudioWriter&) = delete;
    AudioWriter& operator=(const AudioWriter&) = delete;

    /// Throws Failure when `path` could not be written to under these conditions; for a check before a
    /// long run that `frames` frames fit into this kind of file. "-" holds anything.
    static void Check(const std::string& path, const AudioFormat& format, bool overwrite,
                      std::uint64_t frames);

    void Write(const std::uint32_t* words, std::size_t frames, host::SampleFormat kind);
    /// Completes the file and renames it. Throws Failure, for example when the disk is full.
    void Finish();

private:
    [[noreturn]] void Fail(const std::string& reason) const;

    std::string m_path;
    std::string m_temporary; // "" once it is gone
    AudioFormat m_format;
    bool m_overwrite = false;
    int m_fd = -1; // the file's; -1 for a stream
    std::uint64_t m_framesWritten = 0;
    std::unique_ptr<SampleSink> m_sink;
};

} // namespace vrx::tool
