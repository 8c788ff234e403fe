#include "base/StringText.h"
