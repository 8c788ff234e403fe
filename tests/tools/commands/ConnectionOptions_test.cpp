#include "tools/commands/ConnectionOptions.h"

#include "tools/program/Errors.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx;

ConnectionOptions WithPort() {
    ConnectionOptions options;
    options.servport = 7000;
    return options;
}

/// "" when the options are accepted.
std::string WrongUsage(const ConnectionOptions& options) {
    try {
        (void)ResolveServer(options);
        return "";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, kWrongUsage);
        return failure.message;
    }
}

TEST(ResolveServer, FillsInWhatIsNotGiven) {
    const ServerSettings server = ResolveServer(WithPort());
    EXPECT_EQ(server.args, "server=127.0.0.1,servport=7000,clport=0,input=In,output=Out,layout=Main");
    EXPECT_EQ(server.Place(), "127.0.0.1:7000");
}

TEST(ResolveServer, PutsEveryOptionIntoTheLine) {
    ConnectionOptions options;
    options.server = "studio";
    options.servport = 65535;
    options.clport = -1;
    options.input = "Mic one";
    options.output = "a=b";
    options.layout = "L";
    const ServerSettings server = ResolveServer(options);
    EXPECT_EQ(server.args, "server=studio,servport=65535,clport=-1,input=Mic one,output=a=b,layout=L");
    EXPECT_EQ(server.input, "Mic one");
    EXPECT_EQ(server.output, "a=b");
    EXPECT_EQ(server.layout, "L");
}

TEST(ResolveServer, TakesAWholeLineAsItIs) {
    ConnectionOptions options;
    options.args = " layout = M , extra=1,input=I,output=O,clport=2,servport=7001x,server=10.0.0.5";
    const ServerSettings server = ResolveServer(options);
    EXPECT_EQ(server.args, options.args);
    EXPECT_EQ(server.Place(), "10.0.0.5:7001");
}

TEST(ResolveServer, NamesTheMissingKey) {
    const std::string whole = "server=s,servport=1,clport=2,input=i,output=o,layout=l";
    for (const std::string key : {"server", "servport", "clport", "input", "output", "layout"}) {
        SCOPED_TRACE(key);
        ConnectionOptions options;
        options.args = "," + whole;
        const std::string item = "," + key + "=";
        options.args.replace(options.args.find(item), item.size(), ",no" + key + "=");
        EXPECT_EQ(WrongUsage(options).rfind("--args lacks '" + key + "'", 0), 0U) << WrongUsage(options);
    }
}

TEST(ResolveServer, NeedsAPort) {
    EXPECT_NE(WrongUsage(ConnectionOptions()).find("--servport"), std::string::npos);
}

TEST(ResolveServer, RefusesValuesThatTheListCannotCarry) {
    for (const std::string value : {"", "a,b", ",", " a", "a ", "\ta", "=a", "a="}) {
        SCOPED_TRACE(value);
        ConnectionOptions options = WithPort();
        options.input = value;
        EXPECT_NE(WrongUsage(options).find("--input '" + value + "'"), std::string::npos)
            << WrongUsage(options);
    }
}

TEST(FramesPerSegment, LetsRequestAndReplyFit1460Bytes) {
    ServerSettings server;
    server.layout = "Main";
    server.input = "In";
    server.output = "Out";
    // The path has 33 characters, so 36 bytes: 20 + 36 + 4 * 351 is 1460 exactly.
    EXPECT_EQ(FramesPerSegment(server, 1), 351U);
    EXPECT_EQ(FramesPerSegment(server, 2), 175U);
    EXPECT_EQ(FramesPerSegment(server, 351), 1U);
    EXPECT_EQ(FramesPerSegment(server, 1000), 1U) << "never less than one frame";

    server.layout = "Mains"; // 34 characters take 36 bytes, too
    EXPECT_EQ(FramesPerSegment(server, 1), 351U);
    server.layout = "Main4567"; // 37 characters take 40
    EXPECT_EQ(FramesPerSegment(server, 1), 350U);
    server.layout = std::string(5000, 'x');
    EXPECT_EQ(FramesPerSegment(server, 1), 1U);
}

} // namespace
