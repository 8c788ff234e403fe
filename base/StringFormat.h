#pragma once

#include "base/Export.h"

#include <cstdarg>
#include <ctime>
#include <string>

namespace String {

VRX_EXPORT std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
VRX_EXPORT std::string FormatV(const char* format, va_list args) __attribute__((format(printf, 1, 0)));
VRX_EXPORT std::string FormatTime(time_t time, int flags);
VRX_EXPORT std::string FormatDate(time_t time, int flags);
VRX_EXPORT std::string FormatDateTime(time_t time, int flags);

} // namespace String
