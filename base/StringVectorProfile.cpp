#include "base/StringVector.h"
