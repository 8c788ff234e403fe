#include "tools/commands/ConnectionOptions.h"

#include "tools/program/Errors.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx;
using namespace vrx::tool;

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
    const host::ServerSettings server = ResolveServer(WithPort());
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
    const host::ServerSettings server = ResolveServer(options);
    EXPECT_EQ(server.args, "server=studio,servport=65535,clport=-1,input=Mic one,output=a=b,layout=L");
    EXPECT_EQ(server.input, "Mic one");
    EXPECT_EQ(server.output, "a=b");
    EXPECT_EQ(server.layout, "L");
}

TEST(ResolveServer, TakesAWholeLineAsItIs) {
    ConnectionOptions options;
    options.args = " layout = M , extra=1,input=I,output=O,clport=2,servport=7001x,server=10.0.0.5";
    const host::ServerSettings server = ResolveServer(options);
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

} // namespace
