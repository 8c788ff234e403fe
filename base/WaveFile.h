#pragma once

#include "base/Export.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace vrx {

/// The fields of a RIFF/WAVE "fmt " chunk, in its order. The WAV classes keep the tag and the extra size at
/// 0.
struct WaveFormat {
    uint16_t formatTag = 0;
    uint16_t channels = 0;
    uint32_t samplesPerSecond = 0; ///< of each channel
    uint32_t bytesPerSecond = 0;
    uint16_t blockAlign = 0;
    uint16_t bitsPerSample = 0;
    uint16_t extraSize = 0;
};

} // namespace vrx

/// Reads the samples of RIFF/WAVE files with the plain header of 44 bytes ("RIFF", "WAVE", a "fmt " chunk of
/// 16 bytes, "data"). Any other layout is refused: a longer "fmt " chunk, another chunk before "data".
///
/// Samples are handed over as they stand in the file: little-endian, interleaved by channel. A frame is one
/// sample of each channel, and a sample takes 2 bytes where the header says 16 bits, 4 bytes in all other
/// cases, so that 8-bit and 24-bit files come as raw bytes in portions of 4.
///
/// The file is not closed with the object: call Close(). One object is for one thread at a time.
class VRX_EXPORT CWaveReader {
public:
    /// Keeps a copy of the file's name; nothing is opened. A name of 256 characters or more ends the process,
    /// a null one counts as empty (Open() then fails).
    CWaveReader(const char* name);

    /// Opens the file and reads its header. Returns 0, or -1 when the file cannot be opened or its header is
    /// not the plain one; no file is held then. Sizes, format tag and the sample format's plausibility are
    /// not checked. A file that is still open is forgotten without being closed.
    int Open();

    /// Closes the file. Returns 9 on success, which is no error, or -1 when none is open.
    int Close();

    /// Goes back to the first frame. Returns 0, or -1 when no file is open.
    int Rewind();

    /// Reads up to `frames` frames into `buffer`, which must have room for all of them.
    /// Returns the frames read: fewer when the file ends (the header's data size does not count), 0 for a
    /// null `buffer` or a header without channels; -1 when no file is open.
    int ReadSamples(void* buffer, unsigned int frames);

private:
    struct Layout;

    FILE* m_file = nullptr;
    char m_name[256] = {};
    vrx::WaveFormat m_format;
    int32_t m_channels = 0;
    int32_t m_sampleRate = 0;
    int32_t m_bits = 0;
};

/// Writes RIFF/WAVE files: integer PCM with the plain header of 44 bytes, or 32-bit floating point with a
/// header of 80 bytes.
///
/// Samples go to the file as they stand in memory: little-endian, interleaved by channel, 2 bytes each for 16
/// bits and 4 bytes for 32. Nothing is converted; errors of writing are not reported.
///
/// The file is not closed with the object: call Close(), which also completes the header.
/// One object is for one thread at a time.
class VRX_EXPORT CWaveWriter {
public:
    /// Keeps a copy of the file's name and the format; nothing is created. A name of 256 characters or more
    /// ends the process, a null one counts as empty (Open() then fails).
    ///
    /// channels     goes to the header as its low 16 bits; 0 or less: frames are empty
    /// sampleRate   frames per second
    /// bits         above 16: 32 bits per sample, else 16, so 24 means 32 and 8 means 16
    /// useFloat     whether the header says floating point; the samples' size comes from `bits` alone
    CWaveWriter(const char* name, int channels, int sampleRate, int bits, bool useFloat);

    /// Creates or empties the file and writes the header, with no samples yet. Returns 0, or -1 when the file
    /// cannot be created; no file is held then. A file that is still open is forgotten without being closed.
    int Open();

    /// Writes the final sizes into the header and closes the file. Returns 0, or -1 when none is open.
    int Close();

    /// Appends `frames` frames. Returns 0, or -1 when no file is open.
    /// The data size counts the bytes handed in, even if the disk is full. Once it has passed 2,147,483,647,
    /// nothing more is written and the result is still 0. A null `buffer` writes and counts nothing.
    int WriteSamples(void* buffer, unsigned int frames);

private:
    struct Layout;

    FILE* m_file = nullptr;
    char m_name[256] = {};
    vrx::WaveFormat m_format;
    int32_t m_dataBytes = 0; ///< since Open(); negative: the count has passed its range
    int32_t m_channels = 0;
    int32_t m_sampleRate = 0;
    int32_t m_bits = 0; ///< 16 or 32
    bool m_float = false;
};

/// CWaveWriter::WriteSamples() for callers that hold the writer as an untyped pointer; -1 for a null
/// `writer`.
VRX_EXPORT int WriteSamplesEx(void* writer, void* buffer, unsigned int frames);
