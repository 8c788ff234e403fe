#include "base/StringCsv.h"
