#include "tools/commands/Commands.h"

namespace vrx::tool {

void AddCaptureCommands(CLI::App&, int&) {}

} // namespace vrx::tool
