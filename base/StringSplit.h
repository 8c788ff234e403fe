#pragma once

#include "base/Export.h"

#include <string>
#include <vector>

namespace String {

VRX_EXPORT void Split(std::vector<std::string>& result, const std::string& text,
                      const std::string& delimiters);
VRX_EXPORT void SplitQuoted(std::vector<std::string>& result, const std::string& text);

} // namespace String
