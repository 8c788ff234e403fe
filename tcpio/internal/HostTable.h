#pragma once

#include <netdb.h>

namespace vrx {

/// Looks `name` up with gethostbyname and returns a copy of the answer, or null when there is none.
///
/// The resolver's own answer lies in storage that every look-up of the process overwrites; the copy stays as
/// it is until the library is unloaded or the process has run all destructors of static objects, so that objects on
/// different threads can keep pointers to theirs. Equal answers share one copy. Safe to call from any thread.
hostent* LookUpHost(const char* name);

} // namespace vrx
