#include "tools/capture/Recorder.h"
#include "tools/capture/TapRecorder.h"
#include "tools/commands/Commands.h"
#include "tools/commands/RecordOption.h"
#include "tools/program/Errors.h"

namespace vrx::tool {

void AddCaptureCommands(CLI::App& app, int& exitCode) {
    AddRecord(app, exitCode);
    AddReplay(app, exitCode);
    AddDiff(app, exitCode);
}

namespace {

void TellError(const std::string& text) {
    PrintError("vrx", text);
}

} // namespace

void AddRecordOption(CLI::App& command, std::string& file) {
    command.add_option("--record", file, "Leave a capture (pcap) of what is said")->type_name("FILE");
}

std::shared_ptr<void> StartRecording(const std::string& file, bool overwrite, host::ServerSettings& server) {
    if (file.empty()) return nullptr;
    RecorderOptions options;
    options.host = server.host;
    options.port = server.port & 0xFFFF; // as the talker reads it
    options.file = file;
    options.overwrite = overwrite;
    options.tell = TellError;
    const auto recorder = std::make_shared<BackgroundRecorder>(options);
    server.GoThrough("127.0.0.1", recorder->Port());
    return recorder;
}

std::shared_ptr<void> StartTapRecording(const std::string& file, int socket) {
    return std::make_shared<TapRecorder>(file, socket, TellError);
}

} // namespace vrx::tool
