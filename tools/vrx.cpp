#include "tools/Commands.h"

int main(int argc, char** argv) {
    CLI::App app("Runs audio through a remote processing server, block by block.", "vrx");
    app.require_subcommand(1);
    app.footer("Exit codes: 0 done, 1 wrong usage, 2 input or output file, 3 cannot connect,\n"
               "            4 failed while running, 5 interrupted");

    int exitCode = kDone;
    AddPump(app, exitCode);
    AddPins(app, exitCode);
    AddSend(app, exitCode);
    AddServe(app, exitCode);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kWrongUsage;
    }
    return exitCode;
}
