#pragma once

#include "live/Bridge.h"
#include "tests/live/FakeTalker.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

/// What a server gives that changes nothing.
inline int Echo(const void* in, void* out, unsigned words) {
    std::memcpy(out, in, std::size_t{4} * words);
    return 0;
}

/// What a bridge needs, with talkers whose blocks `pump` answers.
inline vrx::live::BridgeParts Parts(FakeTalker::Pump pump) {
    vrx::live::BridgeParts parts;
    parts.session = std::make_unique<vrx::host::Session>(
        vrx::host::ServerSettings{},
        vrx::host::SessionParts{[pump = std::move(pump)] { return std::make_unique<FakeTalker>(pump); },
                                nullptr, nullptr});
    return parts;
}

inline std::unique_ptr<vrx::live::Bridge> EchoBridge(const vrx::live::Shape& shape) {
    return std::make_unique<vrx::live::Bridge>(shape, Parts(Echo));
}
