#include "tests/talker/ChannelDouble.h"

#include "tcpio/CTcpIOTalk.h"

#include <new>

ChannelScript& TheChannel() {
    static ChannelScript script;
    return script;
}

namespace {

int Answer(const char* host, int port, std::string sent, std::string& reply, void*& data, int& length,
           int timeout) {
    ChannelScript& script = TheChannel();
    script.host = host;
    script.port = port;
    script.sent = std::move(sent);
    script.timeout = timeout;
    reply = script.reply;
    data = script.buffer.data();
    length = static_cast<int>(script.buffer.size());
    return script.result;
}

} // namespace

CTcpIOTalk::CTcpIOTalk() {
    ++TheChannel().channels;
}

CTcpIOTalk::~CTcpIOTalk() {
    --TheChannel().channels;
}

void* CTcpIOTalk::operator new(size_t size) {
    return ::operator new(size);
}

void CTcpIOTalk::operator delete(void* storage, size_t) noexcept {
    ::operator delete(storage);
}

int CTcpIOTalk::SendTcpMessage(const char* host, int port, const char* text, std::string& reply, void*& data,
                               int& length, int timeout) {
    return Answer(host, port, text ? text : "(null)", reply, data, length, timeout);
}

int CTcpIOTalk::SendBinaryMessage(const char* host, int port, const unsigned char* bytes, int count,
                                  std::string& reply, void*& data, int& length, int timeout, bool raw) {
    TheChannel().raw = raw;
    return Answer(host, port, std::string(reinterpret_cast<const char*>(bytes), static_cast<size_t>(count)),
                  reply, data, length, timeout);
}
