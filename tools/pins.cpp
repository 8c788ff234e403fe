#include "tools/Commands.h"

void AddPins(CLI::App&, int&) {}
