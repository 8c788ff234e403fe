#include "tools/Commands.h"

void AddServe(CLI::App&, int&) {}
