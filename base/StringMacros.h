#pragma once

#include "base/Export.h"

#include <map>
#include <string>

namespace String {

VRX_EXPORT bool IsIdentifier(const char* name, const char* extraChars, const char* extraFirstChars);
VRX_EXPORT std::string ExpandIdentifier(const std::string& text,
                                        const std::map<std::string, std::string>& macros,
                                        const char* extraChars);
VRX_EXPORT std::string ExpandDelimited(std::string& output, const std::string& text,
                                       const std::map<std::string, std::string>& macros,
                                       bool checkIdentifiers, char delimiter);

} // namespace String
