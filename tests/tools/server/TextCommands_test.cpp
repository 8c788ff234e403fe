#include "tools/server/TextCommands.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using vrx::tool::ServerFigures;

const ServerFigures kFigures{.clients = 3,
                             .packets = 12345678901,
                             .errors = 2,
                             .uptimeSeconds = 1.54,
                             .blocks = 12345678900,
                             .busy = 0.125,
                             .latencyFrames = 512};

struct LineCase {
    const char* line;
    const char* answer;
};
const std::string kLongName(100, 'y');
const std::string kLongAnswer = "error: unknown command '" + std::string(64, 'y') + "'; try help";
const LineCase kLines[] = {
    {"connect,127.0.0.1,7001", "connected"},
    {"connect,10.0.0.5,-1", "connected"},
    {"connect,host,0\r", "connected"},
    {"connect,", "error: connect is written connect,HOST,PORT"},
    {"connect,host", "error: connect is written connect,HOST,PORT"},
    {"connect,host,", "error: connect is written connect,HOST,PORT"},
    {"connect,host,x", "error: connect is written connect,HOST,PORT"},
    {"connect,host,70x", "error: connect is written connect,HOST,PORT"},
    {"connect", "error: unknown command 'connect'; try help"},
    {"help", "commands: connect,HOST,PORT; help; status. Packets: command 0x3A on .samples[0] and .info1"},
    {"status", "clients=3 packets=12345678901 errors=2 uptime=1.5s"},
    {"status\r", "clients=3 packets=12345678901 errors=2 uptime=1.5s"},
    {"status json", R"({"clients":3,"packets":12345678901,"errors":2,"uptime":1.54,)"
                    R"("blocks":12345678900,"busy":0.125,"latency":512})"},
    {"status json\r", R"({"clients":3,"packets":12345678901,"errors":2,"uptime":1.54,)"
                      R"("blocks":12345678900,"busy":0.125,"latency":512})"},
    {"status xml", "error: unknown command 'status xml'; try help"},
    {"Status", "error: unknown command 'Status'; try help"},
    {"", "error: unknown command ''; try help"},
    {"a\t\xC3\xA4\x7F", "error: unknown command 'a....'; try help"},
    {kLongName.c_str(), kLongAnswer.c_str()},
};

TEST(AnswerLine, AnswersEachCommand) {
    for (const LineCase& c : kLines) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(vrx::tool::AnswerLine(c.line, kFigures), c.answer);
    }
}

} // namespace
