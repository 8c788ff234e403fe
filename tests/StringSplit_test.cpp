#include "base/BaseHelpers.h"

#include <gtest/gtest.h>
