#include "talker/CVRXTalker.h"
