#include "host/ServerSettings.h"

namespace vrx::host {

void ServerSettings::GoThrough(const std::string& otherHost, int otherPort) {
    detourHost = otherHost;
    detourPort = otherPort;
    args = ArgsWithPort(otherPort);
}

std::string ServerSettings::ArgsWithPort(int otherPort) const {
    return "server=" + (detourPort != 0 ? detourHost : host) + ",servport=" + std::to_string(otherPort) +
           ",clport=" + std::to_string(clientPort) + ",input=" + input + ",output=" + output +
           ",layout=" + layout;
}

} // namespace vrx::host
