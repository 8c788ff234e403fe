#include "tools/Commands.h"

void AddPump(CLI::App&, int&) {}
