#include "tools/checks/ServerBench.h"
#include "tools/checks/ServerChecks.h"

#include "host/Packet.h"

#include <algorithm>
#include <chrono>

namespace vrx::tool {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

double Median(std::vector<double> times) {
    std::ranges::sort(times);
    return times[times.size() / 2];
}

/// `times` in their order. A server that keeps something of each block gets slower and slower.
void WarnOfSlowingDown(Trial& trial, const std::vector<double>& times) {
    constexpr double kGrowth = 4;
    constexpr double kLeast = 0.01; // s
    const auto tenth = static_cast<std::ptrdiff_t>(times.size() / 10 + 1);
    const double first = Median({times.begin(), times.begin() + tenth});
    const double last = Median({times.end() - tenth, times.end()});
    if (last < std::max(kLeast, kGrowth * first)) return;
    const auto milli = [](double time) { return Shown(static_cast<float>(time * 1000)) + " ms"; };
    trial.Warn({"the last blocks come back as fast as the first ones, half of them within " + milli(first),
                "half of the last ones take longer than " + milli(last),
                "a server that gets slower and slower has drop-outs in the end"});
}

/// Block after block as fast as they come back.
void Pace(Trial& trial) {
    constexpr seconds kTime{50};
    constexpr double kSpread = 50;  // times the median
    constexpr double kLeast = 0.02; // s; no reply below that is late
    const std::size_t words = FindBlock(trial).words;
    ServerClient client(trial);
    std::vector<double> times;
    const std::string request = BlockRequest(trial.Target(), words, words);
    for (const auto end = Clock::now() + kTime; Clock::now() < end;) {
        const ServerReply reply = client.Ask(request);
        ExpectBlock("for block " + std::to_string(times.size() + 1), reply, words);
        Expect(reply.Accepted(), "each of many blocks is accepted", reply.Shown(), "a long run ends early");
        times.push_back(reply.seconds);
        for (const std::size_t at : {20U, 24U})
            if ((reply.Word(at) >> 31) != 0)
                trial.Warn({"cycle figures are not negative",
                            "the word at byte " + std::to_string(at) + " is " + Hex(reply.Word(at)),
                            "hosts show figures near 4294967296"});
    }
    WarnOfSlowingDown(trial, times);
    std::ranges::sort(times);
    const double median = times[times.size() / 2];
    const double late = times[times.size() * 999 / 1000];
    if (late > std::max(kLeast, kSpread * median))
        trial.Warn({"999 of 1,000 replies come within " + Shown(static_cast<float>(kSpread)) +
                        " times the median of " + Shown(static_cast<float>(median * 1000)) + " ms",
                    "one of 1,000 takes more than " + Shown(static_cast<float>(late * 1000)) + " ms",
                    "drop-outs in real time"});
}

/// Random requests, right ones and odd ones, over connections that come and go.
class Talk {
public:
    Talk(Trial& trial, const BlockShape& shape) : m_trial(trial), m_shape(shape), m_client(trial) {}

    void Step() {
        const CheckTarget& target = m_trial.Target();
        switch (m_trial.Below(8)) {
        case 0:
            return ExpectLine("status\n");
        case 1:
            return ExpectLine(ServerConnectText(target));
        case 2:
            return Pins();
        case 3:
            return Odd();
        default:
            return Block();
        }
    }

private:
    void ExpectLine(const std::string& text) {
        const ServerReply reply = m_client.Ask(text);
        Expect(reply.IsAnswer(), "the text " + Shown(text) + " is answered", reply.Shown(),
               "a talker waits in vain");
    }

    void Pins() {
        const ServerReply reply = m_client.Ask(ServerPinRequest(m_trial.Target()));
        ExpectBlock("asked for the pins", reply, 2, true);
    }

    void Odd() {
        const std::string name = "nobody" + std::string(m_trial.Below(9), 'x');
        const std::vector<std::uint32_t> in(m_shape.words);
        const ServerReply reply =
            m_client.Ask(SamplesRequest({name, name, name}, in, static_cast<std::uint32_t>(m_shape.words)));
        ExpectBlock("for unknown objects", reply, m_shape.words, true);
    }

    void Block() {
        std::vector<std::uint32_t> in(m_shape.words);
        for (std::uint32_t& word : in) word = 0x3D000000 + m_trial.Below(0x01000000);
        const ServerReply reply = m_client.Ask(
            SamplesRequest(ServerNames(m_trial.Target()), in, static_cast<std::uint32_t>(m_shape.words)));
        ExpectBlock("for a block in a random conversation", reply, m_shape.words);
        Expect(reply.Accepted(), "a block in a random conversation is accepted", reply.Shown(),
               "hosts lose blocks");
    }

    Trial& m_trial;
    const BlockShape& m_shape;
    ServerClient m_client;
};

void RandomServerTalk(Trial& trial) {
    constexpr seconds kTime{45};
    const BlockShape shape = FindBlock(trial);
    const auto end = Clock::now() + kTime;
    while (Clock::now() < end) {
        Talk talk(trial, shape);
        for (std::uint32_t steps = 1 + trial.Below(300); steps > 0 && Clock::now() < end; --steps)
            talk.Step();
    }
}

/// What a client took is given back when it has gone.
void ManyConnections(Trial& trial) {
    constexpr int kConnections = 1500;
    const std::size_t words = FindBlock(trial).words;
    int made = 0;
    for (const LoopTime time; made < kConnections && time.Left();) {
        ServerClient client(trial, false);
        const ServerReply reply = client.Ask(ServerConnectText(trial.Target()));
        ++made;
        Expect(reply.IsAnswer(), "connection " + std::to_string(made) + " one after the other is answered",
               reply.Shown(), "a server that runs for days takes no more hosts");
    }
    ExpectOthersServed(trial, words, "after " + std::to_string(made) + " connections");
}

constexpr Check kServerEnduranceChecks[] = {
    {"many-connections", CheckTarget::kServer, 9, "Up to 1,500 clients come and go.", "takes-blocks", 80,
     ManyConnections},
    {"pace", CheckTarget::kServer, 9,
     "Block after block for a minute: answered alike, in steady time (which warns).", "takes-blocks", 80,
     Pace},
    {"random-conversation", CheckTarget::kServer, 10, "Requests in random order are answered.",
     "takes-blocks", 80, RandomServerTalk},
};

} // namespace

std::span<const Check> ServerEnduranceChecks() {
    return kServerEnduranceChecks;
}

} // namespace vrx::tool
