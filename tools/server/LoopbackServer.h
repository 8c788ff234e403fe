#pragma once

#include "tools/server/AddressRange.h"
#include "tools/server/Faults.h"
#include "tools/server/Processing.h"
#include "tools/wire/ServerProtocol.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace vrx::tool {

struct ServerOptions {
    std::string bind = "127.0.0.1";    ///< a dotted IPv4 address
    uint16_t port = 0;                 ///< 0: the system picks a free one
    std::vector<AddressRange> allowed; ///< who may connect; empty: anyone
    bool quiet = false;                ///< print nothing but the line that names the port

    ObjectRules rules{.layout = {}, .input = {}, .output = {}, .largestBlock = 262137};
    StreamShape shape;
    std::vector<ProcessStep> steps;
    uint32_t pinFrames = 0; ///< what the info words of both pins give as frames per block

    unsigned threads = 1;                         ///< at least 1
    size_t largestPacket = (1 << 20) + (1 << 16); ///< bytes; longer requests end their connection
    size_t mostClients = 256;
    std::chrono::milliseconds idle{300000}; ///< a client silent for longer is disconnected

    std::vector<Fault> faults;        ///< how replies to pumped blocks are spoilt; empty: none is
    double faultRate = 1;             ///< the chance of each such reply to be spoilt
    uint64_t faultLimit = UINT64_MAX; ///< replies that are spoilt in all
    uint64_t faultSeed = 1;
};

/// Serves until SIGINT or SIGTERM, which it takes over for the whole process. Prints "vrx serve: listening on
/// ADDRESS:PORT" as its first line once clients can connect. Returns 0, or 3 after one line on standard error
/// when it cannot listen. Throws Failure when the processing cannot be made.
///
/// A signal lets exchanges under way end, for at most a second. Processing that does not come back within that
/// second ends the process with exit code 0 where it stands.
///
/// Per client it holds at most one request (largestPacket), one reply (28 bytes and largestBlock words) and the
/// state of the processing, and per thread the room of one more request and reply. A client that does not read
/// its reply is not read from. Replies to .info1 requests and text lines are never spoilt.
int RunLoopbackServer(const ServerOptions& options);

} // namespace vrx::tool
