#pragma once

namespace vrx::tool {

/// Tells the service manager that started this program how it is doing: one datagram to the socket that the
/// environment variable NOTIFY_SOCKET names, a path or, with '@' in front, an abstract name. Does nothing
/// without the variable; nobody hears of a failure.
///
/// state   lines such as "READY=1"
void NotifyServiceManager(const char* state);

} // namespace vrx::tool
