#pragma once

#include <CLI/CLI.hpp>

namespace vrx::tool {

/// Each of these adds one subcommand with its options. When the command line selects it, the whole command runs
/// and leaves the program's exit code in `exitCode`.
void AddPump(CLI::App& app, int& exitCode);
void AddPins(CLI::App& app, int& exitCode);
void AddSend(CLI::App& app, int& exitCode);
void AddSweep(CLI::App& app, int& exitCode);
void AddCompare(CLI::App& app, int& exitCode);
void AddDoctor(CLI::App& app, int& exitCode);
void AddCheck(CLI::App& app, int& exitCode);
#ifdef VRX_WITH_LIVE
void AddLive(CLI::App& app, int& exitCode);
#endif
void AddServe(CLI::App& app, int& exitCode);
void AddLv2(CLI::App& app, int& exitCode);

/// The commands that need the capture libraries; none where this program was built without them.
void AddCaptureCommands(CLI::App& app, int& exitCode);
void AddRecord(CLI::App& app, int& exitCode);
void AddReplay(CLI::App& app, int& exitCode);
void AddDiff(CLI::App& app, int& exitCode);

} // namespace vrx::tool
