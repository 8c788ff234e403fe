#include "base/StringMap.h"
