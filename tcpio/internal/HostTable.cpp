#include "tcpio/internal/HostTable.h"

#include <cstring>
#include <cxxabi.h>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace vrx {

namespace {

/// A host entry together with the storage that it points into.
struct HostCopy {
    std::string name;
    std::string addressBytes;
    std::vector<char*> addresses; // each into addressBytes, then null
    char* noAliases = nullptr;
    hostent entry{};
};

std::string AddressBytesOf(const hostent& host) {
    std::string bytes;
    const auto each = static_cast<size_t>(host.h_length);
    for (char** address = host.h_addr_list; address && *address; ++address) bytes.append(*address, each);
    return bytes;
}

void Fill(HostCopy& copy, const hostent& host, std::string addressBytes) {
    copy.name = host.h_name ? host.h_name : "";
    copy.addressBytes = std::move(addressBytes);
    const auto each = static_cast<size_t>(host.h_length);
    for (size_t at = 0; at < copy.addressBytes.size(); at += each)
        copy.addresses.push_back(copy.addressBytes.data() + at);
    copy.addresses.push_back(nullptr);
    copy.entry = {copy.name.data(), &copy.noAliases, host.h_addrtype, host.h_length, copy.addresses.data()};
}

hostent* Resolve(const char* name) {
    try {
        return gethostbyname(name);
    } catch (abi::__forced_unwind&) {
        throw; // a cancelled thread must go on unwinding
    } catch (...) {
        return nullptr;
    }
}

} // namespace

hostent* LookUpHost(const char* name) {
    static std::mutex mutex;
    static std::map<std::string, HostCopy> copies;

    const std::lock_guard lock(mutex);
    const hostent* host = Resolve(name);
    if (!host) return nullptr;

    std::string addressBytes = AddressBytesOf(*host);
    std::string key = (host->h_name ? host->h_name : "") + std::string(1, '\0') +
                      std::to_string(host->h_addrtype) + ' ' + addressBytes;
    const auto [place, isNew] = copies.try_emplace(std::move(key));
    if (isNew) Fill(place->second, *host, std::move(addressBytes));
    return &place->second.entry;
}

} // namespace vrx
