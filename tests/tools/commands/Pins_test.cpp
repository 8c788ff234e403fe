#include "tests/support/ScriptedServer.h"
#include "tests/tools/VrxRun.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

/// Answers the connect and one query of the pins.
ScriptedServer::Script Answer(const std::string& reply) {
    return [reply](Peer& peer) {
        peer.ReadLine();
        peer.Send("ok\n");
        EXPECT_EQ(peer.ReadPacket().substr(36), std::string("-1,In.info1,Out.info1\0\0\0", 24));
        peer.Send(reply);
        if (!reply.empty()) peer.WaitForClose();
    };
}

// Bit 27, bits 10 to 26 = 3 and bits 0 to 9 = 2; the highest values of all three, with bits 28 to 31 set.
std::string PinReply(unsigned status) {
    return Words({0x07FF0003, 36, 5, 0x3A, status, 0, 0, 0x08000C02, 0xFFFFFFFF});
}

Subprocess::Outcome Pins(const ScriptedServer& server, const std::string& last = "--clport=1") {
    return Vrx({"pins", "--servport", std::to_string(server.Port()), last});
}

TEST(Pins, PrintsBothPinsThreeValues) {
    const ScriptedServer server({Answer(PinReply(0))});
    const auto end = Pins(server);
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.out, "input In: 3 2 1\noutput Out: 131071 1023 1\n");
    EXPECT_EQ(end.err, "");
}

TEST(Pins, PrintsJson) {
    const ScriptedServer server({Answer(PinReply(0))});
    const auto end = Pins(server, "--json");
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_TRUE(IsOneLine(end.out));
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(object.at("server"), "127.0.0.1");
    EXPECT_EQ(object.at("port"), server.Port());
    EXPECT_EQ(object.at("input").at("name"), "In");
    EXPECT_EQ(object.at("input").at("values"), (std::vector<unsigned>{3, 2, 1}));
    EXPECT_EQ(object.at("output").at("name"), "Out");
    EXPECT_EQ(object.at("output").at("values"), (std::vector<unsigned>{131071, 1023, 1}));
}

TEST(Pins, ShowsWhatTheLoopbackServerSays) {
    const ServeProcess server({"--pin-frames", "480", "--channels", "6", "--samples", "s32"});
    const auto end = Vrx({"pins", "--servport", server.Port(), "--input", "Mic"});
    EXPECT_EQ(end.out, "input Mic: 480 6 0\noutput Out: 480 6 0\n");
}

TEST(Pins, ReportsARefusal) {
    const ScriptedServer server({Answer(PinReply(0xFFFFFFFB))});
    const auto end = Pins(server, "--json");
    EXPECT_EQ(end.exitCode, 4);
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.err, "vrx pins: 127.0.0.1:" + std::to_string(server.Port()) +
                           " refused the pin properties of 'In' and 'Out' with status -5: check --input and "
                           "--output\n");
}

TEST(Pins, ReportsALostConnectionAndAStrangeReply) {
    struct Case {
        const char* reply;
        const char* want;
    };
    const Case cases[] = {{"", "result -9995: the server closed the connection"},
                          {"what?\n", "result -1000: the reply was no packet"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.want);
        const ScriptedServer server({Answer(c.reply)});
        const auto end = Pins(server);
        EXPECT_EQ(end.exitCode, 4);
        EXPECT_EQ(end.out, "");
        EXPECT_EQ(end.err, "vrx pins: no pin properties from 127.0.0.1:" + std::to_string(server.Port()) +
                               " (" + c.want + "): check that the server has such pins\n");
    }
}

TEST(Pins, ReportsAServerThatIsNotThere) {
    const auto end = Vrx({"pins", "--servport", std::to_string(RefusedPort())});
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
}

} // namespace
