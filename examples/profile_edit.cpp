// Reads a profile from text, looks entries up, changes some and prints the result.
#include "base/BaseHelpers.h"

#include <cstdio>

int main() {
    string_vector profile;
    profile.LoadFromString("[Server]\n"
                           "host=10.0.0.5 ; the mixer\n"
                           "port=7000\n"
                           "\n"
                           "[Layout]\n"
                           "name=Main\n");

    // Names are compared without regard to case; a comment is not part of a value.
    const std::string host = profile.GetProfileStr("server", "HOST", "localhost");
    const int port = profile.GetProfileIntg("Server", "port", 80);
    const int blocks = profile.GetProfileIntg("Server", "blocks", 64); // not there: the default
    std::printf("%s:%d, %d blocks\n", host.c_str(), port, blocks);

    profile.WriteProfileIntg("Server", "port", 7001);
    profile.WriteProfileStr("Server", "timeout", "10");  // goes above the section's empty line
    profile.WriteProfileStr("Log", "level", "2");        // a new section goes to the end
    profile.WriteProfileStr("Layout", nullptr, nullptr); // removes a whole section
    for (const std::string& line : profile) std::puts(line.c_str());
}
