#pragma once

#include "host/ServerSettings.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vrx::lv2 {

inline constexpr std::size_t kMostChannels = 64;
inline constexpr std::size_t kMostLatency = 480000; ///< frames, ten seconds at 48000 Hz

/// What a bundle's files are called.
inline constexpr char kManifestFile[] = "manifest.ttl";
inline constexpr char kPluginFile[] = "plugin.ttl";
inline constexpr char kSettingsFile[] = "settings.txt";
inline constexpr char kBinaryFile[] = "vrx_lv2.so"; ///< a link to the one installed binary

/// What the plug-in of one bundle is: the server that it goes to, and its measures.
struct BundleSettings {
    std::string name;            ///< see `IsBundleName`
    host::ServerSettings server; ///< texts of one line
    std::string talker;          ///< the absolute path of the talker's shared library
    std::size_t channels = 2;    ///< 1 to kMostChannels
    std::size_t blockFrames = 0; ///< 0: what suits the host
    std::size_t latencyFrames =
        0;                        ///< 0: what suits the host; else at least blockFrames, at most kMostLatency
    bool silenceWhenLate = false; ///< else the dry input takes a late block's place
};

/// The ports behind a plug-in's audio inputs and outputs, in this order.
enum class ControlPort : std::size_t { kLatency, kFreeWheeling, kEnabled, kLate };

/// The index of a control port of a plug-in with so many channels. Its inputs are 0 to channels - 1, then come its outputs.
constexpr std::size_t PortIndex(ControlPort port, std::size_t channels) {
    return 2 * channels + static_cast<std::size_t>(port);
}

/// One to 64 letters, digits, '-' and '_', a letter or digit first: safe in file names, URIs and Turtle.
bool IsBundleName(std::string_view name);

/// "urn:vrx:talker:NAME".
std::string PluginUri(std::string_view name);

/// The content of a settings file: a line "key=value" for each member. Nothing when a text has a line feed in it.
std::optional<std::string> SettingsText(const BundleSettings& settings);

/// Reads that back; nothing for a text that lacks a key or holds a value out of its range. Unknown keys are ignored.
std::optional<BundleSettings> ParseSettings(std::string_view text);

/// Reads the settings file in a bundle's folder; nothing when there is none, or none that can be used.
std::optional<BundleSettings> ReadSettings(const std::string& bundleFolder);

} // namespace vrx::lv2
