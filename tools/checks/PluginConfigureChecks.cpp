#include "tools/checks/PluginBench.h"
#include "tools/checks/PluginChecks.h"

namespace vrx::tool {

namespace {

constexpr const char* kKeys[] = {"server", "servport", "clport", "input", "output", "layout"};
constexpr char kNoChannel[] = "m_tcpio is NULL";

std::string NoChannelLine(const char* operation) {
    return std::string("CVRXTalker::") + operation + ": " + kNoChannel;
}

/// All three operations of a talker without a connection: -1, their line, and nothing written.
void ExpectNotConnected(PluginBench& bench, CheckedTalker& talker, const std::string& when) {
    const char* means = "hosts know by -1 that they have to configure the talker";
    (void)bench.Printed();
    GuardedWords out(8);
    const Words in = Numbered(8, 1);
    ExpectSame(when + ", PumpAudio returns", -1, talker.Pump(in.data(), out.Data(), 8, 8), means);
    bench.ExpectPrinted(when + ", PumpAudio", NoChannelLine("PumpAudio"));
    Expect(out.IsUntouched(), "out is left alone when PumpAudio fails", "PumpAudio wrote to out",
           "the host's last good block is lost");

    PinSix pins = {91, 92, 93, 94, 95, 96};
    ExpectSame(when + ", PinProps returns", -1, talker.Pins(pins), means);
    bench.ExpectPrinted(when + ", PinProps", NoChannelLine("PinProps"));
    Expect(pins == PinSix{91, 92, 93, 94, 95, 96}, "the pin values are left alone when PinProps fails",
           "PinProps wrote to them", "a host takes what is no answer for the server's pins");

    std::string reply = "before";
    ExpectSame(when + ", SendMessage returns", -1, talker.Send("status", reply), means);
    bench.ExpectPrinted(when + ", SendMessage", NoChannelLine("SendMessage"));
    ExpectSame(when + ", SendMessage leaves the reply as", std::string("before"), reply,
               "a host takes what is no answer for a reply");

    (void)talker.Pump(in.data(), out.Data(), 8, 8);
    (void)talker.Pins(pins);
    (void)talker.Send("status", reply);
    bench.ExpectPrinted(when + ", one call after the other", NoChannelLine("PumpAudio") + "\n" +
                                                                 NoChannelLine("PinProps") + "\n" +
                                                                 NoChannelLine("SendMessage"));
}

void Connects(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    talker.Delete();
    Expect(server.WaitForOpen(0), "deleting a talker closes its connection", "the connection stays open",
           "servers run out of clients");
    const auto last = server.Take(std::chrono::milliseconds(0));
    Expect(!last, "deleting a talker sends nothing", "this was sent: " + (last ? Shown(last->bytes) : ""),
           "a server takes it for a request");
}

void FiguresStartAtZero(Trial& trial) {
    PluginBench bench(trial);
    CheckedTalker talker = bench.Make();
    const char* means = "hosts show figures that no server reported";
    ExpectSame("GetAverageCycles of a new talker is", 0.0F, talker.Average(), means);
    ExpectSame("GetPumpCycles of a new talker is", 0.0F, talker.Pumped(), means);
}

void NotConfigured(Trial& trial) {
    PluginBench bench(trial);
    CheckedTalker talker = bench.Make();
    ExpectNotConnected(bench, talker, "on a new talker");
}

void NoArguments(Trial& trial) {
    PluginBench bench(trial);
    CheckedTalker talker = bench.Make();
    const char* means = "a host without settings gets an answer that it does not expect";
    ExpectSame("Configure(\"\") returns", false, talker.Configure(""), means);
    bench.ExpectPrinted("Configure(\"\")", "");
    ExpectSame("Configure(null) returns", false, talker.Configure(nullptr), means);
    bench.ExpectPrinted("Configure(null)", "");
}

/// The argument line without the keys whose bit is set.
std::string Without(int port, unsigned missing) {
    const std::string values[] = {"127.0.0.1", std::to_string(port), "7001", "In", "Out", "Main"};
    std::string line;
    for (std::size_t i = 0; i < std::size(kKeys); ++i) {
        if ((missing >> i & 1) != 0) continue;
        line += (line.empty() ? "" : ",") + std::string(kKeys[i]) + "=" + values[i];
    }
    return line.empty() ? "gain=3" : line;
}

std::string MissingLine(const char* key) {
    return std::string("CVRXTalker::Configure: '") + key + "' argument missing";
}

void MissingKeys(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Make();
    for (unsigned missing = 1; missing < 64; ++missing) {
        const std::string line = Without(server.Port(), missing);
        ExpectSame("Configure(" + Shown(line) + ") returns", false, talker.Configure(line),
                   "a host believes that it is connected");
        std::size_t first = 0;
        while ((missing >> first & 1) == 0) ++first;
        bench.ExpectPrinted("Configure(" + Shown(line) + ")", MissingLine(kKeys[first]));
    }
    ExpectSame("connections made with a key missing:", 0, server.Connections(),
               "a talker goes to a server before it knows all of its settings");
}

void EmptyValues(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Make();
    for (const char* key : kKeys) {
        std::string line = Without(server.Port(), 0);
        const std::size_t at = line.find(std::string(key) + "=");
        const std::size_t value = line.find('=', at) + 1;
        line.erase(value, std::min(line.find(',', value), line.size()) - value);
        ExpectSame("Configure(" + Shown(line) + ") returns", false, talker.Configure(line),
                   "a setting that was left empty is taken for a value");
        bench.ExpectPrinted("Configure(" + Shown(line) + ")", MissingLine(key));
    }
}

void FailedArgumentsChangeNothing(Trial& trial) {
    PluginBench bench(trial);
    StubServer server;
    CheckedTalker talker = bench.Connected(server);
    const char* means = "a mistake in the new settings costs a host the connection that it had";
    for (const char* args :
         {"server=10.1.2.3,servport=9,clport=8,input=Other,output=Elsewhere", "layout=Wrong,input=Other", ""})
        ExpectSame("Configure(" + Shown(std::string_view(args)) + ") returns", false, talker.Configure(args),
                   means);
    ExpectSame("Configure(null) returns", false, talker.Configure(nullptr), means);
    bench.ExpectPrinted("a Configure without a layout, one without a server, and two of nothing",
                        MissingLine("layout") + "\n" + MissingLine("server"));
    const Words in = Numbered(4, 7);
    GuardedWords out(4);
    ExpectSame("after a Configure without all keys, PumpAudio returns", 0,
               talker.Pump(in.data(), out.Data(), 4, 4), means);
    const auto request = server.Take();
    Expect(request.has_value(), "the next block goes to the server", "no request came", means);
    ExpectBytes("the next request", PumpPacket(in, 4), request->bytes, means);
    ExpectSame("connections:", 1, server.Connections(), means);
}

struct ArgumentForm {
    const char* name;
    const char* line; // @ stands for the port
    TalkerNames names;
};

TalkerNames Named(const char* input, const char* output, const char* layout, int clientPort = 7001) {
    return {input, output, layout, clientPort, "127.0.0.1"};
}

/// Configures one talker by each line and looks at what reaches the server.
void TryForms(Trial& trial, std::span<const ArgumentForm> forms, const char* means) {
    PluginBench bench(trial);
    for (const ArgumentForm& form : forms) {
        StubServer server;
        std::string line = form.line;
        line.replace(line.find('@'), 1, std::to_string(server.Port()));
        CheckedTalker talker = bench.Make();
        const std::string call = std::string(form.name) + ": Configure(" + Shown(line) + ")";
        const bool configured = talker.Configure(line);
        const std::string printed = bench.Printed();
        Expect(configured, call + " returns true", call + " returned false and printed " + Shown(printed),
               means);
        const auto connect = server.Take();
        Expect(connect.has_value(), call + " sends the connect text", "nothing came", means);
        ExpectBytes(call + " sends", ConnectText(form.names), connect->bytes, means);
        GuardedWords out(1);
        const std::uint32_t in = 42;
        (void)talker.Pump(&in, out.Data(), 1, 1);
        const auto pump = server.Take();
        Expect(pump.has_value(), "PumpAudio sends a packet after " + call, "nothing came", means);
        ExpectBytes("after " + call + " PumpAudio sends", PumpPacket({42}, 1, form.names), pump->bytes,
                    means);
    }
}

void ArgumentForms(Trial& trial) {
    const ArgumentForm kForms[] = {
        {"usual", "server=127.0.0.1,servport=@,clport=7001,input=In,output=Out,layout=Main",
         Named("In", "Out", "Main")},
        {"other order", "layout=Main,output=Out,input=In,clport=7001,servport=@,server=127.0.0.1",
         Named("In", "Out", "Main")},
        {"further keys",
         "gain=3,server=127.0.0.1,x,servport=@,clport=7001,input=In,output=Out,layout=Main,y=",
         Named("In", "Out", "Main")},
        {"keys inside other keys and values",
         "xserver=10.9.8.7,serverx=h,inputs=I2,output=layout=Side,server=127.0.0.1,servport=@,clport=7001,"
         "input=server,layout=input",
         Named("server", "layout=Side", "input")},
        {"keys without values before",
         "server,servport=,clport =,=input,server=127.0.0.1,servport=@,clport=7001,input=In,output=Out,"
         "layout=Main",
         Named("In", "Out", "Main")},
        {"blanks around",
         " server = 127.0.0.1 ,\tservport =@, clport= 7001,input=In , output=Out,layout=Main ",
         Named("In", "Out", "Main")},
        {"runs of commas", ",,server=127.0.0.1,,,servport=@,clport=7001,input=In,,output=Out,layout=Main,,",
         Named("In", "Out", "Main")},
        {"no equals signs", "server 127.0.0.1,servport @,clport\t7001,input In,output Out,layout Main",
         Named("In", "Out", "Main")},
    };
    TryForms(trial, kForms, "settings that other talkers take do not work with this one");
}

void DuplicateKeys(Trial& trial) {
    const ArgumentForm kForms[] = {
        {"keys twice",
         "server=127.0.0.1,servport=@,clport=7001,input=In,output=Out,layout=Main,"
         "server=127.0.0.9,servport=1,clport=9,input=X,output=Y,layout=Z",
         Named("In", "Out", "Main")},
    };
    TryForms(trial, kForms, "of a key given twice the first counts, and here another value is used");
}

void KeyCase(Trial& trial) {
    const ArgumentForm kForms[] = {
        {"keys in other case before",
         "Server=127.0.0.9,SERVPORT=1,clPort=9,Input=X,OUTPUT=Y,Layout=Z,"
         "server=127.0.0.1,servport=@,clport=7001,input=In,output=Out,layout=Main",
         Named("In", "Out", "Main")},
    };
    TryForms(trial, kForms, "keys are case-sensitive: a setting of another program is taken for this one's");
    PluginBench bench(trial);
    CheckedTalker talker = bench.Make();
    const char* line = "Server=127.0.0.1,servport=1,clport=1,input=In,output=Out,layout=Main";
    ExpectSame("Configure(" + Shown(std::string_view(line)) + ") returns", false, talker.Configure(line),
               "keys are case-sensitive");
    bench.ExpectPrinted("Configure with the key 'Server'", MissingLine("server"));
}

void PortNumbers(Trial& trial) {
    const ArgumentForm kForms[] = {
        {"digits end the number", "server=127.0.0.1,servport=@x,clport=7001y,input=I,output=O,layout=M",
         Named("I", "O", "M")},
        {"no hexadecimal", "server=127.0.0.1,servport=@,clport=0x10,input=I,output=O,layout=M",
         Named("I", "O", "M", 0)},
        {"no octal", "server=127.0.0.1,servport=@,clport=010,input=I,output=O,layout=M",
         Named("I", "O", "M", 10)},
        {"signs", "server=127.0.0.1,servport=+@,clport=-5,input=I,output=O,layout=M",
         Named("I", "O", "M", -5)},
        {"no number", "server=127.0.0.1,servport=@,clport=abc,input=I,output=O,layout=M",
         Named("I", "O", "M", 0)},
        {"more than 32 bits", "server=127.0.0.1,servport=@,clport=4294974297,input=I,output=O,layout=M",
         Named("I", "O", "M", 7001)},
        {"a large number", "server=127.0.0.1,servport=@,clport=2147483647,input=I,output=O,layout=M",
         Named("I", "O", "M", 2147483647)},
    };
    TryForms(trial, kForms, "ports are read up to the first character that is no digit, and not checked");
}

void ValuesAsTheyStand(Trial& trial) {
    const ArgumentForm kForms[] = {
        {"several words", "server=127.0.0.1,servport=@,clport=7001,input=Mic left,output=Out,layout=Main",
         Named("Mic left", "Out", "Main")},
        {"several words after a blank",
         "server=127.0.0.1,servport=@,clport=7001,input=In,output= Main out,layout= my layout",
         Named("In", " Main out", " my layout")},
        {"equals signs", "server=127.0.0.1,servport=@,clport=7001,input=a=b,output=c=d=e,layout=Main",
         Named("a=b", "c=d=e", "Main")},
        {"other separators", "server=127.0.0.1,servport=@,clport=7001,input=a;b,output=c|d:e,layout=f&g",
         Named("a;b", "c|d:e", "f&g")},
        {"quotes", "server=127.0.0.1,servport=@,clport=7001,input=\"In\",output='Out',layout=Main",
         Named("\"In\"", "'Out'", "Main")},
        {"bytes beyond ASCII",
         "server=127.0.0.1,servport=@,clport=7001,input=\xC3\xA4,output=\xFF,layout=Main",
         Named("\xC3\xA4", "\xFF", "Main")},
        {"percent signs", "server=127.0.0.1,servport=@,clport=7001,input=%s%n,output=%d,layout=100%",
         Named("%s%n", "%d", "100%")},
    };
    TryForms(trial, kForms, "the server's object has another name than the host asked for");
}

constexpr Check kPluginConfigureChecks[] = {
    {"connects", CheckTarget::kPlugin, 2,
     "Configure connects to a server, and deleting the talker ends that.", "loads", 20, Connects},
    {"figures-start-at-zero", CheckTarget::kPlugin, 2, "Both cycle figures of a new talker are 0.", "loads",
     15, FiguresStartAtZero},
    {"not-configured", CheckTarget::kPlugin, 2,
     "Before Configure every operation returns -1, prints its line, and writes nothing.", "loads", 15,
     NotConfigured},
    {"no-arguments", CheckTarget::kPlugin, 2, "Configure of null or \"\" returns false in silence.", "loads",
     15, NoArguments},
    {"missing-keys", CheckTarget::kPlugin, 2,
     "Configure names the first key that is missing, and goes to no server.", "loads", 20, MissingKeys},
    {"empty-values", CheckTarget::kPlugin, 2, "A key without a value counts as missing.", "loads", 20,
     EmptyValues},
    {"failed-arguments-change-nothing", CheckTarget::kPlugin, 2,
     "A Configure without all keys leaves the connection and the settings as they were.", "connects", 20,
     FailedArgumentsChangeNothing},
    {"argument-forms", CheckTarget::kPlugin, 2,
     "Keys may come in any order, with blanks, further keys, and without equals signs.", "connects", 20,
     ArgumentForms},
    {"duplicate-keys", CheckTarget::kPlugin, 2, "Of a key given twice the first counts.", "connects", 20,
     DuplicateKeys},
    {"key-case", CheckTarget::kPlugin, 2, "Keys are case-sensitive.", "connects", 20, KeyCase},
    {"port-numbers", CheckTarget::kPlugin, 2, "Ports are decimal numbers up to the first other character.",
     "connects", 20, PortNumbers},
    {"values-as-they-stand", CheckTarget::kPlugin, 2,
     "Values keep blanks inside, equals signs, quotes and bytes of any kind.", "connects", 20,
     ValuesAsTheyStand},
};

} // namespace

std::span<const Check> PluginConfigureChecks() {
    return kPluginConfigureChecks;
}

} // namespace vrx::tool
