#include "base/StringScramble.h"
