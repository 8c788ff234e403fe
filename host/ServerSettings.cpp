#include "host/ServerSettings.h"

namespace vrx::host {

void ServerSettings::GoThrough(const std::string& otherHost, int otherPort) {
    detourHost = otherHost;
    detourPort = otherPort;
    args = ArgsWithPort(otherPort);
}

std::string ServerSettings::ArgsWithPort(int otherPort) const {
    // of two settings of a key the first one counts
    return "server=" + (detourPort != 0 ? detourHost : host) + ",servport=" + std::to_string(otherPort) +
           "," + args;
}

} // namespace vrx::host
