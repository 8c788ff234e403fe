#include "tools/commands/Commands.h"
#include "tools/commands/RecordOption.h"

namespace vrx::tool {

void AddCaptureCommands(CLI::App&, int&) {}

void AddRecordOption(CLI::App&, std::string&) {}

std::shared_ptr<void> StartRecording(const std::string&, bool, host::ServerSettings&) {
    return nullptr;
}

std::shared_ptr<void> StartTapRecording(const std::string&, int) {
    return nullptr;
}

} // namespace vrx::tool
