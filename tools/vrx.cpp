#include "tools/commands/CommandLine.h"

int main(int argc, char** argv) {
    return vrx::tool::RunCommandLine(argc, argv);
}
