#include "tools/commands/Commands.h"

namespace vrx::tool {

void AddCaptureCommands(CLI::App& app, int& exitCode) {
    AddRecord(app, exitCode);
    AddReplay(app, exitCode);
    AddDiff(app, exitCode);
}

} // namespace vrx::tool
