#pragma once

#include "base/Export.h"

#include <string>

namespace String {

enum Encoding : int { encNone, encURL, encXML, encCQuoted, encCEscaped, encVisible };

VRX_EXPORT void Encode(std::string& output, const std::string& input, Encoding encoding);
VRX_EXPORT void Decode(std::string& output, const std::string& input, Encoding encoding);

} // namespace String
