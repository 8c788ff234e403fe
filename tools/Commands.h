#pragma once

#include <CLI/CLI.hpp>

/// The exit codes of `vrx`, as its help lists them.
enum ExitCode : int {
    kDone = 0,
    kWrongUsage = 1,
    kFileFailed = 2,
    kCannotConnect = 3,
    kRunFailed = 4,
    kInterrupted = 5,
};

/// Each of these adds one subcommand with its options. When the command line selects it, its callback runs
/// the whole command and leaves the program's exit code in `exitCode`.
void AddPump(CLI::App& app, int& exitCode);
void AddPins(CLI::App& app, int& exitCode);
void AddSend(CLI::App& app, int& exitCode);
void AddServe(CLI::App& app, int& exitCode);
