#include "tools/server/AddressRange.h"

#include <arpa/inet.h>
#include <charconv>

namespace vrx::tool {

namespace {

bool ParseBits(std::string_view text, unsigned& bits) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bits);
    return error == std::errc() && end == text.data() + text.size() && bits <= 32;
}

std::string Dotted(uint32_t address) {
    const in_addr network{htonl(address)};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &network, text, sizeof text);
    return text;
}

} // namespace

std::string ParseAddressRange(std::string_view text, AddressRange& range) {
    const size_t slash = text.find('/');
    in_addr address{};
    unsigned bits = 32;
    if (inet_pton(AF_INET, std::string(text.substr(0, slash)).c_str(), &address) != 1 ||
        (slash != text.npos && !ParseBits(text.substr(slash + 1), bits))) {
        return std::string("'").append(text).append("' is not ADDRESS/BITS, such as 192.168.1.0/24");
    }
    const uint32_t mask = bits == 0 ? 0 : ~uint32_t{0} << (32 - bits);
    const uint32_t whole = ntohl(address.s_addr);
    if ((whole & mask) != whole) {
        return std::string("'").append(text).append("' has bits behind its first ") + std::to_string(bits) +
               "; " + Dotted(whole & mask) + "/" + std::to_string(bits) + " is that network";
    }
    range = {whole, mask};
    return {};
}

} // namespace vrx::tool
