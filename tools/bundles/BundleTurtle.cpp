#include "tools/bundles/BundleTurtle.h"

namespace vrx::tool {

namespace {

using lv2::BundleSettings;

/// How the channels of so many belong together, and which is which.
struct ChannelGroup {
    const char* kind;
    std::string designations[2];
};

ChannelGroup GroupOf(std::size_t channels) {
    if (channels == 1) return {"pg:MonoGroup", {"pg:center", ""}};
    if (channels == 2) return {"pg:StereoGroup", {"pg:left", "pg:right"}};
    return {"pg:DiscreteGroup", {}};
}

std::string Uri(const BundleSettings& settings, const char* part = "") {
    return "<" + lv2::PluginUri(settings.name) + part + ">";
}

std::string GroupTurtle(const BundleSettings& settings, const char* direction, const char* symbol,
                        const char* name) {
    return Uri(settings, direction) + "\n\ta pg:" + (symbol[0] == 'i' ? "InputGroup" : "OutputGroup") +
           " , " + GroupOf(settings.channels).kind + " ;\n\tlv2:symbol \"" + symbol + "\" ;\n\tlv2:name \"" +
           name + "\" .\n\n";
}

/// One port, which ends in what `rest` says about it.
std::string PortTurtle(std::size_t index, const std::string& kind, const std::string& symbol,
                       const std::string& name, const std::string& rest) {
    return "\tlv2:port [\n\t\ta " + kind + " ;\n\t\tlv2:index " + std::to_string(index) +
           " ;\n\t\tlv2:symbol \"" + symbol + "\" ;\n\t\tlv2:name \"" + name + "\"" + rest + "\n\t] ;\n";
}

std::string AudioPort(const BundleSettings& settings, std::size_t channel, bool input) {
    const std::string number = std::to_string(channel + 1);
    std::string rest = " ;\n\t\tpg:group " + Uri(settings, input ? "#in" : "#out");
    if (settings.channels <= 2)
        rest += " ;\n\t\tlv2:designation " + GroupOf(settings.channels).designations[channel];
    return PortTurtle(input ? channel : settings.channels + channel,
                      input ? "lv2:InputPort , lv2:AudioPort" : "lv2:OutputPort , lv2:AudioPort",
                      (input ? "in_" : "out_") + number, (input ? "In " : "Out ") + number, rest);
}

std::string Range(const std::string& defaultValue, const std::string& maximum) {
    return " ;\n\t\tlv2:default " + defaultValue + " ;\n\t\tlv2:minimum 0 ;\n\t\tlv2:maximum " + maximum;
}

std::string ControlPorts(const BundleSettings& settings) {
    const std::string input = "lv2:InputPort , lv2:ControlPort";
    const std::string output = "lv2:OutputPort , lv2:ControlPort";
    const auto index = [&](lv2::ControlPort port) { return lv2::PortIndex(port, settings.channels); };
    return PortTurtle(index(lv2::ControlPort::kLatency), output, "latency", "Latency",
                      " ;\n\t\tlv2:designation lv2:latency ;\n\t\tlv2:portProperty lv2:reportsLatency , "
                      "lv2:integer ;\n\t\tunits:unit units:frame" +
                          Range("0", std::to_string(lv2::kMostLatency))) +
           PortTurtle(index(lv2::ControlPort::kFreeWheeling), input, "freeWheeling", "Freewheeling",
                      " ;\n\t\tlv2:designation lv2:freeWheeling ;\n\t\tlv2:portProperty lv2:toggled" +
                          Range("0", "1")) +
           PortTurtle(index(lv2::ControlPort::kEnabled), input, "enabled", "Enabled",
                      " ;\n\t\tlv2:designation lv2:enabled ;\n\t\tlv2:portProperty lv2:toggled" +
                          Range("1", "1")) +
           PortTurtle(index(lv2::ControlPort::kLate), output, "late", "Late blocks",
                      " ;\n\t\tlv2:portProperty lv2:integer" + Range("0", "16777216"));
}

} // namespace

std::string ManifestTurtle(const BundleSettings& settings) {
    return "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
           "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n\n" +
           Uri(settings) + "\n\ta lv2:Plugin ;\n\tlv2:binary <" + lv2::kBinaryFile + "> ;\n\trdfs:seeAlso <" +
           lv2::kPluginFile + "> .\n";
}

std::string PluginTurtle(const BundleSettings& settings) {
    std::string text = "@prefix bufsz: <http://lv2plug.in/ns/ext/buf-size#> .\n"
                       "@prefix doap: <http://usefulinc.com/ns/doap#> .\n"
                       "@prefix foaf: <http://xmlns.com/foaf/0.1/> .\n"
                       "@prefix log: <http://lv2plug.in/ns/ext/log#> .\n"
                       "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
                       "@prefix opts: <http://lv2plug.in/ns/ext/options#> .\n"
                       "@prefix pg: <http://lv2plug.in/ns/ext/port-groups#> .\n"
                       "@prefix units: <http://lv2plug.in/ns/extensions/units#> .\n"
                       "@prefix urid: <http://lv2plug.in/ns/ext/urid#> .\n\n";
    text += GroupTurtle(settings, "#in", "in", "Input") + GroupTurtle(settings, "#out", "out", "Output");
    text += Uri(settings) + "\n\ta lv2:Plugin , lv2:UtilityPlugin ;\n\tdoap:name \"VRX " + settings.name +
            "\" ;\n"
            "\tdoap:shortdesc \"Runs audio through a remote processing server\" ;\n"
            "\tdoap:license <http://opensource.org/licenses/MIT> ;\n"
            "\tlv2:project [\n\t\ta doap:Project ;\n\t\tdoap:name \"VRX_talker_norvo\" ;\n"
            "\t\tdoap:maintainer [\n\t\t\ta foaf:Person ;\n\t\t\tfoaf:name \"The VRX_talker_norvo authors\"\n"
            "\t\t]\n\t] ;\n"
            "\tlv2:minorVersion 2 ;\n\tlv2:microVersion 0 ;\n"
            "\tlv2:optionalFeature lv2:hardRTCapable , urid:map , opts:options , log:log ;\n"
            "\topts:supportedOption bufsz:nominalBlockLength , bufsz:maxBlockLength ;\n"
            "\tpg:mainInput " +
            Uri(settings, "#in") + " ;\n\tpg:mainOutput " + Uri(settings, "#out") + " ;\n";
    for (const bool input : {true, false})
        for (std::size_t channel = 0; channel < settings.channels; ++channel)
            text += AudioPort(settings, channel, input);
    text += ControlPorts(settings);
    text.replace(text.size() - 2, 2, ".\n"); // the last port ends the plug-in, too
    return text;
}

} // namespace vrx::tool
