#include "base/StringFormat.h"

#include "base/internal/Blanks.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <system_error>

namespace String {
namespace {

constexpr size_t kLongestText = 65'535;

// Room on the stack for texts, with their NUL.
constexpr size_t kShortText = 3'000;
constexpr size_t kUsualText = 24'000;

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

// Plain conversions, those without flags, width or precision, are put down directly: in half the time that the C
// library takes for a short text. These functions put a part of a text at `out` and return its end, or null where it
// would go beyond `end`.

char* PutText(char* out, const char* end, const char* text) {
    if (text == nullptr) text = "(null)"; // as the C library has it
    const size_t size = std::strlen(text);
    if (size > static_cast<size_t>(end - out)) return nullptr;
    return std::copy_n(text, size, out);
}

template <class Number>
char* PutPlainNumber(char* out, char* end, Number number, int base = 10) {
    const auto [numberEnd, error] = std::to_chars(out, end, number, base);
    return error == std::errc() ? numberEnd : nullptr;
}

char* PutCharacter(char* out, const char* end, char c) {
    if (out == end) return nullptr;
    *out = c;
    return out + 1;
}

/// The whole text of a format that holds nothing but plain conversions; null for any other. The character 0, which
/// ends a text though not its length, is left to the C library too.
char* PutPlain(char* out, char* end, const char* format, va_list args) {
    while (out != nullptr && *format != '\0') {
        const char c = *format++;
        if (c != '%') {
            out = PutCharacter(out, end, c);
            continue;
        }
        switch (*format++) {
        case 's':
            out = PutText(out, end, va_arg(args, const char*));
            break;
        case 'd':
        case 'i':
            out = PutPlainNumber(out, end, va_arg(args, int));
            break;
        case 'u':
            out = PutPlainNumber(out, end, va_arg(args, unsigned));
            break;
        case 'x':
            out = PutPlainNumber(out, end, va_arg(args, unsigned), 16);
            break;
        case '%':
            out = PutCharacter(out, end, '%');
            break;
        case 'c': {
            const auto character = static_cast<char>(va_arg(args, int));
            out = character != '\0' ? PutCharacter(out, end, character) : nullptr;
            break;
        }
        case 'l': {
            const char kind = *format++;
            if (kind == 'd')
                out = PutPlainNumber(out, end, va_arg(args, long));
            else if (kind == 'u')
                out = PutPlainNumber(out, end, va_arg(args, unsigned long));
            else
                return nullptr;
            break;
        }
        case 'z':
            if (*format++ != 'u') return nullptr;
            out = PutPlainNumber(out, end, va_arg(args, size_t));
            break;
        default:
            return nullptr;
        }
    }
    return out;
}

// The functions with large buffers stay out of line. So that a stack that is too small ends at its guard page, a call
// touches every page of its frame, and those of the largest one take longer than most renderings.

/// The C library's rendering of any text that may be returned, or of as much of it as can be rendered.
[[gnu::noinline]] std::string LongText(const char* format, va_list args) {
    // One more than is ever returned, to tell a text that just fits from one that is too long.
    char text[kLongestText + 2];
    char& pastLongest = text[kLongestText + 1];
    text[0] = '\0';
    pastLongest = 'x';
    const int length = std::vsnprintf(text, sizeof text, format, args);
    // A conversion that fails gives no length: behind too long a text it has put the terminating zero at the very end.
    const bool tooLong =
        length < 0 ? errno == EOVERFLOW || pastLongest == '\0' : static_cast<size_t>(length) > kLongestText;
    if (tooLong) std::abort(); // never a shortened text
    return text;
}

/// The C library's rendering of a text of usual length; false for any other, and where a conversion fails.
[[gnu::noinline]] bool RenderUsualText(std::string& out, const char* format, va_list args) {
    char text[kUsualText];
    va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(text, sizeof text, format, copy);
    va_end(copy);
    if (length < 0 || static_cast<size_t>(length) >= sizeof text) return false;
    out = text;
    return true;
}

/// The C library's rendering.
std::string Rendered(const char* format, va_list args) {
    std::string text;
    return RenderUsualText(text, format, args) ? text : LongText(format, args);
}

} // namespace

// Not by way of FormatV: the copy of a list that has just been begun takes as long as a short text.
std::string Format(const char* format, ...) {
    if (vrx::IsEmpty(format)) return {};
    char text[kShortText];
    va_list args;
    va_start(args, format);
    const char* const end = PutPlain(text, text + sizeof text, format, args);
    va_end(args);
    if (end != nullptr) return {text, static_cast<size_t>(end - text)};
    va_start(args, format);
    std::string rendered = Rendered(format, args);
    va_end(args);
    return rendered;
}

std::string FormatV(const char* format, va_list args) {
    if (vrx::IsEmpty(format)) return {};
    char text[kShortText];
    va_list copy;
    va_copy(copy, args);
    const char* const end = PutPlain(text, text + sizeof text, format, copy);
    va_end(copy);
    if (end == nullptr) return Rendered(format, args);
    return {text, static_cast<size_t>(end - text)};
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
