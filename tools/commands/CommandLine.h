#pragma once

namespace vrx::tool {

/// The whole program behind `main`: runs the subcommand that the command line selects, or says on one line of standard
/// error what is wrong with it. Returns the program's exit code.
int RunCommandLine(int argc, char** argv);

} // namespace vrx::tool
