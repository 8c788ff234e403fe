#include "base/File2.h"

#include "base/internal/Blanks.h"

#undef NDEBUG // the constructors' assertions hold in every build
#include <cassert>

#include <cstdarg>
#include <cstring>
#include <exception>
#include <string_view>
#include <sys/single_threaded.h>
#include <utility>

/// Hosts built against the class rely on where its fields are.
struct File2::Layout {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static_assert(offsetof(File2, m_file) == 8);
    static_assert(offsetof(File2, m_owned) == 16);
    static_assert(sizeof(File2) == 24);
#pragma GCC diagnostic pop
};

namespace {

// The messages name the toolkit's source, not this file: callers rely on their wording.
void AssertNotNull(const void* argument, const char* expression, unsigned line, const char* function) {
    if (argument == nullptr) __assert_fail(expression, "BaseHelpers", line, function);
}

/// The result of `call`, or `failure` if it throws.
template <class Result, class Call>
Result Guarded(Result failure, Call call) {
    try {
        return call();
    } catch (...) {
        if (!std::current_exception()) throw; // the thread is being cancelled: it must go on unwinding
        return failure;
    }
}

/// Holds a stream's lock; without other threads there is nobody to lock out.
class StreamLock {
public:
    explicit StreamLock(FILE* file) : m_locked(__libc_single_threaded ? nullptr : file) {
        if (m_locked) flockfile(m_locked);
    }
    ~StreamLock() {
        if (m_locked) funlockfile(m_locked);
    }
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;

private:
    FILE* m_locked;
};

/// Takes what the stream has buffered, up to and including the first LF. May be empty; the bytes stay valid
/// until the next operation on the stream. This is the window that getc_unlocked() reads from.
std::string_view TakeBuffered(FILE* file) {
    char* const begin = file->_IO_read_ptr;
    if (begin == file->_IO_read_end) return {};
    const void* lf = std::memchr(begin, '\n', static_cast<size_t>(file->_IO_read_end - begin));
    file->_IO_read_ptr = lf ? begin + (static_cast<const char*>(lf) - begin) + 1 : file->_IO_read_end;
    return {begin, file->_IO_read_ptr};
}

/// Whether `text` is a whole line, given that it was read up to an LF or the end of the file.
bool IsLine(std::string_view text, bool anyLf) {
    return text.ends_with('\n') && (anyLf || text.ends_with("\r\n"));
}

/// Appends to `line` until it is a whole line. False when the file ends, or a read fails, before that.
bool ReadOn(FILE* file, std::string& line, bool anyLf) {
    while (!IsLine(line, anyLf)) {
        const int c = getc_unlocked(file); // fills the buffer when it is used up
        if (c == EOF) return false;
        line += static_cast<char>(c);
        if (c != '\n') line += TakeBuffered(file);
    }
    return true;
}

std::string_view WithoutEol(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    if (text.ends_with('\r')) text.remove_suffix(1);
    return text;
}

} // namespace

char* strNcpy(char* dst, const char* src, size_t n) {
    if (dst == nullptr || src == nullptr || n == 0) return dst;
    std::strncpy(dst, src, n);
    dst[n - 1] = '\0';
    return dst;
}

File2::File2() = default;

File2::File2(FILE* fh) : m_file(fh), m_owned(false) {
    AssertNotNull(fh, "fh", 68, "File2::File2(FILE*)");
}

File2::File2(const char* filename, const char* mode, int bufferSize) {
    constexpr const char* kFunction = "File2::File2(const char*, const char*, int)";
    AssertNotNull(filename, "filename", 78, kFunction);
    AssertNotNull(mode, "mode", 79, kFunction);
    if (open(filename, mode) && bufferSize >= 0) setBuffer(nullptr, static_cast<size_t>(bufferSize));
}

File2::~File2() {
    close();
}

bool File2::open(const char* name, const char* mode) {
    if (vrx::IsEmpty(name) || vrx::IsEmpty(mode)) return false;
    close();
    m_owned = true;
    m_file = Guarded<FILE*>(nullptr, [&] { return std::fopen(name, mode); });
    return m_file != nullptr;
}

void File2::close() {
    FILE* const file = std::exchange(m_file, nullptr);
    if (file && m_owned) Guarded(EOF, [&] { return std::fclose(file); });
}

int File2::tell() {
    if (!m_file) return -1;
    return Guarded(-1, [&] { return static_cast<int>(std::ftell(m_file)); });
}

int File2::seek(int offset, int whence) {
    if (!m_file) return -1;
    return Guarded(-1, [&] {
        // fseeko, as compilers assume that fseek never throws; its result shows in the position
        static_cast<void>(fseeko(m_file, offset, whence));
        return tell();
    });
}

long File2::getLength() {
    if (!m_file) return -1;
    const int position = tell();
    seek(0, SEEK_END);
    const int length = tell();
    seek(position, SEEK_SET);
    return length;
}

bool File2::flush() {
    if (!m_file) return true;
    return Guarded(false, [&] { return std::fflush(m_file) == 0; });
}

bool File2::setBuffer(void* buffer, size_t size) {
    if (!m_file) return true;
    return std::setvbuf(m_file, static_cast<char*>(buffer), _IOFBF, size) == 0;
}

int File2::writeChar(int c) {
    if (!m_file) return -1;
    return std::fputc(c, m_file);
}

size_t File2::read(void* buffer, size_t count) {
    if (!buffer || !m_file) return 0;
    return Guarded(size_t{0}, [&] { return std::fread(buffer, 1, count, m_file); });
}

long File2::printf(const char* format, ...) {
    if (vrx::IsEmpty(format) || !m_file) return 0;
    va_list args;
    va_start(args, format);
    const int written = Guarded(0, [&] { return __builtin___vfprintf_chk(m_file, 1, format, args); });
    va_end(args);
    return written;
}

bool File2::fgets(std::string& line, bool stripEol, bool anyLf) {
    if (!m_file) return false;
    const StreamLock lock(m_file);
    std::string_view text = TakeBuffered(m_file);
    bool ended = IsLine(text, anyLf);
    if (!ended) [[unlikely]] { // the stream's buffer does not hold the whole line
        line = text;
        ended = ReadOn(m_file, line, anyLf);
        text = line;
    }
    const bool found = !text.empty();
    line.assign(stripEol ? WithoutEol(text) : text);
    if (ended && !stripEol) line += '\n'; // the second LF of unstripped lines: callers rely on it
    return found;
}
