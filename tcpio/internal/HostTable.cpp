#include "tcpio/internal/HostTable.h"

#include <cstring>
#include <cxxabi.h>
#include <map>
#include <memory>
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

std::unique_ptr<HostCopy> Copy(const hostent& host, std::string addressBytes) {
    auto copy = std::make_unique<HostCopy>();
    copy->name = host.h_name ? host.h_name : "";
    copy->addressBytes = std::move(addressBytes);
    const auto each = static_cast<size_t>(host.h_length);
    for (size_t at = 0; at < copy->addressBytes.size(); at += each)
        copy->addresses.push_back(copy->addressBytes.data() + at);
    copy->addresses.push_back(nullptr);
    copy->entry = {copy->name.data(), &copy->noAliases, host.h_addrtype, host.h_length,
                   copy->addresses.data()};
    return copy;
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
    static std::map<std::string, std::unique_ptr<HostCopy>> copies; // by name, family and addresses

    const std::lock_guard lock(mutex);
    const hostent* host = Resolve(name);
    if (!host) return nullptr;

    std::string addressBytes = AddressBytesOf(*host);
    const std::string key = (host->h_name ? host->h_name : "") + std::string(1, '\0') +
                            std::to_string(host->h_addrtype) + ' ' + addressBytes;
    auto place = copies.find(key);
    if (place == copies.end()) place = copies.emplace(key, Copy(*host, std::move(addressBytes))).first;
    return &place->second->entry;
}

} // namespace vrx
