#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// An LV2 host that gives a plug-in exactly what the rules promise and no more, and throws std::logic_error when the plug-in
/// breaks one: buffers end where the call's frames end, with bytes around them that must stay as they are; inputs must
/// stay as they are, too, where they are not the outputs; ports that are not connected are null; nothing works after its
/// clean-up.
namespace stricthost {

/// The features of one host; what is left out, it does not have.
class Features {
public:
    Features& WithMap();
    /// Options need the map as well.
    Features& WithOption(const char* uri, std::int32_t value);
    Features& WithLog();

    const LV2_Feature* const* Get();
    /// What was logged, each text followed by the URI of its type.
    std::vector<std::string> Logged() const;

private:
    static LV2_URID Map(LV2_URID_Map_Handle self, const char* uri);
    static int Log(LV2_Log_Handle self, LV2_URID type, const char* format, va_list arguments);
    static int LogPrintf(LV2_Log_Handle self, LV2_URID type, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

    mutable std::mutex m_mutex;
    std::map<std::string, LV2_URID> m_urids;
    std::vector<std::unique_ptr<std::int32_t>> m_values;
    std::vector<LV2_Options_Option> m_options;
    std::vector<std::string> m_logged;
    LV2_URID_Map m_map{};
    LV2_Log_Log m_log{};
    bool m_withMap = false;
    bool m_withLog = false;
    std::vector<LV2_Feature> m_features;
    std::vector<const LV2_Feature*> m_list;
};

/// A bundle's binary, loaded as hosts load it.
class Library {
public:
    /// bundle   the folder, with the slash that hosts put at its end
    explicit Library(const std::string& bundle);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /// Null when the bundle has no plug-in.
    const LV2_Descriptor* Plugin() const;
    const std::string& Bundle() const { return m_bundle; }

private:
    std::string m_bundle;
    void* m_binary = nullptr;
    const LV2_Lib_Descriptor* m_library = nullptr;
};

/// Samples by channel and frame.
using Audio = std::vector<std::vector<float>>;

/// How a host calls.
struct Habits {
    bool activate = true;
    bool inPlace = false;
    bool latency = true;                      ///< connects the output `latency`
    bool late = true;                         ///< connects the output `late`
    std::optional<float> freeWheeling = 1.0F; ///< nothing: not connected
    std::optional<float> enabled = std::nullopt;
};

/// One running plug-in with so many channels.
class Instance {
public:
    /// Throws when there is no instance to be had.
    Instance(const Library& library, std::size_t channels, Habits habits = {}, Features* features = nullptr,
             double rate = 48000);
    ~Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    void Activate();
    void Deactivate();
    /// One call of `run` with as many frames as the channels of `in` have; returns the output.
    Audio Run(const Audio& in);
    /// All of `in`, cut into calls whose lengths are `lengths`, again and again.
    Audio Play(const Audio& in, const std::vector<std::size_t>& lengths);

    /// Changes what the control inputs say from the next call on.
    Habits& Controls() { return m_habits; }

    /// As reported by the last call; -1 where they are not connected.
    float Latency() const { return m_latency; }
    float Late() const { return m_late; }

private:
    void ConnectControls();
    void CheckControls();

    const LV2_Descriptor* m_plugin;
    std::size_t m_channels;
    Habits m_habits;
    LV2_Handle m_handle = nullptr;
    bool m_active = false;
    float m_latency = -1;
    float m_late = -1;
    float m_freeWheeling = 0;
    float m_enabled = 0;
};

} // namespace stricthost
