#include "base/StringFormat.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

namespace String {
namespace {

constexpr size_t kBufferSize = 65'536;

// The layouts that `flags` selects; every other value is the American date and the 12-hour clock.
constexpr int kClockMask = 0x0F;
constexpr int kClock24 = 0x01;
constexpr int kDateMask = 0xF0;
constexpr int kDayFirst = 0x10;
constexpr int kYearFirst = 0x20;

constexpr const char* kUnknown = "UNKNOWN";

/// Room for a date and a time, whatever the numbers.
using Text = std::array<char, 80>;

// These put a part of a text at `out` and return its end.

char* PutNumber(char* out, int64_t number) {
    return std::to_chars(out, out + 20, number).ptr;
}

/// As printf's "%02d": a negative number fills the two places by itself.
char* PutTwoPlaces(char* out, int number) {
    if (number >= 0 && number < 10) *out++ = '0';
    return PutNumber(out, number);
}

char* PutDate(char* out, const tm& local, int flags) {
    const int64_t month = local.tm_mon + 1;
    if ((flags & kDateMask) == kYearFirst) {
        out = PutNumber(out, int64_t{1900} + local.tm_year);
        *out++ = '/';
        out = PutNumber(out, month);
        *out++ = '/';
        return PutNumber(out, local.tm_mday);
    }
    const bool dayFirst = (flags & kDateMask) == kDayFirst;
    out = PutNumber(out, dayFirst ? local.tm_mday : month);
    *out++ = '/';
    out = PutNumber(out, dayFirst ? month : local.tm_mday);
    *out++ = '/';
    return PutTwoPlaces(out, local.tm_year % 100);
}

/// The hour as the 12-hour clock shows it.
int HourOf12(int hour) {
    if (hour == 0) return 12;
    return hour > 12 ? hour - 12 : hour;
}

char* PutTime(char* out, const tm& local, int flags) {
    const bool clock24 = (flags & kClockMask) == kClock24;
    out = PutNumber(out, clock24 ? local.tm_hour : HourOf12(local.tm_hour));
    *out++ = ':';
    out = PutTwoPlaces(out, local.tm_min);
    *out++ = ':';
    out = PutTwoPlaces(out, local.tm_sec);
    if (clock24) return out;
    const char* const half = local.tm_hour > 12 ? " PM" : " AM"; // hour 12 takes AM: callers rely on it
    return std::copy_n(half, 3, out);
}

/// The local time, or nothing when its year is beyond what the C library can hold. As localtime(3), but with
/// a result of the caller's own.
std::optional<tm> LocalTime(time_t time) {
    tm local;
    ::tzset();
    if (::localtime_r(&time, &local) == nullptr) return std::nullopt;
    return local;
}

/// The C library's rendering of any format.
std::string Rendered(const char* format, va_list args) {
    char buffer[kBufferSize +
                1]; // one more than is ever returned, to tell a text that just fits from one too long
    char& pastLongest = buffer[kBufferSize];
    buffer[0] = '\0';
    pastLongest = 'x';
    const int length = std::vsnprintf(buffer, sizeof buffer, format, args);
    // A conversion that fails gives no length: behind too long a text it has put the terminating zero at the very end.
    const bool tooLong =
        length < 0 ? errno == EOVERFLOW || pastLongest == '\0' : static_cast<size_t>(length) >= kBufferSize;
    if (tooLong) std::abort(); // never a shortened text
    return buffer;
}

} // namespace

std::string Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = FormatV(format, args);
    va_end(args);
    return text;
}

std::string FormatV(const char* format, va_list args) {
    if (format == nullptr || *format == '\0') return {};
    return Rendered(format, args);
}

std::string FormatTime(time_t time, int flags) {
    const std::optional<tm> local = LocalTime(time);
    if (!local) return kUnknown;
    Text text;
    return {text.data(), PutTime(text.data(), *local, flags)};
}

std::string FormatDate(time_t time, int flags) {
    const std::optional<tm> local = LocalTime(time);
    if (!local) return kUnknown;
    Text text;
    return {text.data(), PutDate(text.data(), *local, flags)};
}

std::string FormatDateTime(time_t time, int flags) {
    // Only bit 31 is looked at: callers rely on a negative time with that bit clear being formatted.
    if (time == 0 || static_cast<int32_t>(time) < 0) return kUnknown;
    const std::optional<tm> local = LocalTime(time);
    if (!local) return kUnknown;
    Text text;
    char* out = PutDate(text.data(), *local, flags);
    *out++ = ' ';
    return {text.data(), PutTime(out, *local, flags)};
}

} // namespace String
