#pragma once

#include <string>
#include <vector>

/// What the double of CTcpIOTalk is to answer, and what it was asked. One for the whole program.
struct ChannelScript {
    // Answers
    int result = 1;
    std::string reply;        ///< handed over as the reply text
    std::vector<char> buffer; ///< the receive buffer, where the reply data begin

    // Questions
    std::string host;
    int port = 0;
    std::string sent; ///< text or packet bytes
    int timeout = 0;
    bool raw = false;
    int channels = 0; ///< objects alive
};

ChannelScript& TheChannel();
