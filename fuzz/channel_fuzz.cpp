// CTcpIOTalk against a model, over a scripted connection.
//
// The input is a row of exchanges. Each is an operation byte, the request up to a NUL ("-" as a packet: a
// negative count), for one kind of time-out its value, then the pieces of the reply (see ChannelModel).
//   bits 0, 1   text line; packet, raw reply; packet, framed reply; only a reply
//   bit 2       packet: a negative port, which collects the reply; only a reply: raw
//   bit 3       the server has left
//   bits 4, 5   behind the pieces: closed, closed, failing, no answer (only behind a byte 0xA5)
//   bits 6, 7   time-out: none, none, 1000, 0 to 9
// 0xFF is an exchange with a host that cannot be reached.

#include "fuzz/Allowance.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/ScriptedChannel.h"
#include "tcpio/CTcpIOTalk.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

constexpr size_t kBufferOffset = 16;
constexpr int kThreeTicks = 30;

enum class Kind { kText, kRawPacket, kPacket, kDirect };

struct Exchange {
    Kind kind;
    bool option;
    bool serverLeaves;
    End end;
    int timeout;
    std::string request;

    int Count() const { return request == "-" ? -1 : static_cast<int>(request.size()); }
    bool Limited() const { return timeout >= 0 && timeout < 10; }
    bool Raw() const { return kind == Kind::kRawPacket || (kind == Kind::kDirect && option); }

    bool Collects() const { return kind != Kind::kText && kind != Kind::kDirect && option; }

    /// The messages that leave the channel.
    std::vector<std::string> Messages() const {
        if (kind == Kind::kText) return TextMessages(request);
        if (kind == Kind::kDirect || Count() <= 0) return {};
        return {request};
    }
};

Exchange ReadExchange(FuzzInput& input, uint8_t operation, Allowance& slowCases) {
    Exchange exchange{};
    exchange.kind = static_cast<Kind>(operation % 4);
    exchange.option = (operation & 0x04) != 0;
    exchange.serverLeaves = (operation & 0x08) != 0;
    exchange.request = input.Field();
    switch (operation >> 6) {
    case 2:
        exchange.timeout = 1000;
        break;
    case 3:
        exchange.timeout = static_cast<int>(input.UpTo(9));
        break;
    default:
        exchange.timeout = -1;
    }
    switch ((operation >> 4) & 3) {
    case 2:
        exchange.end = End::kFails;
        break;
    case 3:
        if (exchange.serverLeaves || input.Byte() != 0xA5 || !slowCases.Take(0.3)) break;
        exchange.end = End::kStalls;
        exchange.timeout = kThreeTicks;
        break;
    default:
        break;
    }
    return exchange;
}

class Channel {
public:
    ~Channel() { m_script.Kill(m_talk.get()); }

    /// Makes what an input finds independent of the inputs before it.
    void Reset() {
        m_script.Kill(m_talk.get());
        m_script.Connect(*m_talk);
        m_script.model.pieces.emplace_back(kBufferOffset, '\0');
        Run(Exchange{Kind::kDirect, true, false, End::kCloses, -1, ""});
    }

    void Run(FuzzInput& input) {
        const uint8_t operation = input.Byte();
        if (operation == 0xFF) return RunUnreachable(input);
        const Exchange exchange = ReadExchange(input, operation, m_script.slowCases);
        m_script.Script(*m_talk, input, exchange.end, exchange.serverLeaves);
        Run(exchange);
    }

    void RequireGoodExchange() {
        m_script.Kill(m_talk.get());
        const int result = m_talk->SendTcpMessage(GoodServer::kHost, m_script.server.Port(), "hello", m_reply,
                                                  m_data, m_length, 1000);
        RequireSame(result, 1, "an exchange with a good server works afterwards");
        RequireSame(m_reply, std::string(GoodServer::kAnswer), "the good server's answer");
        m_script.AnsweredWell();
    }

private:
    void Run(const Exchange& exchange) {
        int want = 0;
        m_script.Exchange(
            *m_talk, [&] { want = Expected(exchange); },
            [&] { RequireSame(Result(exchange), want, "the result"); }, exchange.Messages());
        if (m_script.model.awaited) RequireReply(exchange, want);
        m_script.RequireState(*m_talk);
    }

    int Expected(const Exchange& exchange) {
        switch (exchange.kind) {
        case Kind::kText:
            return m_script.model.Text(exchange.request, exchange.Limited());
        case Kind::kDirect:
            return m_script.model.Direct(exchange.Raw(), exchange.Limited());
        default:
            return m_script.model.Binary(exchange.Count(), exchange.Collects(), exchange.Raw(),
                                         exchange.Limited());
        }
    }

    int Result(const Exchange& exchange) {
        const int port = m_script.server.Port() - (exchange.Collects() ? 0x10000 : 0);
        const char* request = exchange.request.c_str();
        m_reply = "old";
        switch (exchange.kind) {
        case Kind::kText:
            return m_talk->SendTcpMessage(GoodServer::kHost, m_script.server.Port(), request, m_reply, m_data,
                                          m_length, exchange.timeout);
        case Kind::kDirect:
            return m_talk->GetBinaryMessage(m_reply, m_data, m_length, exchange.timeout, exchange.Raw());
        default:
            return m_talk->SendBinaryMessage(
                GoodServer::kHost, port, reinterpret_cast<const unsigned char*>(request), exchange.Count(),
                m_reply, m_data, m_length, exchange.timeout, exchange.Raw());
        }
    }

    void RequireReply(const Exchange& exchange, int result) {
        const ChannelModel& model = m_script.model;
        const char* buffer = reinterpret_cast<const char*>(m_talk.get()) + kBufferOffset;
        RequireSame(m_length, model.length, "the length");
        RequireSame(m_reply, model.reply, "the reply");
        Require(m_data == buffer, "the data lie in the channel's buffer");
        size_t known = 1; // of a reply that failed: the first byte was cleared
        if (result == CTcpIOTalk::kReplied && !model.broken)
            known = static_cast<size_t>(m_length) + (exchange.Raw() && !exchange.Collects() ? 1 : 0);
        Require(std::memcmp(m_data, model.buffer.data(), known) == 0, "the data");
    }

    void RunUnreachable(FuzzInput& input) {
        static constexpr const char* kHosts[] = {nullptr, "", "0.0.0.0"};
        const unsigned host = input.UpTo(2);
        if (m_script.model.connected) return;
        const int port = m_script.server.Port();
        const unsigned char packet[] = {1, 2, 3, 4};
        const int unsent = host < 2 ? CTcpIOTalk::kNoConnection : CTcpIOTalk::kSendFailed;
        RequireSame(m_talk->SendTcpMessage(kHosts[host], port, "hello", m_reply, m_data, m_length, -1), -1,
                    "a text for a host that cannot be reached");
        RequireSame(
            m_talk->SendBinaryMessage(kHosts[host], port, packet, 4, m_reply, m_data, m_length, -1, true),
            unsent, "a packet for a host that cannot be reached");
        RequireSame(ScriptedConnection::SocketOf(*m_talk), -1, "no connection");
    }

    ScriptedChannel m_script;
    std::unique_ptr<CTcpIOTalk> m_talk = std::make_unique<CTcpIOTalk>();
    std::string m_reply;
    void* m_data = nullptr;
    int m_length = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Channel channel;
    FuzzInput input(data, size);
    channel.Reset();
    while (!input.AtEnd()) channel.Run(input);
    channel.RequireGoodExchange();
    return 0;
}
