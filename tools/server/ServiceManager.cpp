#include "tools/server/ServiceManager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace vrx::tool {

void NotifyServiceManager(const char* state) {
    const char* const name = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (name == nullptr || *name == '\0' || std::strlen(name) >= sizeof address.sun_path) return;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name, std::strlen(name));
    if (*name == '@') address.sun_path[0] = '\0';

    const int channel = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (channel < 0) return;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(name));
    (void)::sendto(channel, state, std::strlen(state), MSG_NOSIGNAL,
                   reinterpret_cast<const sockaddr*>(&address),
                   size); // nobody to tell
    ::close(channel);
}

} // namespace vrx::tool
