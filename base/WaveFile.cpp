#include "base/WaveFile.h"
