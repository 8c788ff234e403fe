#include "tools/server/Lv2Stage.h"

namespace vrx::tool {

std::string ParseLv2Step(std::string_view, const StreamShape&, ProcessStep&) {
    return "this vrx was built without LV2; build it where lilv is installed (Debian: liblilv-dev)";
}

std::string DescribeLv2Plugins(double) {
    return "none: this vrx was built without LV2\n";
}

} // namespace vrx::tool
