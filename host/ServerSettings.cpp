#include "host/ServerSettings.h"

namespace vrx::host {

std::string ServerSettings::ArgsWithPort(int otherPort) const {
    return "server=" + host + ",servport=" + std::to_string(otherPort) +
           ",clport=" + std::to_string(clientPort) + ",input=" + input + ",output=" + output +
           ",layout=" + layout;
}

} // namespace vrx::host
