#include "base/File2.h"
