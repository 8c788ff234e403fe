#include "tools/Commands.h"

void AddSend(CLI::App&, int&) {}
