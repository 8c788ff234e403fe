// The plug-in as hosts load it. Every bundle's link leads to this one binary; the bundle's folder tells which server its
// plug-in goes to.

#include "host/Plugin.h"
#include "lv2/HostFeatures.h"
#include "lv2/Instance.h"
#include "lv2/Measures.h"
#include "lv2/settings/BundleSettings.h"

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using namespace vrx;
using namespace vrx::lv2;

/// An instance, and what has to outlive its bridge.
class Talker {
public:
    Talker(const BundleSettings& settings, double sampleRate, const LV2_Feature* const* features)
        : Talker(settings, sampleRate, HostFeatures(features)) {}
    ~Talker() {
        m_instance.Deactivate();
        m_log->Close(); // a stuck thread may outlast the host
    }
    Talker(const Talker&) = delete;
    Talker& operator=(const Talker&) = delete;

    Instance& Ports() { return m_instance; }

private:
    Talker(const BundleSettings& settings, double sampleRate, const HostFeatures& host)
        : m_log(std::make_shared<HostLog>(host)),
          m_instance(ShapeFor(settings, sampleRate, host.BlockLength()), BridgeMaker(settings, m_log)) {}

    /// Loads the talker's library; the bridges keep it.
    static Instance::MakeBridge BridgeMaker(const BundleSettings& settings,
                                            const std::shared_ptr<HostLog>& log) {
        std::string error;
        const std::shared_ptr<host::Plugin> library = host::Plugin::Load(settings.talker, error);
        const std::string who = "vrx " + settings.name + ": ";
        if (!library) {
            log->Warn(who + error);
            throw std::runtime_error(error);
        }
        const auto warn = [log, noSound = who + "no sound from " + settings.server.Place() +
                                          ": "](const std::string& why) { log->Warn(noSound + why); };
        return [server = settings.server, library, warn](const live::Shape& shape) {
            live::BridgeParts parts;
            parts.session = std::make_unique<host::Session>(
                server, host::SessionParts{[library] { return library->CreateTalker(); }, nullptr, nullptr});
            parts.words =
                std::nullopt; // whoever writes a session into a host's file need not know the server's
            parts.outage = warn;
            return std::make_unique<live::Bridge>(shape, std::move(parts));
        };
    }

    std::shared_ptr<HostLog> m_log;
    Instance m_instance;
};

/// What hosts see of one bundle's plug-in.
struct Descriptor : LV2_Descriptor {
    BundleSettings settings;
    std::string uri;
};

struct Library : LV2_Lib_Descriptor {
    Descriptor plugin;
};

Instance& Ports(LV2_Handle handle) {
    return static_cast<Talker*>(handle)->Ports();
}

LV2_Handle Instantiate(const LV2_Descriptor* descriptor, double rate, const char*,
                       const LV2_Feature* const* features) {
    try {
        return new Talker(static_cast<const Descriptor*>(descriptor)->settings, rate, features);
    } catch (const std::exception&) {
        return nullptr;
    }
}

std::unique_ptr<Library> MakeLibrary(BundleSettings settings) {
    auto library = std::make_unique<Library>();
    library->handle = library.get();
    library->size = sizeof(LV2_Lib_Descriptor);
    library->cleanup = [](LV2_Lib_Handle handle) { delete static_cast<Library*>(handle); };
    library->get_plugin = [](LV2_Lib_Handle handle, uint32_t index) -> const LV2_Descriptor* {
        return index == 0 ? &static_cast<Library*>(handle)->plugin : nullptr;
    };
    Descriptor& plugin = library->plugin;
    plugin.settings = std::move(settings);
    plugin.uri = PluginUri(plugin.settings.name);
    plugin.URI = plugin.uri.c_str();
    plugin.instantiate = Instantiate;
    plugin.connect_port = [](LV2_Handle handle, uint32_t port, void* data) {
        Ports(handle).ConnectPort(port, data);
    };
    plugin.activate = [](LV2_Handle handle) { Ports(handle).Activate(); };
    plugin.run = [](LV2_Handle handle, uint32_t frames) { Ports(handle).Run(frames); };
    plugin.deactivate = [](LV2_Handle handle) { Ports(handle).Deactivate(); };
    plugin.cleanup = [](LV2_Handle handle) { delete static_cast<Talker*>(handle); };
    plugin.extension_data = [](const char*) -> const void* { return nullptr; };
    return library;
}

} // namespace

/// bundlePath   the bundle's folder, with or without a slash at its end
///
/// Null when there are no settings in it.
LV2_SYMBOL_EXPORT const LV2_Lib_Descriptor* lv2_lib_descriptor(const char* bundlePath,
                                                               const LV2_Feature* const*) {
    try {
        std::optional<BundleSettings> settings = ReadSettings(bundlePath);
        if (!settings) return nullptr;
        return MakeLibrary(std::move(*settings)).release();
    } catch (const std::exception&) {
        return nullptr;
    }
}
