#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"

#include "host/Packet.h"

#include <chrono>
#include <cstring>

namespace vrx::tool {

namespace {

using enum CVRXTalker::Result;
using Clock = std::chrono::steady_clock;

constexpr char kModel[] = "in some order of calls the talker does something else than hosts rely on";

/// What a talker has to be like, step by step, beside the talker itself.
class Conversation {
public:
    explicit Conversation(Trial& trial)
        : m_trial(trial), m_bench(trial), m_talker(m_bench.Connected(m_server)) {}

    void Step() {
        switch (m_trial.Below(12)) {
        case 0:
            return Configure();
        case 1:
            return MissingKey();
        case 2:
            return Pins();
        case 3:
            return Message();
        case 4:
            return Refusal();
        case 5:
            return Loss(Answer::kClose, kPeerClosed);
        case 6:
            return m_trial.Below(2) == 0 ? Loss(Answer::kReset, kReceiveFailed) : Dead();
        default:
            return Block();
        }
    }

private:
    std::uint32_t Word() { return static_cast<std::uint32_t>(m_trial.Random()()); }

    std::string Name() {
        std::string name(1 + m_trial.Below(12), 'n');
        for (char& c : name) c = static_cast<char>('a' + m_trial.Below(26));
        return name;
    }

    /// What the last call sent, over the connection that it had to use.
    void ExpectSent(const std::string& call, const std::string& bytes) {
        const auto request = m_server.Take();
        Expect(request.has_value(), call + " sends a request", "nothing came", kModel);
        ExpectBytes(call + " sends", bytes, request->bytes, kModel);
        ExpectSame(call + " uses connection", m_connection, request->connection, kModel);
        m_bench.ExpectPrinted(call, "");
    }

    void ExpectFigures(const std::string& after) {
        ExpectSame("after " + after + ", GetAverageCycles returns", m_average, m_talker.Average(), kModel);
        ExpectSame("after " + after + ", GetPumpCycles returns", m_pump, m_talker.Pumped(), kModel);
    }

    void Reconnected() {
        if (!m_lost) return;
        m_lost = false;
        ++m_connection;
    }

    void Configure() {
        m_names = {Name(), Name(), Name(), static_cast<int>(m_trial.Below(65536)), "127.0.0.1"};
        ExpectSame("Configure returns", true, m_talker.Configure(ArgumentLine(m_server.Port(), m_names)),
                   kModel);
        Reconnected();
        ExpectSent("Configure", ConnectText(m_names));
        ExpectFigures("Configure");
    }

    void MissingKey() {
        ExpectSame(
            "Configure without a layout returns", false,
            m_talker.Configure("server=10.1.1.1,servport=1,clport=2,input=" + Name() + ",output=" + Name()),
            kModel);
        m_bench.ExpectPrinted("Configure without a layout",
                              "CVRXTalker::Configure: 'layout' argument missing");
    }

    static float Shown(std::uint32_t word) {
        return static_cast<float>(static_cast<std::uint32_t>(static_cast<std::int32_t>(word) >> 8));
    }

    void Block() {
        const unsigned inCount = m_trial.Below(340);
        const unsigned outCount = m_trial.Below(340);
        Words in(inCount);
        for (std::uint32_t& word : in) word = Word();
        Words reply(outCount);
        for (std::uint32_t& word : reply) word = Word();
        const std::uint32_t status = Word();
        const std::uint32_t average = Word();
        const std::uint32_t pump = Word();
        m_server.Then(Answer::Bytes(ReplyPacket(status, average, pump, reply)));
        GuardedWords out(outCount);
        const int result = m_talker.Pump(in.data(), out.Data(), inCount, outCount);
        Reconnected();
        out.CheckGuards("PumpAudio");
        ExpectSame("PumpAudio returns", static_cast<int>(status), result, kModel);
        ExpectSent("PumpAudio", PumpPacket(in, outCount, m_names));
        ExpectWords("out", reply, out.Copy(), kModel);
        m_average = Shown(average);
        m_pump = Shown(pump);
        ExpectFigures("a block");
    }

    void Pins() {
        const std::uint32_t in = Word();
        const std::uint32_t out = Word();
        const std::uint32_t status = Word();
        m_server.Then(Answer::Bytes(ReplyPacket(status, Word(), Word(), Words{in, out})));
        PinSix pins = {};
        ExpectSame("PinProps returns", static_cast<int>(status), m_talker.Pins(pins), kModel);
        Reconnected();
        ExpectSent("PinProps", PinPacket(m_names));
        const PinSix expected = {in >> 10 & 0x1FFFF,  in & 0x3FF,  in >> 27 & 1,
                                 out >> 10 & 0x1FFFF, out & 0x3FF, out >> 27 & 1};
        ExpectWords("the pin values", Words(expected.begin(), expected.end()),
                    Words(pins.begin(), pins.end()), kModel);
        ExpectFigures("PinProps");
    }

    void Message() {
        const std::string text = Name();
        const std::string line = Name();
        m_server.Then(Answer::Bytes(line + "\n"));
        std::string reply = Name();
        ExpectSame("SendMessage returns", int{kReplied}, m_talker.Send(text.c_str(), reply), kModel);
        Reconnected();
        ExpectSent("SendMessage", text + "\n");
        ExpectSame("SendMessage delivers", line, reply, kModel);
    }

    void Refusal() {
        m_server.Then(Answer::Bytes("error: " + Name() + "\n"));
        GuardedWords out(8);
        ExpectSame("PumpAudio, answered with text, returns", int{kNotAPacket},
                   m_talker.Pump(out.Data(), out.Data(), 8, 8), kModel);
        Reconnected();
        Expect(out.IsUntouched(), "out is left alone", "PumpAudio wrote to out", kModel);
        m_bench.ExpectPrinted("PumpAudio, answered with text,",
                              "CVRXTalker::PumpAudio: SendBinaryMessage did not reply with packet");
        m_server.Forget();
        ExpectFigures("a refusal");
    }

    void Loss(Answer::End how, int expected) {
        m_server.Then(Answer::Ending(how));
        GuardedWords out(8);
        const std::string when = "PumpAudio, answered with the end of the connection,";
        ExpectSame(when + " returns", expected, m_talker.Pump(out.Data(), out.Data(), 8, 8), kModel);
        Reconnected();
        Expect(out.IsUntouched(), "out is left alone", "PumpAudio wrote to out", kModel);
        m_bench.ExpectPrinted(when, "CVRXTalker::PumpAudio: SendBinaryMessage failed with " +
                                        std::to_string(expected));
        m_server.Forget();
        m_lost = true;
        ExpectFigures("a loss");
    }

    /// A reset between two calls: blocks fail until text has replaced the connection.
    void Dead() {
        if (m_lost) return;
        m_server.Drop(Answer::kReset);
        m_lost = true;
        Words words(4);
        for (std::uint32_t i = m_trial.Below(3); i > 0; --i) {
            ExpectSame("PumpAudio on a dead connection returns", int{kSendFailed},
                       m_talker.Pump(words.data(), words.data(), 4, 4), kModel);
            m_bench.ExpectPrinted("PumpAudio on a dead connection",
                                  "CVRXTalker::PumpAudio: SendBinaryMessage failed with -9997");
        }
        m_trial.Below(2) == 0 ? Message() : Configure();
    }

    Trial& m_trial;
    PluginBench m_bench;
    StubServer m_server;
    CheckedTalker m_talker;
    TalkerNames m_names;
    float m_average = 0;
    float m_pump = 0;
    int m_connection = 1;
    bool m_lost = false;
};

void RandomConversation(Trial& trial) {
    constexpr std::chrono::seconds kTime{50};
    constexpr int kSteps = 200; // for each talker
    const auto end = Clock::now() + kTime;
    while (Clock::now() < end) {
        Conversation conversation(trial);
        for (int step = 0; step < kSteps && Clock::now() < end; ++step) conversation.Step();
    }
}

constexpr Check kPluginRandomChecks[] = {
    {"random-conversation", CheckTarget::kPlugin, 10,
     "Calls and answers in random order do what a model of the talker does.", "connects", 90,
     RandomConversation},
};

} // namespace

std::span<const Check> PluginRandomChecks() {
    return kPluginRandomChecks;
}

} // namespace vrx::tool
