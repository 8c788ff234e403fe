#include "tools/commands/CommandLine.h"

#include "tools/commands/Commands.h"
#include "tools/program/Errors.h"

namespace vrx::tool {

namespace {

int Select(int argc, char** argv) {
    CLI::App app("Runs audio through a remote processing server, block by block.", "vrx");
    app.set_version_flag("--version", "vrx " VRX_VERSION, "Print the version and exit");
    app.require_subcommand(1);
    app.footer("Exit codes: 0 done, 1 wrong usage, 2 input or output file (also the plug-in's),\n"
               "3 cannot connect, 4 failed while running, 5 interrupted. See vrx COMMAND --help");

    int exitCode = kDone;
    AddPump(app, exitCode);
    AddPins(app, exitCode);
    AddSend(app, exitCode);
    AddDoctor(app, exitCode);
    AddCheck(app, exitCode);
    AddSweep(app, exitCode);
    AddCompare(app, exitCode);
#ifdef VRX_WITH_LIVE
    AddLive(app, exitCode);
#endif
    AddServe(app, exitCode);
    AddLv2(app, exitCode);
    AddCaptureCommands(app, exitCode);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error); // a help text or the version
        PrintError("vrx", std::string(error.what()) + " (see vrx --help, vrx COMMAND --help)");
        return kWrongUsage;
    }
    return exitCode;
}

} // namespace

int RunCommandLine(int argc, char** argv) {
    return RunCommand("vrx", [&] { return Select(argc, argv); });
}

} // namespace vrx::tool
