#include "base/StringFormat.h"

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

void AppendNumber(std::string& out, int64_t number) {
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

/// As printf's "%02d": a negative number fills the two places by itself.
void AppendTwoPlaces(std::string& out, int number) {
    if (number >= 0 && number < 10) out += '0';
    AppendNumber(out, number);
}

void AppendDate(std::string& out, const tm& local, int flags) {
    const int64_t month = local.tm_mon + 1;
    if ((flags & kDateMask) == kYearFirst) {
        AppendNumber(out, int64_t{1900} + local.tm_year);
        out += '/';
        AppendNumber(out, month);
        out += '/';
        AppendNumber(out, local.tm_mday);
        return;
    }
    const bool dayFirst = (flags & kDateMask) == kDayFirst;
    AppendNumber(out, dayFirst ? local.tm_mday : month);
    out += '/';
    AppendNumber(out, dayFirst ? month : local.tm_mday);
    out += '/';
    AppendTwoPlaces(out, local.tm_year % 100);
}

/// The hour as the 12-hour clock shows it.
int HourOf12(int hour) {
    if (hour == 0) return 12;
    return hour > 12 ? hour - 12 : hour;
}

void AppendTime(std::string& out, const tm& local, int flags) {
    const bool clock24 = (flags & kClockMask) == kClock24;
    AppendNumber(out, clock24 ? local.tm_hour : HourOf12(local.tm_hour));
    out += ':';
    AppendTwoPlaces(out, local.tm_min);
    out += ':';
    AppendTwoPlaces(out, local.tm_sec);
    if (!clock24) out += local.tm_hour > 12 ? " PM" : " AM"; // hour 12 takes AM: callers rely on it
}

/// The local time, or nothing when its year is beyond what the C library can hold. As localtime(3), but with
/// a result of the caller's own.
std::optional<tm> LocalTime(time_t time) {
    tm local;
    ::tzset();
    if (::localtime_r(&time, &local) == nullptr) return std::nullopt;
    return local;
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
    char buffer[kBufferSize];
    buffer[0] = '\0';
    const int length = std::vsnprintf(buffer, sizeof buffer, format, args);
    const bool tooLong = length < 0 ? errno == EOVERFLOW : static_cast<size_t>(length) >= sizeof buffer;
    if (tooLong) std::abort(); // never a shortened text
    return buffer;
}

std::string FormatTime(time_t time, int flags) {
    const std::optional<tm> local = LocalTime(time);
    if (!local) return kUnknown;
    std::string out;
    AppendTime(out, *local, flags);
    return out;
}

std::string FormatDate(time_t time, int flags) {
    const std::optional<tm> local = LocalTime(time);
    if (!local) return kUnknown;
    std::string out;
    AppendDate(out, *local, flags);
    return out;
}

std::string FormatDateTime(time_t time, int flags) {
    // Only bit 31 is looked at: callers rely on a negative time with that bit clear being formatted.
    if (time == 0 || static_cast<int32_t>(time) < 0) return kUnknown;
    const std::optional<tm> local = LocalTime(time);
    if (!local) return kUnknown;
    std::string out;
    AppendDate(out, *local, flags);
    out += ' ';
    AppendTime(out, *local, flags);
    return out;
}

} // namespace String
