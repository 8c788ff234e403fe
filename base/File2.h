#pragma once

#include "base/Export.h"

#include <cstddef>
#include <cstdio>
#include <string>

/// Copies `src` into the `n` bytes at `dst` and always ends it with a NUL: a longer text is cut to n - 1
/// characters, behind a shorter one the rest of `dst` is filled with NULs.
///
/// Returns `dst`. Writes nothing when `dst` or `src` is null or `n` is 0. The two must not overlap.
VRX_EXPORT char* strNcpy(char* dst, const char* src, size_t n);

/// A C library stream that is closed with its object, or one that is only borrowed.
///
/// Every operation is safe without a stream (never opened, open failed, closed) and then gives the result
/// stated with it. Positions and lengths are `int`: beyond 2 GiB they are cut to their low 32 bits, and
/// getLength() does not find its way back. An exception that a stream's own callbacks (fopencookie) throw
/// becomes the operation's failure value; setBuffer, writeChar and fgets let it pass.
///
/// One object is for one thread at a time. A borrowed stream may be shared: each call locks it as the C
/// library does, and fgets holds the lock for its whole line.
class VRX_EXPORT File2 {
public:
    /// An object without a stream.
    File2();

    /// Borrows `fh`: it is never closed here and must live until close() or the end of this object.
    /// A null `fh` is a programming error and ends the process with an assertion message.
    File2(FILE* fh);

    /// Opens a file as open() does; a failed open leaves an object without a stream.
    ///
    /// bufferSize   0 or more: full buffering is asked for with setBuffer(nullptr, bufferSize) (glibc then
    ///              picks the size by itself); negative: the C library's default buffering
    ///
    /// A null `filename` or `mode` is a programming error and ends the process with an assertion message.
    File2(const char* filename, const char* mode, int bufferSize);

    /// Does what close() does.
    virtual ~File2();

    File2(const File2&) = delete;
    File2& operator=(const File2&) = delete;

    /// Closes the stream held so far, then opens `name` with fopen(3)'s `mode`; this object owns the new
    /// stream. Returns whether it is open; if it is not, no stream is held, the old one included.
    /// A null or empty `name` or `mode` gives false and leaves the present stream alone.
    bool open(const char* name, const char* mode);

    /// Closes an owned stream, lets go of a borrowed one. Nothing is held afterwards, even on an error.
    void close();

    /// The position in bytes, or -1 (no stream, or not seekable).
    int tell();

    /// Moves to `offset` bytes from `whence` (SEEK_SET, SEEK_CUR, SEEK_END).
    /// Returns the position then held, so a failed move gives the old one; -1 as tell().
    int seek(int offset, int whence);

    /// The file's length in bytes, or -1 as tell(). The position is kept.
    long getLength();

    /// Hands what is buffered to the system; false when that fails, true without a stream.
    bool flush();

    /// Asks for full buffering (setvbuf(3) with _IOFBF). To be called before the first read or write;
    /// `buffer` must outlive the stream's use, null lets the C library allocate one.
    /// False when the C library refuses, true without a stream.
    bool setBuffer(void* buffer, size_t size);

    /// Writes one byte. Returns it as 0 to 255, or -1 (no stream, or the write failed).
    int writeChar(int c);

    /// Reads up to `count` bytes. Returns how many arrived: fewer at end of file or on an error;
    /// 0 for a null `buffer` or without a stream.
    size_t read(void* buffer, size_t count);

    /// Writes printf(3)-formatted text. Returns the bytes written; a negative number as vfprintf(3) when the
    /// stream cannot be written; 0 for a null or empty `format` or without a stream.
    /// Formatting is checked: a %n in a format that lies in writable memory ends the process.
    long printf(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// Reads one line of any length, NUL bytes included.
    ///
    /// line       replaced, even by "" at end of file; untouched without a stream
    /// stripEol   true: the LF at the end and one CR before it are removed, as is a single CR that ends the
    ///            file. False: a line that an LF ended is returned with a second LF behind it
    ///            ("a\n" becomes "a\n\n"); the end of the file adds nothing
    /// anyLf      true: every LF ends a line; false: only CR LF does, and a bare LF is text
    ///
    /// Returns true with a line, a last one without terminator included; false when nothing was left to
    /// read, on a read error before the first byte, or without a stream.
    bool fgets(std::string& line, bool stripEol, bool anyLf);

private:
    struct Layout;

    FILE* m_file = nullptr; ///< null when no stream is held
    bool m_owned = true;    ///< whether close() closes the stream too
};
