#include "tools/capture/SampleMute.h"

#include "tests/tools/capture/Requests.h"

#include <gtest/gtest.h>
#include <string>

using namespace vrx::tool;
using namespace std::string_literals;

namespace {

std::string Muted(Side from, std::string bytes, std::size_t piece) {
    SampleMute mute(from);
    for (std::size_t at = 0; at < bytes.size(); at += piece)
        mute.Apply(std::span(bytes).subspan(at, std::min(piece, bytes.size() - at)));
    return bytes;
}

} // namespace

TEST(SampleMute, ZeroesSamplesAndNothingElse) {
    struct Case {
        const char* name;
        Side from;
        std::string bytes;
        std::string muted;
    };
    const std::string text = "connect,127.0.0.1,7001\n";
    const Case cases[] = {
        {"a text", Side::kClient, text, text},
        {"a reply text", Side::kServer, "error: no\n", "error: no\n"},
        {"a block", Side::kClient, BlockRequest({7, 8}), BlockRequest({0, 0})},
        {"a block between texts", Side::kClient, text + BlockRequest({7}) + text,
         text + BlockRequest({0}) + text},
        {"no samples", Side::kClient, BlockRequest({}), BlockRequest({})},
        {"a reply", Side::kServer, BlockReply({7, 8}, 1, 2), BlockReply({0, 0}, 1, 2)},
        {"two replies", Side::kServer, BlockReply({7}) + BlockReply({8}), BlockReply({0}) + BlockReply({0})},
        {"an end inside", Side::kServer, BlockReply({7, 8}).substr(0, 33), BlockReply({0, 0}).substr(0, 33)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{1000}})
            EXPECT_EQ(Muted(c.from, c.bytes, piece), c.muted) << "in pieces of " << piece;
    }
}

TEST(SampleMute, LeavesNoSamplesOfASpoiltPacket) {
    const std::string spoilt = "\x04" + BlockReply({0x41414141, 0x0A414141, 0x41414141}).substr(1);
    EXPECT_EQ(Muted(Side::kServer, spoilt, 1000).find('A'), std::string::npos);
}
