#pragma once

#include "base/Export.h"

#include <map>
#include <string>

class VRX_EXPORT string_map : public std::map<std::string, std::string> {
public:
    unsigned Split(const char* text, char quote);
};
