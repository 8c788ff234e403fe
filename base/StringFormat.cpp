#include "base/StringFormat.h"
