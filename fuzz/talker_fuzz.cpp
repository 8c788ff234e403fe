// The talker against a model, over a scripted connection.
//
// The input is a row of operations. Each is an operation byte, its arguments, then the pieces of the reply
// (see ChannelModel).
//   bits 0, 1   PumpAudio (words in, words out, 255: more than any reply holds); PinProps;
//               SendMessage (text up to a NUL); Configure (argument left out, layout, input, output)
//   bit 3       the server has left
//   bit 5       behind the pieces: closed, failing

#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/ScriptedChannel.h"
#include "talker/CVRXTalker.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

constexpr size_t kChannelOffset = 48; // of the channel's pointer in a talker
constexpr size_t kReplyData = 28;
constexpr size_t kCleared = 2048;
constexpr uint32_t kUntouched = 0xCDCDCDCD;
constexpr uint32_t kMoreThanFits = 300000;
constexpr int kClientPort = 7001;

std::string Little(uint32_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i, value >>= 8) bytes += static_cast<char>(value & 0xFF);
    return bytes;
}

std::string SlowPacket(const std::string& words, uint32_t replyWords, const std::string& path) {
    std::string text = path;
    do text += '\0';
    while (text.size() % 4 != 0);
    const auto argumentWords = static_cast<uint32_t>(words.size() / 4 + 1);
    const auto total = static_cast<uint32_t>(16 + 4 * argumentWords + text.size());
    return Little(0x07FF0003) + Little(total) + Little(argumentWords) + Little(0x3A) + Little(replyWords) +
           words + text;
}

/// A name that the settings list carries as it is.
std::string SafeName(std::string name) {
    for (char& c : name)
        if (std::strchr(", \t=", c)) c = '_';
    return "n" + name;
}

class Talker {
public:
    Talker() {
        // What the talker reports would only fill the screen.
        Require(std::freopen("/dev/null", "w", stdout) != nullptr, "reports are dropped");
    }
    ~Talker() { m_script.Kill(Channel()); }

    /// Makes what an input finds independent of the inputs before it.
    void Reset() {
        m_script.Kill(Channel());
        ConnectWell({});

        m_script.Connect(*Channel());
        m_script.model.pieces.emplace_back(kCleared, '\0');
        std::string reply;
        void* data = nullptr;
        int length = 0;
        m_script.Exchange(
            *Channel(), [&] { (void)m_script.model.Direct(true, false); }, // one piece, known to come
            [&] { RequireSame(Channel()->GetBinaryMessage(reply, data, length, -1, true), 1, "clearing"); },
            {});
    }

    void Run(FuzzInput& input) {
        const uint8_t operation = input.Byte();
        switch (operation % 4) {
        case 0:
            Pump(input, operation);
            break;
        case 1:
            AskForPins(input, operation);
            break;
        case 2:
            SendText(input, operation);
            break;
        case 3:
            Reconfigure(input, operation);
            break;
        }
        if (Channel()) m_script.RequireState(*Channel());
        RequireSame(m_talker->GetAverageCycles(), static_cast<float>(m_averageCycles), "average cycles");
        RequireSame(m_talker->GetPumpCycles(), static_cast<float>(m_pumpCycles), "pump cycles");
    }

private:
    using Names = std::array<std::string, 3>; // of layout, input and output

    CTcpIOTalk* Channel() const {
        CTcpIOTalk* channel = nullptr;
        std::memcpy(&channel, reinterpret_cast<const char*>(m_talker.get()) + kChannelOffset, sizeof channel);
        return channel;
    }

    void Script(FuzzInput& input, uint8_t operation) {
        const End end = (operation & 0x20) != 0 ? End::kFails : End::kCloses;
        if (Channel()) m_script.Script(*Channel(), input, end, (operation & 0x08) != 0);
    }

    /// A command's exchange; the result is the server's status if the reply is a packet.
    template <class Command>
    int RunCommand(const std::string& packet, Command command) {
        int want = CVRXTalker::kNoConnection;
        const auto check = [&] { RequireSame(command(), want, "the result of a command"); };
        if (!Channel()) {
            check();
            return want;
        }
        const auto expected = [&] {
            want = m_script.model.Binary(static_cast<int>(packet.size()), false, true, false);
            m_accepted = want > 0 && m_script.model.Word(0) == CTcpIOTalk::kPacketMarker;
            if (m_accepted)
                want = static_cast<int>(m_script.model.Word(16));
            else if (want > 0)
                want = CVRXTalker::kNotAPacket;
        };
        m_script.Exchange(*Channel(), expected, check, {packet});
        return want;
    }

    void Pump(FuzzInput& input, uint8_t operation) {
        const unsigned inCount = input.UpTo(40);
        const unsigned outByte = input.Byte();
        const unsigned outCount = outByte == 255 && m_script.slowCases.Take(0.01) ? kMoreThanFits : outByte;
        std::string words = input.Bytes(size_t{4} * inCount);
        words.resize(size_t{4} * inCount);
        Script(input, operation);

        m_accepted = false;
        std::vector<uint32_t> out(outCount, kUntouched);
        const std::string path = m_names[0] + "," + m_names[1] + ".samples[0]," + m_names[2] + ".samples[0]";
        RunCommand(SlowPacket(words, outCount + 3, path),
                   [&] { return m_talker->PumpAudio(words.data(), out.data(), inCount, outCount); });

        std::vector<uint32_t> want(outCount, kUntouched);
        if (m_accepted) {
            m_averageCycles = static_cast<uint32_t>(static_cast<int32_t>(m_script.model.Word(20)) >> 8);
            m_pumpCycles = static_cast<uint32_t>(static_cast<int32_t>(m_script.model.Word(24)) >> 8);
            for (size_t i = 0; i < outCount && kReplyData + 4 * i + 4 <= ChannelModel::kBufferSize; ++i)
                want[i] = m_script.model.Word(kReplyData + 4 * i);
        }
        Require(out == want, "the words out");
    }

    void AskForPins(FuzzInput& input, uint8_t operation) {
        Script(input, operation);
        m_accepted = false;
        std::array<unsigned, 6> pins;
        pins.fill(kUntouched);
        std::array<unsigned, 6> want = pins;
        RunCommand(
            SlowPacket(std::string(16, '\0'), 5, "-1," + m_names[1] + ".info1," + m_names[2] + ".info1"),
            [&] { return m_talker->PinProps(pins[0], pins[1], pins[2], pins[3], pins[4], pins[5]); });
        for (size_t pin = 0; m_accepted && pin < 2; ++pin) {
            const uint32_t word = m_script.model.Word(kReplyData + 4 * pin);
            want[3 * pin] = (word >> 10) & 0x1FFFF;
            want[3 * pin + 1] = word & 0x3FF;
            want[3 * pin + 2] = (word >> 27) & 1;
        }
        Require(pins == want, "the pins");
    }

    void SendText(FuzzInput& input, uint8_t operation) {
        const std::string text = input.Field();
        Script(input, operation);
        std::string reply = "old";
        int want = CVRXTalker::kNoConnection;
        const auto check = [&] {
            RequireSame(m_talker->SendMessage(text.c_str(), reply), want, "a text's result");
        };
        if (!Channel()) return check();
        m_script.Exchange(
            *Channel(), [&] { want = m_script.model.Text(text, false); }, check, TextMessages(text));
        if (want > 0) RequireSame(reply, m_script.model.reply, "the reply to a text");
    }

    void Reconfigure(FuzzInput& input, uint8_t operation) {
        const int leftOut = static_cast<int>(input.UpTo(11));
        Names names;
        for (std::string& name : names) name = input.Field();
        if (leftOut < 6) return Require(!Configure(leftOut, names), "a key is missing");
        // A connect that fails ends a channel, which waits for its watchdog.
        if (!m_script.slowCases.Take(0)) return;
        if (!Channel()) return ConnectWell(names);
        Script(input, operation);
        const std::string command =
            std::string("connect,") + GoodServer::kHost + "," + std::to_string(kClientPort);
        bool want = false;
        m_script.Exchange(
            *Channel(), [&] { want = m_script.model.Text(command, false) > 0; },
            [&] { RequireSame(Configure(-1, names), want, "whether a connect succeeds"); },
            TextMessages(command));
        if (want) return;
        Require(!Channel(), "a failed connect ends the channel");
        (void)m_script.slowCases.Take(0.1); // this is what it took
    }

    /// Configures the talker, with the key of index `leftOut` missing if it is not negative.
    bool Configure(int leftOut, const Names& names) {
        Names safe;
        for (size_t i = 0; i < names.size(); ++i) safe[i] = SafeName(names[i]);
        const std::string settings[] = {std::string("server=") + GoodServer::kHost,
                                        "servport=" + std::to_string(m_script.server.Port()),
                                        "clport=" + std::to_string(kClientPort),
                                        "input=" + safe[1],
                                        "output=" + safe[2],
                                        "layout=" + safe[0]};
        std::string args;
        for (int i = 0; i < 6; ++i)
            if (i != leftOut) args += settings[i] + ",";

        const bool connected = m_talker->Configure(args.c_str());
        if (leftOut < 0) m_names = safe;
        return connected;
    }

    /// Connects to the good server, over a new channel if there is none.
    void ConnectWell(const Names& names) {
        auto& buffer = m_script.model.buffer;
        if (!Channel()) std::fill(buffer.begin(), buffer.end(), '\0');
        Require(Configure(-1, names), "a good server is connected to");
        m_script.AnsweredWell();
        m_script.Kill(Channel());
    }

    ScriptedChannel m_script;
    std::unique_ptr<CVRXTalker> m_talker{TalkerFactory()};
    Names m_names;
    bool m_accepted = false; // the last command's reply was a packet
    uint32_t m_averageCycles = 0;
    uint32_t m_pumpCycles = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Talker talker;
    FuzzInput input(data, size);
    talker.Reset();
    while (!input.AtEnd()) talker.Run(input);
    return 0;
}
