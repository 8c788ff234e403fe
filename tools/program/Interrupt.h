#pragma once

namespace vrx::tool {

/// Ctrl-C (SIGINT) and SIGTERM in the client commands. Handlers are installed even where the caller had
/// these signals ignored, as shells do for background jobs.

/// The first signal only sets a flag for `Interrupted`, so that a run can end between two blocks; system
/// calls are restarted. The second one ends the program at once with the exit code for interruptions.
void CatchInterrupts();

/// Already the first signal ends the program at once, for commands that may wait without limit. Both
/// say "<who>: interrupted" on standard error; `who` must stay valid.
void ExitOnInterrupt(const char* who);

/// True once a signal has arrived after `CatchInterrupts`.
bool Interrupted();

/// Names a file to remove when a signal ends the program at once; null for none.
void RemoveOnExit(const char* path);

} // namespace vrx::tool
