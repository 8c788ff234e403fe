#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vrx::tool {

/// IPv4 addresses that share their first bits.
struct AddressRange {
    uint32_t network = 0; ///< in the machine's byte order; bits outside the mask are 0
    uint32_t mask = 0;

    bool Contains(uint32_t address) const { return (address & mask) == network; }
};

/// Reads "10.1.0.0/16", or "10.1.2.3" for one address. Returns "" and sets `range`, or says what is wrong.
std::string ParseAddressRange(std::string_view text, AddressRange& range);

} // namespace vrx::tool
