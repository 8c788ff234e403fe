#include "tools/audio/AudioFile.h"

#include "base/WaveFile.h"
#include "tools/audio/WaveStream.h"
#include "tools/program/Errors.h"
#include "tools/program/Interrupt.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace vrx::tool {

namespace {

namespace fs = std::filesystem;

constexpr char kStandardInput[] = "standard input"; // in messages

struct Ending {
    const char* text;
    int format; // libsndfile's: the kind of file, and the sample format where the kind has only one
};
constexpr Ending kEndings[] = {
    {".wav", SF_FORMAT_WAV},
    {".flac", SF_FORMAT_FLAC},
    {".aif", SF_FORMAT_AIFF},
    {".aiff", SF_FORMAT_AIFF},
    {".au", SF_FORMAT_AU},
    {".caf", SF_FORMAT_CAF},
    {".w64", SF_FORMAT_W64},
    {".rf64", SF_FORMAT_RF64},
    {".ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
    {".opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
};

// CWaveWriter counts the sample bytes in a signed 32-bit number and stops writing beyond it.
constexpr std::uint64_t kMostWaveBytes = std::numeric_limits<std::int32_t>::max();
constexpr std::uint64_t kWaveHeaderBytes = 44;

[[noreturn]] void FailFile(const std::string& path, const std::string& reason) {
    throw Failure{kFileFailed, path + ": " + reason};
}

/// libsndfile's format for a file name; throws Failure for an ending it does not know.
int FormatOf(const std::string& path, SampleStorage samples) {
    std::string ending = fs::path(path).extension().string();
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    std::string known;
    for (const Ending& entry : kEndings) {
        known += std::string(" ") + entry.text;
        if (ending != entry.text) continue;
        if ((entry.format & SF_FORMAT_SUBMASK) != 0) return entry.format;
        const bool flac = entry.format == SF_FORMAT_FLAC;
        switch (samples) {
        case SampleStorage::kPcm16:
            return entry.format | SF_FORMAT_PCM_16;
        case SampleStorage::kPcm32:
            return entry.format | (flac ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_32);
        case SampleStorage::kFloat:
            return entry.format | SF_FORMAT_FLOAT;
        }
    }
    FailFile(path, "the ending says no known kind of file: use one of" + known);
}

bool IsPcmWave(int format) {
    return (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV && (format & SF_FORMAT_SUBMASK) != SF_FORMAT_FLOAT;
}

std::uint64_t FrameBytes(const AudioFormat& format) {
    return std::uint64_t{format.channels} * (format.samples == SampleStorage::kPcm16 ? 2 : 4);
}

class WaveSink final : public SampleSink {
public:
    /// Writes through the descriptor's own path: CWaveWriter takes no name of more than 255 characters.
    WaveSink(int fd, const AudioFormat& format)
        : m_fd(fd), m_format(format),
          m_writer(("/proc/self/fd/" + std::to_string(fd)).c_str(), static_cast<int>(format.channels),
                   format.sampleRate, format.samples == SampleStorage::kPcm16 ? 16 : 32, false),
          m_open(m_writer.Open() == 0) {}
    ~WaveSink() override { m_writer.Close(); }
    WaveSink(const WaveSink&) = delete;
    WaveSink& operator=(const WaveSink&) = delete;

    bool Write(const std::uint32_t* words, std::size_t count, host::SampleFormat kind) override {
        m_bytes += count / m_format.channels * FrameBytes(m_format);
        if (!m_open || m_bytes > kMostWaveBytes) return false;
        const auto frames = static_cast<unsigned>(count / m_format.channels);
        if (m_format.samples == SampleStorage::kPcm16) {
            m_pcm16.resize(count);
            host::WordsToPcm16(words, count, kind, m_pcm16.data());
            return m_writer.WriteSamples(m_pcm16.data(), frames) == 0;
        }
        m_pcm32.resize(count);
        host::WordsToPcm32(words, count, kind, m_pcm32.data());
        return m_writer.WriteSamples(m_pcm32.data(), frames) == 0;
    }

    /// The writer does not report a full disk, the file's length does.
    bool Close() override {
        struct stat status = {};
        return m_writer.Close() == 0 && ::fstat(m_fd, &status) == 0 &&
               static_cast<std::uint64_t>(status.st_size) == kWaveHeaderBytes + m_bytes;
    }

private:
    int m_fd;
    AudioFormat m_format;
    CWaveWriter m_writer;
    bool m_open;
    std::uint64_t m_bytes = 0;
    std::vector<std::int16_t> m_pcm16;
    std::vector<std::int32_t> m_pcm32;
};

class SndfileSink final : public SampleSink {
public:
    SndfileSink(int fd, const AudioFormat& format, int kind) {
        SF_INFO info{};
        info.channels = static_cast<int>(format.channels);
        info.samplerate = format.sampleRate;
        info.format = kind;
        m_file = sf_open_fd(fd, SFM_WRITE, &info, SF_FALSE);
        m_samples = format.samples;
    }
    ~SndfileSink() override { Close(); }
    SndfileSink(const SndfileSink&) = delete;
    SndfileSink& operator=(const SndfileSink&) = delete;

    bool Write(const std::uint32_t* words, std::size_t count, host::SampleFormat kind) override {
        if (m_file == nullptr) return false;
        const auto items = static_cast<sf_count_t>(count);
        switch (m_samples) {
        case SampleStorage::kPcm16:
            m_pcm16.resize(count);
            host::WordsToPcm16(words, count, kind, m_pcm16.data());
            return sf_write_short(m_file, m_pcm16.data(), items) == items;
        case SampleStorage::kPcm32:
            m_pcm32.resize(count);
            host::WordsToPcm32(words, count, kind, m_pcm32.data());
            return sf_write_int(m_file, m_pcm32.data(), items) == items;
        case SampleStorage::kFloat:
            m_float.resize(count);
            host::WordsToFloat(words, count, kind, m_float.data());
            return sf_write_float(m_file, m_float.data(), items) == items;
        }
        return false;
    }

    bool Close() override {
        return sf_close(std::exchange(m_file, nullptr)) == 0; // answers a null file with an error
    }

private:
    SNDFILE* m_file = nullptr;
    SampleStorage m_samples;
    std::vector<std::int16_t> m_pcm16;
    std::vector<std::int32_t> m_pcm32;
    std::vector<float> m_float;
};

/// Where writing to `path` ends up: what symbolic links point to is replaced, not the link.
std::string Resolved(const std::string& path) {
    std::error_code error;
    const fs::path target = fs::canonical(path, error);
    return error ? path : target.string();
}

mode_t OrdinaryMode() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

} // namespace

AudioReader::AudioReader(const std::string& path)
    : m_path(path == kStandardStream ? kStandardInput : path),
      m_file(path == kStandardStream ? sf_open_fd(STDIN_FILENO, SFM_READ, &m_info, SF_FALSE)
                                     : sf_open(path.c_str(), SFM_READ, &m_info)) {
    if (m_file != nullptr) return;
    if (path != kStandardStream && ::access(path.c_str(), R_OK) != 0)
        FailFile(m_path, std::string("cannot be read: ") + std::strerror(errno));
    FailFile(m_path, std::string("cannot be read as audio: ") + sf_strerror(nullptr));
}

std::uint64_t AudioReader::Frames() const {
    // A pipe's header was written before its end was known.
    const bool known = m_path != kStandardInput && m_info.frames > 0 && m_info.frames < SF_COUNT_MAX;
    return known ? static_cast<std::uint64_t>(m_info.frames) : 0;
}

std::size_t AudioReader::Read(std::uint32_t* words, std::size_t frames, host::SampleFormat kind) {
    m_samples.resize(frames * Channels());
    const sf_count_t got = sf_readf_double(m_file.get(), m_samples.data(), static_cast<sf_count_t>(frames));
    if (sf_error(m_file.get()) != SF_ERR_NO_ERROR)
        FailFile(m_path,
                 "is damaged after frame " + std::to_string(m_framesRead) + ": " + sf_strerror(m_file.get()));
    const auto count = static_cast<std::size_t>(got) * Channels();
    for (std::size_t i = 0; i < count; ++i) words[i] = host::WordFromSample(m_samples[i], kind);
    m_framesRead += static_cast<std::uint64_t>(got);
    return static_cast<std::size_t>(got);
}

void AudioWriter::Check(const std::string& path, const AudioFormat& format, bool overwrite,
                        std::uint64_t frames) {
    if (path == kStandardStream) return;
    const int kind = FormatOf(path, format.samples);
    SF_INFO info{};
    info.channels = static_cast<int>(format.channels);
    info.samplerate = format.sampleRate;
    info.format = kind;
    if (sf_format_check(&info) == SF_FALSE)
        FailFile(path, "this kind of file cannot hold " + std::to_string(format.channels) + " channels at " +
                           std::to_string(format.sampleRate) +
                           " Hz with these --bits: choose another ending");
    if (IsPcmWave(kind) && frames > kMostWaveBytes / FrameBytes(format))
        FailFile(path, "would be longer than the 2 GiB of a PCM WAV file: use .w64, .rf64, .caf or .flac");

    struct stat status = {};
    if (::stat(path.c_str(), &status) < 0) return;
    if (!S_ISREG(status.st_mode)) FailFile(path, "exists and is no ordinary file: choose another name");
    if (!overwrite) FailFile(path, "exists already: choose another name, or overwrite it with --force");
}

AudioWriter::AudioWriter(const std::string& path, const AudioFormat& format, bool overwrite)
    : m_path(path), m_format(format), m_overwrite(overwrite) {
    Check(path, format, overwrite, 0);
    fs::path temporary = fs::path(Resolved(path)).replace_filename(".vrx-XXXXXX");
    std::string name = temporary.string();
    m_fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (m_fd < 0) Fail(std::string("cannot be created: ") + std::strerror(errno));
    m_temporary = name;
    RemoveOnExit(m_temporary.c_str());

    const int kind = FormatOf(path, format.samples);
    if (IsPcmWave(kind))
        m_sink = std::make_unique<WaveSink>(m_fd, format);
    else
        m_sink = std::make_unique<SndfileSink>(m_fd, format, kind);
}

AudioWriter::AudioWriter(int descriptor, const AudioFormat& format)
    : m_path("standard output"), m_format(format), m_sink(std::make_unique<WaveStream>(descriptor, format)) {}

AudioWriter::~AudioWriter() {
    m_sink.reset();
    if (m_fd >= 0) ::close(m_fd);
    if (m_temporary.empty()) return;
    ::unlink(m_temporary.c_str());
    RemoveOnExit(nullptr);
}

void AudioWriter::Write(const std::uint32_t* words, std::size_t frames, host::SampleFormat kind) {
    if (!m_sink->Write(words, frames * m_format.channels, kind))
        Fail("cannot be written after frame " + std::to_string(m_framesWritten) + ": " +
             (m_fd >= 0 ? "is the disk full?" : "has the program behind it ended?"));
    m_framesWritten += frames;
}

void AudioWriter::Finish() {
    if (!m_sink->Close()) Fail("cannot be completed: is the disk full?");
    if (m_fd < 0) return;
    ::fchmod(m_fd, OrdinaryMode());
    const std::string target = Resolved(m_path);
    // Without leave to overwrite, a file that came into being during the run is kept. Some file systems
    // cannot promise that and refuse the flag.
    int failed = ::renameat2(AT_FDCWD, m_temporary.c_str(), AT_FDCWD, target.c_str(),
                             m_overwrite ? 0 : RENAME_NOREPLACE);
    if (failed != 0 && errno == EINVAL) failed = ::rename(m_temporary.c_str(), target.c_str());
    if (failed != 0) Fail(std::string("cannot be put in place: ") + std::strerror(errno));
    m_temporary.clear();
    RemoveOnExit(nullptr);
}

void AudioWriter::Fail(const std::string& reason) const {
    FailFile(m_path, reason);
}

} // namespace vrx::tool
