#include "tools/checks/PluginBench.h"

#include "host/Packet.h"
#include "tools/wire/Requests.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

namespace vrx::tool {

std::string ArgumentLine(int port, const TalkerNames& names) {
    return "server=" + names.host + ",servport=" + std::to_string(port) +
           ",clport=" + std::to_string(names.clientPort) + ",input=" + names.input +
           ",output=" + names.output + ",layout=" + names.layout;
}

std::string ConnectText(const TalkerNames& names) {
    return "connect," + names.host + "," + std::to_string(names.clientPort) + "\n";
}

std::string PumpPacket(const Words& in, std::uint32_t outCount, const TalkerNames& names) {
    return SamplesRequest({names.layout, names.input, names.output}, in, outCount);
}

std::string PinPacket(const TalkerNames& names) {
    return PinRequest({"", names.input, names.output});
}

Words Numbered(std::size_t count, std::uint32_t mark) {
    Words words(count);
    for (std::size_t i = 0; i < count; ++i) words[i] = (mark << 24) + static_cast<std::uint32_t>(i) + 1;
    return words;
}

bool CheckedTalker::Configure(const char* args) {
    m_bench.Run().Doing(args == nullptr ? "in Configure(null)"
                                        : "in Configure(" + Shown(std::string_view(args)) + ")");
    const bool done = m_talker->Configure(args);
    m_bench.Run().Doing("after Configure");
    return done;
}

int CheckedTalker::Pump(const void* in, void* out, unsigned inCount, unsigned outCount) {
    m_bench.Run().Doing("in PumpAudio with " + std::to_string(inCount) + " words in, " +
                        std::to_string(outCount) + " out");
    const int result = m_talker->PumpAudio(in, out, inCount, outCount);
    m_bench.Run().Doing("after PumpAudio");
    return result;
}

int CheckedTalker::Pins(PinSix& pins) {
    m_bench.Run().Doing("in PinProps");
    const int result = m_talker->PinProps(pins[0], pins[1], pins[2], pins[3], pins[4], pins[5]);
    m_bench.Run().Doing("after PinProps");
    return result;
}

int CheckedTalker::Send(const char* text, std::string& reply) {
    m_bench.Run().Doing(text == nullptr ? "in SendMessage(null)"
                                        : "in SendMessage(" + Shown(std::string_view(text)) + ")");
    const int result = m_talker->SendMessage(text, reply);
    m_bench.Run().Doing("after SendMessage");
    return result;
}

void CheckedTalker::Delete() {
    m_bench.Run().Doing("deleting a talker");
    m_talker.reset();
    m_bench.Run().Doing("after deleting a talker");
}

PluginBench::PluginBench(Trial& trial) : m_trial(trial) {
    trial.Doing("loading the plug-in");
    std::string error;
    m_plugin = host::Plugin::Load(trial.Target().file, error);
    Expect(m_plugin != nullptr, "the plug-in can be loaded", error, "no host can use it");
    trial.Doing("after loading the plug-in");
}

CheckedTalker PluginBench::Make() {
    m_trial.Doing("in TalkerFactory");
    std::unique_ptr<CVRXTalker> talker = m_plugin->CreateTalker();
    m_trial.Doing("after TalkerFactory");
    Expect(talker != nullptr, "TalkerFactory returns a talker", "TalkerFactory returned null",
           "a host that does not look ends; others cannot use the plug-in");
    return {*this, std::move(talker)};
}

CheckedTalker PluginBench::Connected(StubServer& server, const TalkerNames& names) {
    CheckedTalker talker = Make();
    Expect(talker.Configure(ArgumentLine(server.Port(), names)),
           "Configure connects to a server that answers, and returns true", "Configure returned false",
           "no host can use this plug-in");
    server.Forget();
    (void)Printed();
    return talker;
}

void PluginBench::ExpectPrinted(const std::string& after, const std::string& line) {
    const std::string got = Printed();
    const auto shown = [](const std::string& text) { return text.empty() ? "nothing" : Shown(text); };
    Expect(got == line, after + " prints " + shown(line) + " to standard output",
           after + " printed " + shown(got),
           "hosts show these lines, and tell by them a failed exchange from a server's status");
}

void PluginBench::Unload() {
    m_trial.Doing("unloading the plug-in");
    m_plugin.reset();
    m_trial.Doing("after unloading the plug-in");
}

bool IsDoneMeanwhile(CheckedTalker& talker, StubServer& server, const std::function<void()>& work) {
    constexpr std::chrono::milliseconds kLook{2};
    constexpr std::chrono::milliseconds kStillWaits{
        300}; // work that ends because the block does is not done meanwhile
    const auto over = [](const auto& future) {
        return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    };
    server.Forget();
    server.Then(Answer::Silence());
    const auto block = std::async(std::launch::async, [&talker] {
        Words words(4);
        (void)talker.Bare().PumpAudio(words.data(), words.data(), 4, 4);
    });
    const bool asked = server.Take(std::chrono::seconds(10)).has_value();
    auto meanwhile = std::async(std::launch::async, work);
    while (!over(block) && !over(meanwhile)) std::this_thread::sleep_for(kLook);
    const bool done = block.wait_for(kStillWaits) != std::future_status::ready;
    server.Drop(Answer::kClose);
    meanwhile.get();
    return asked && done;
}

GuardedWords::GuardedWords(std::size_t count, std::uint32_t fill) : m_words(count + 2 * kGuard, fill) {
    std::fill_n(m_words.begin(), kGuard, kGuardWord);
    std::fill_n(m_words.end() - kGuard, kGuard, kGuardWord);
}

Words GuardedWords::Copy() const {
    return {m_words.begin() + kGuard, m_words.end() - kGuard};
}

void GuardedWords::CheckGuards(const std::string& what) const {
    const auto touched = [](std::uint32_t word) { return word != kGuardWord; };
    const auto guards = [&](auto first) { return std::any_of(first, first + kGuard, touched); };
    Expect(!guards(m_words.begin()), "nothing before the buffer is written",
           what + " wrote before the start of the host's buffer", "the host's memory is damaged");
    Expect(!guards(m_words.end() - kGuard), "nothing behind the buffer is written",
           what + " wrote behind the end of the host's buffer", "the host's memory is damaged");
}

bool GuardedWords::IsUntouched() const {
    return std::all_of(m_words.begin() + kGuard, m_words.end() - kGuard,
                       [](std::uint32_t word) { return word == kUntouched; });
}

void ExpectWords(const std::string& what, const Words& expected, const Words& got, const std::string& means) {
    for (std::size_t i = 0; i < std::min(expected.size(), got.size()); ++i)
        Expect(expected[i] == got[i], what + ": word " + std::to_string(i) + " is " + Hex(expected[i]),
               what + ": word " + std::to_string(i) + " is " + Hex(got[i]), means);
    ExpectSame(what + ": words", expected.size(), got.size(), means);
}

} // namespace vrx::tool
