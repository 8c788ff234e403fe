#include "base/StringSplit.h"
