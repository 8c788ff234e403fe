#pragma once

#include "base/Export.h"

#include <string>
#include <vector>

namespace String {

VRX_EXPORT void ToUpper(std::string& text);
VRX_EXPORT void ToLower(std::string& text);
VRX_EXPORT void TrimLeft(std::string& text);
VRX_EXPORT void TrimRight(std::string& text, bool lineEnds);
VRX_EXPORT void Trim(std::string& text);
VRX_EXPORT std::string Replace(const std::string& text, const std::string& find,
                               const std::string& replacement);
VRX_EXPORT std::string Merge(const std::vector<std::string>& items, const std::string& separator);
VRX_EXPORT bool CompareWild(const std::string& text, const std::string& pattern, std::string* capture);

} // namespace String
