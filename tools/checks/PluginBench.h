#pragma once

#include "host/Plugin.h"
#include "talker/CVRXTalker.h"
#include "tools/checks/Check.h"
#include "tools/checks/Expect.h"
#include "tools/checks/StubServer.h"
#include "tools/program/CapturedOutput.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vrx::tool {

using Words = std::vector<std::uint32_t>;

/// A reply to PinProps: input values, then output values.
using PinSix = std::array<std::uint32_t, 6>;

/// What a talker is told: the objects' names and the client's port.
struct TalkerNames {
    std::string input = "In";
    std::string output = "Out";
    std::string layout = "Main";
    int clientPort = 7001;
    std::string host = "127.0.0.1";
};

/// "server=127.0.0.1,servport=PORT,clport=7001,input=In,output=Out,layout=Main".
std::string ArgumentLine(int port, const TalkerNames& names = {});

/// "connect,127.0.0.1,7001\n".
std::string ConnectText(const TalkerNames& names = {});

/// The packet that PumpAudio sends.
std::string PumpPacket(const Words& in, std::uint32_t outCount, const TalkerNames& names = {});

/// The packet that PinProps sends.
std::string PinPacket(const TalkerNames& names = {});

/// Different words, none of them 0, that tell their place: 0x01000001, 0x01000002, ... for a `mark` of 1.
Words Numbered(std::size_t count, std::uint32_t mark);

class PluginBench;

/// A talker of the plug-in under check: its calls are noted before they are made, in case they never return.
class CheckedTalker {
public:
    CheckedTalker(PluginBench& bench, std::unique_ptr<CVRXTalker> talker)
        : m_bench(bench), m_talker(std::move(talker)) {}

    bool Configure(const char* args);
    bool Configure(const std::string& args) { return Configure(args.c_str()); }
    int Pump(const void* in, void* out, unsigned inCount, unsigned outCount);
    int Pins(PinSix& pins);
    int Send(const char* text, std::string& reply);
    float Average() { return m_talker->GetAverageCycles(); }
    float Pumped() { return m_talker->GetPumpCycles(); }
    void Delete();
    CVRXTalker& Bare() { return *m_talker; }

private:
    PluginBench& m_bench;
    std::unique_ptr<CVRXTalker> m_talker;
};

/// The plug-in under check, in the check's own process, with what it prints taken aside.
class PluginBench {
public:
    /// Loads the plug-in; throws Mismatch when it cannot be.
    explicit PluginBench(Trial& trial);

    CheckedTalker Make();

    /// The same without a wrapper; from any thread. Null is the check's to notice.
    std::unique_ptr<CVRXTalker> MakeBare() const { return m_plugin->CreateTalker(); }

    /// A talker that is connected to `server`; throws Mismatch when it does not connect. The server has forgotten
    /// the connect text.
    CheckedTalker Connected(StubServer& server, const TalkerNames& names = {});

    /// What was printed to standard output since the last call, without the last line feed.
    std::string Printed() { return m_output.TakeLines(); }

    /// Throws Mismatch unless exactly this was printed since the last look.
    void ExpectPrinted(const std::string& after, const std::string& line);

    void Unload();

    Trial& Run() { return m_trial; }

private:
    Trial& m_trial;
    CapturedOutput m_output;
    std::shared_ptr<host::Plugin> m_plugin;
};

/// Sends a block of `talker` to `server`, which does not answer, and does `work` meanwhile. True when that is done
/// before the block's time is over, however slow the machine is. Throws what `work` throws.
bool IsDoneMeanwhile(CheckedTalker& talker, StubServer& server, const std::function<void()>& work);

/// A buffer of words between guards. Throws Mismatch from Check when a guard was written to.
class GuardedWords {
public:
    explicit GuardedWords(std::size_t count, std::uint32_t fill = kUntouched);

    static constexpr std::uint32_t kUntouched = 0xDEADBEEF;

    std::uint32_t* Data() { return m_words.data() + kGuard; }
    Words Copy() const;
    /// `what` is the call that got the buffer.
    void CheckGuards(const std::string& what) const;
    bool IsUntouched() const;

private:
    static constexpr std::size_t kGuard = 64;
    static constexpr std::uint32_t kGuardWord = 0xA5C3F00D;
    Words m_words;
};

/// Throws Mismatch unless both are the same; says which word differs.
void ExpectWords(const std::string& what, const Words& expected, const Words& got, const std::string& means);

} // namespace vrx::tool
