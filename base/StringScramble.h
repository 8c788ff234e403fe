#pragma once

#include "base/Export.h"

#include <cstdint>
#include <string>

namespace String {

VRX_EXPORT std::string SymmetricEncrypt(uint64_t seed, const char* key, const char* text);

} // namespace String
