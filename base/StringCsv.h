#pragma once

#include "base/Export.h"

#include <string>

namespace String {

VRX_EXPORT int ReadCSVField(std::string& field, const char*& cursor, bool trim, char separator, char quote);
VRX_EXPORT int AddCSVField(std::string& row, const char* field, bool forceQuote, char separator, char quote);
VRX_EXPORT int AddCSVField(std::string& row, const std::string& field, bool forceQuote, char separator,
                           char quote);

} // namespace String
