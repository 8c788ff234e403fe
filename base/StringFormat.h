#pragma once

#include "base/Export.h"

#include <cstdarg>
#include <ctime>
#include <string>

namespace String {

/// Formats as printf does and returns the text, up to its first NUL: a "%c" of 0 ends the result there.
///
/// A null or empty format gives "", whatever the arguments. The result has at most 65,535 characters: longer
/// output is never truncated, it ends the process (abort). So bound what comes from outside ("%.*s"). Uses up to
/// 70 KiB of stack. May be called from any thread.
VRX_EXPORT std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Format with an argument list; `args` is used up, as vprintf does.
VRX_EXPORT std::string FormatV(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

/// The time of day of `time` (seconds since the epoch, negative ones included) in the process's time zone.
///
/// flags & 0x0F   1: 24-hour clock, "7:05:09", "17:05:09"
///                else: 12-hour clock, "7:05:09 AM", "5:05:09 PM"; midnight is "12:00:00 AM", and so is noon:
///                the whole hour from noon on says AM
///
/// Follows the TZ variable as tzset(3) reads it at each call. A time whose year does not fit the C library's
/// `tm` gives "UNKNOWN". May be called from any thread, as long as none changes the environment meanwhile.
VRX_EXPORT std::string FormatTime(time_t time, int flags);

/// The date of `time`, by the same rules as FormatTime. Day and month are never padded.
///
/// flags & 0xF0   0x10: day/month/year, "5/3/24"
///                0x20: year/month/day with the whole year, "2024/3/5"
///                else: month/day/year, "3/5/24"
///
/// The short year is the count of years since 1900, modulo 100: "99" for 1999, "00" for 2000; years before
/// 1900 give a negative number.
VRX_EXPORT std::string FormatDate(time_t time, int flags);

/// FormatDate, a blank and FormatTime with the same flags: 0x21 gives "2024/3/5 17:05:09".
///
/// Gives "UNKNOWN" for the time 0 and for every time whose bit 31 is set (-1, or anything between 2038 and
/// 2106), for it takes such a time for a negative 32-bit one. No other bit counts: -2^32 is formatted.
VRX_EXPORT std::string FormatDateTime(time_t time, int flags);

} // namespace String
