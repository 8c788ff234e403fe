#include "lv2/settings/BundleSettings.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <map>
#include <sstream>

namespace vrx::lv2 {

namespace {

/// Calls `visit` with each key of a settings file and the member it stands for.
template <class Settings, class Visit>
void EachSetting(Settings& settings, const Visit& visit) {
    visit("name", settings.name);
    visit("args", settings.server.args);
    visit("server", settings.server.host);
    visit("servport", settings.server.port);
    visit("clport", settings.server.clientPort);
    visit("input", settings.server.input);
    visit("output", settings.server.output);
    visit("layout", settings.server.layout);
    visit("talker", settings.talker);
    visit("channels", settings.channels);
    visit("block", settings.blockFrames);
    visit("latency", settings.latencyFrames);
    visit("silence", settings.silenceWhenLate);
}

std::string ToText(const std::string& value) {
    return value;
}

template <class Number>
std::string ToText(Number value) {
    return std::to_string(value);
}

bool FromText(const std::string& text, std::string& value) {
    value = text;
    return true;
}

template <class Number>
bool FromText(const std::string& text, Number& value) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end;
}

bool FromText(const std::string& text, bool& value) {
    value = text == "1";
    return value || text == "0";
}

std::map<std::string, std::string> ReadLines(std::string_view text) {
    std::map<std::string, std::string> values;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (equals != line.npos) values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return values;
}

bool InRange(const BundleSettings& settings) {
    return IsBundleName(settings.name) && settings.channels >= 1 && settings.channels <= kMostChannels &&
           settings.latencyFrames <= kMostLatency && settings.blockFrames <= kMostLatency &&
           (settings.latencyFrames == 0 || settings.latencyFrames >= settings.blockFrames);
}

bool IsLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

} // namespace

bool IsBundleName(std::string_view name) {
    constexpr std::size_t kLongest = 64;
    return !name.empty() && name.size() <= kLongest && IsLetterOrDigit(name[0]) &&
           std::all_of(name.begin(), name.end(),
                       [](char c) { return IsLetterOrDigit(c) || c == '-' || c == '_'; });
}

std::string PluginUri(std::string_view name) {
    return "urn:vrx:talker:" + std::string(name);
}

std::optional<std::string> SettingsText(const BundleSettings& settings) {
    std::string text;
    std::ptrdiff_t lines = 0;
    EachSetting(settings, [&](const char* key, const auto& value) {
        text += std::string(key) + "=" + ToText(value) + "\n";
        ++lines;
    });
    if (std::count(text.begin(), text.end(), '\n') != lines) return std::nullopt;
    return text;
}

std::optional<BundleSettings> ParseSettings(std::string_view text) {
    const std::map<std::string, std::string> values = ReadLines(text);
    BundleSettings settings;
    bool complete = true;
    EachSetting(settings, [&](const char* key, auto& value) {
        const auto found = values.find(key);
        complete = found != values.end() && FromText(found->second, value) && complete;
    });
    if (!complete || !InRange(settings)) return std::nullopt;
    return settings;
}

std::optional<BundleSettings> ReadSettings(const std::string& bundleFolder) {
    std::ifstream file(bundleFolder + "/" + kSettingsFile, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return ParseSettings(text.str());
}

} // namespace vrx::lv2
