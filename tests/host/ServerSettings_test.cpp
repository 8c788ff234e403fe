#include "host/ServerSettings.h"

#include "base/StringMap.h"

#include <gtest/gtest.h>

using vrx::host::ServerSettings;

namespace {

ServerSettings Studio() {
    ServerSettings server;
    server.args = "layout=Main, servport=7000, room= big hall ,server=studio,clport=1,input=In,output=Out";
    server.host = "studio";
    server.port = 7000;
    return server;
}

string_map Read(const std::string& args) {
    string_map values;
    values.Split(args.c_str(), 0);
    return values;
}

} // namespace

TEST(ServerSettings, AnotherPortLeavesAllElseOfTheLine) {
    string_map wanted = Read(Studio().args);
    wanted["servport"] = "-58536";
    EXPECT_EQ(Read(Studio().ArgsWithPort(-58536)), wanted);
}

TEST(ServerSettings, ADetourLeavesAllElseOfTheLineAndTheServersName) {
    ServerSettings server = Studio();
    server.GoThrough("127.0.0.1", 40000);
    string_map wanted = Read(Studio().args);
    wanted["server"] = "127.0.0.1";
    wanted["servport"] = "40000";
    EXPECT_EQ(Read(server.args), wanted);
    EXPECT_EQ(server.Place(), "studio:7000");
    EXPECT_EQ(server.ConnectPort(), 40000);

    wanted["servport"] = "-25536";
    EXPECT_EQ(Read(server.ArgsWithPort(-25536)), wanted);
}
