#include "base/StringEncoding.h"
