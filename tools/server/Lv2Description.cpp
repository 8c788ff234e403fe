#include "tools/server/Lv2Description.h"

#include "tools/server/Lv2Host.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/port-props/port-props.h>
#include <lv2/resize-port/resize-port.h>
#include <lv2/state/state.h>
#include <lv2/worker/worker.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace vrx::tool {

namespace {

constexpr size_t kAtomBytes = 65536; // where a port does not ask for more

/// What instances are offered, or what asks nothing of a server that processes block by block.
constexpr const char* kFeatures[] = {
    LV2_URID__map,
    LV2_URID__unmap,
    LV2_OPTIONS__options,
    LV2_BUF_SIZE__boundedBlockLength,
    LV2_WORKER__schedule,
    LV2_LOG__log,
    LV2_STATE__loadDefaultState,
    LV2_CORE__hardRTCapable,
    LV2_CORE__isLive,
    LV2_CORE__inPlaceBroken,
};

Lv2Node Uri(const char* uri) {
    return Lv2Node(lilv_new_uri(Lv2Host::Get().World(), uri));
}

float NumberOr(const LilvNode* node, float fallback) {
    const bool number = node != nullptr && (lilv_node_is_float(node) || lilv_node_is_int(node));
    return number ? lilv_node_as_float(node) : fallback;
}

std::string MissingFeature(const LilvPlugin* plugin) {
    LilvNodes* const required = lilv_plugin_get_required_features(plugin);
    std::string missing;
    LILV_FOREACH(nodes, i, required) {
        const std::string uri = lilv_node_as_uri(lilv_nodes_get(required, i));
        if (std::ranges::find(kFeatures, uri) == std::end(kFeatures)) missing = uri;
    }
    lilv_nodes_free(required);
    return missing;
}

/// A port of a plug-in with what it takes to ask about it.
class PortReader {
public:
    PortReader(const LilvPlugin* plugin, uint32_t index)
        : m_plugin(plugin), m_port(lilv_plugin_get_port_by_index(plugin, index)) {}

    bool Is(const char* uri) const { return lilv_port_is_a(m_plugin, m_port, Uri(uri).get()); }
    bool Has(const char* uri) const { return lilv_port_has_property(m_plugin, m_port, Uri(uri).get()); }

    Lv2Port::Kind Kind() const {
        const bool input = Is(LV2_CORE__InputPort);
        if (Is(LV2_CORE__AudioPort)) return input ? Lv2Port::kAudioIn : Lv2Port::kAudioOut;
        if (Is(LV2_CORE__ControlPort)) return input ? Lv2Port::kControlIn : Lv2Port::kControlOut;
        if (Is(LV2_CORE__CVPort)) return input ? Lv2Port::kCvIn : Lv2Port::kCvOut;
        if (Is(LV2_ATOM__AtomPort)) return input ? Lv2Port::kAtomIn : Lv2Port::kAtomOut;
        return Lv2Port::kUnconnected;
    }

    std::string Symbol() const { return lilv_node_as_string(lilv_port_get_symbol(m_plugin, m_port)); }
    std::string Name() const {
        const Lv2Node name(lilv_port_get_name(m_plugin, m_port));
        return name ? lilv_node_as_string(name.get()) : "";
    }
    size_t Bytes() const {
        const Lv2Node size(lilv_port_get(m_plugin, m_port, Uri(LV2_RESIZE_PORT__minimumSize).get()));
        if (!size || !lilv_node_is_int(size.get())) return kAtomBytes;
        return std::max<size_t>(kAtomBytes, static_cast<size_t>(std::max(0, lilv_node_as_int(size.get()))));
    }

    void ReadRange(Lv2Port& port, double rate) const {
        LilvNode* value = nullptr;
        LilvNode* low = nullptr;
        LilvNode* high = nullptr;
        lilv_port_get_range(m_plugin, m_port, &value, &low, &high);
        const Lv2Node owners[] = {Lv2Node(value), Lv2Node(low), Lv2Node(high)};
        const float scale = Has(LV2_CORE__sampleRate) ? static_cast<float>(rate) : 1;
        const float none = std::numeric_limits<float>::quiet_NaN();
        port.low = NumberOr(low, none) * scale;
        port.high = NumberOr(high, none) * scale;
        port.value = NumberOr(value, std::isnan(port.low) ? 0 : port.low / scale) * scale;
    }

private:
    const LilvPlugin* m_plugin;
    const LilvPort* m_port;
};

} // namespace

size_t Lv2Description::Count(Lv2Port::Kind kind) const {
    return static_cast<size_t>(std::ranges::count(ports, kind, &Lv2Port::kind));
}

Lv2Description DescribeLv2(const LilvPlugin* plugin, double rate) {
    Lv2Description description;
    description.plugin = plugin;
    description.uri = lilv_node_as_uri(lilv_plugin_get_uri(plugin));
    const Lv2Node name(lilv_plugin_get_name(plugin));
    if (name) description.name = lilv_node_as_string(name.get());
    if (const std::string missing = MissingFeature(plugin); !missing.empty()) {
        description.unusable = "it needs " + missing + ", which is not offered here";
    }
    description.hasDefaultState = lilv_plugin_has_feature(plugin, Uri(LV2_STATE__loadDefaultState).get());

    const uint32_t count = lilv_plugin_get_num_ports(plugin);
    for (uint32_t index = 0; index < count; ++index) {
        const PortReader reader(plugin, index);
        Lv2Port port{.kind = reader.Kind(), .index = index, .symbol = reader.Symbol(), .name = reader.Name()};
        if (port.kind == Lv2Port::kUnconnected && !reader.Has(LV2_CORE__connectionOptional)) {
            description.unusable = "its port " + port.symbol + " is of a kind that is not known here";
        }
        if (port.kind == Lv2Port::kAtomIn || port.kind == Lv2Port::kAtomOut) port.bytes = reader.Bytes();
        if (port.kind == Lv2Port::kControlIn || port.kind == Lv2Port::kCvIn) reader.ReadRange(port, rate);
        port.reportsLatency = port.kind == Lv2Port::kControlOut && lilv_plugin_has_latency(plugin) &&
                              lilv_plugin_get_latency_port_index(plugin) == index;
        description.ports.push_back(std::move(port));
    }
    return description;
}

} // namespace vrx::tool
