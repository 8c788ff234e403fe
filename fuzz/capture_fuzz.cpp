// Recordings: any bytes as a capture file, and any conversation written, read back and compared with itself.
//
// An input whose first byte is odd is a capture file behind it. Otherwise it is a row of events on two connections: a
// byte that says which (bit 0), from which side (bit 1) and what (bits 2 and 3: bytes, bytes, an end, a reset), and
// for bytes a length byte and so many bytes.

#include "fuzz/FuzzInput.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Require.h"
#include "tools/capture/Alignment.h"
#include "tools/capture/CaptureWriter.h"
#include "tools/capture/ExchangeComparer.h"
#include "tools/capture/Recording.h"
#include "tools/program/Errors.h"

#include <array>
#include <string>

using namespace vrx::fuzz;
using namespace vrx::tool;

namespace {

/// Each exchange is its own counterpart, and nothing is handed on twice or out of order.
void ReadAndCompare(const std::string& path) {
    Recording a(path);
    Recording b(path);
    Alignment alignment([&](Exchange& next) { return a.Next(next); },
                        [&](Exchange& next) { return b.Next(next); },
                        {.exchanges = 16, .bytes = std::size_t{1} << 20, .held = 256});
    ExchangeComparer comparer({});
    for (ExchangePair pair; alignment.Next(pair);) {
        Require(pair.a && pair.b, "a recording has all of its own exchanges");
        Require(!comparer.Compare(*pair.a, *pair.b), "an exchange is the same as itself");
    }
}

void ReadAnyFile(const std::string& bytes) {
    static MemoryFile memory;
    memory.Fill(bytes);
    try {
        ReadAndCompare(memory.Path());
    } catch (const Failure& failure) {
        Require(failure.code == kFileFailed && !failure.message.empty(),
                "a file that cannot be read is said to be one");
    }
}

/// What one side of a connection sent has to come back.
void WriteAndRead(FuzzInput& input) {
    static MemoryFile memory;
    std::array<std::array<std::string, 2>, 2> sent;
    std::array<std::array<std::string, 2>, 2> read;
    {
        CaptureWriter writer(memory.Path(), true);
        std::int64_t time = 0;
        for (const std::uint64_t connection : {0U, 1U})
            writer.Open(connection, {"127.0.0.1", static_cast<std::uint16_t>(40000 + connection)},
                        {"127.0.0.1", 7000}, ++time);
        std::array<std::array<bool, 2>, 2> ended = {};
        while (!input.AtEnd()) {
            const unsigned event = input.Byte();
            const std::size_t connection = event & 1;
            const std::size_t side = event >> 1 & 1;
            const Side from = side == 0 ? Side::kClient : Side::kServer;
            if ((event & 8) == 0) {
                const std::string bytes = input.Bytes(input.Byte());
                writer.Bytes(connection, from, ++time, bytes);
                if (!ended[connection][side]) sent[connection][side] += bytes;
            } else if ((event & 4) == 0) {
                writer.Close(connection, from, ++time);
                ended[connection][side] = true;
            } else {
                writer.Reset(connection, from, ++time);
                ended[connection] = {true, true};
            }
        }
    }
    CaptureReader reader(memory.Path());
    for (CaptureEvent event; reader.Next(event);)
        if (event.kind == CaptureEvent::kBytes)
            read[event.connection - 1][event.from == Side::kClient ? 0 : 1] += event.bytes;
    Require(reader.Notes().empty(), "nothing is missing of what was written");
    for (std::size_t connection = 0; connection < 2; ++connection)
        for (std::size_t side = 0; side < 2; ++side)
            RequireSame(read[connection][side], sent[connection][side], "all bytes come back in order");
    ReadAndCompare(memory.Path());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    if (input.Byte() % 2 == 1)
        ReadAnyFile(input.Rest());
    else
        WriteAndRead(input);
    return 0;
}
