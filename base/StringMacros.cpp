#include "base/StringMacros.h"
