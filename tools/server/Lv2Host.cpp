#include "tools/server/Lv2Host.h"

#include "tools/program/Errors.h"

#include <cstdarg>
#include <cstdio>

namespace vrx::tool {

namespace {

/// What plug-ins have to say goes to standard error, but for their traces.
int Log(LV2_Log_Handle handle, LV2_URID type, const char* format, va_list arguments) {
    auto& numbers = *static_cast<Lv2Numbers*>(handle);
    if (type == numbers.Map(LV2_LOG__Trace)) return 0;
    char text[1024];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    std::string line(text);
    while (line.ends_with('\n')) line.pop_back();
    PrintError("vrx serve: plug-in", line);
    return length;
}

int LogPrintf(LV2_Log_Handle handle, LV2_URID type, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = Log(handle, type, format, arguments);
    va_end(arguments);
    return length;
}

} // namespace

Lv2Numbers::Lv2Numbers()
    : m_mapFeature{this, [](LV2_URID_Map_Handle self,
                            const char* uri) { return static_cast<Lv2Numbers*>(self)->Map(uri); }},
      m_unmapFeature{this, [](LV2_URID_Unmap_Handle self, LV2_URID number) {
                         return static_cast<Lv2Numbers*>(self)->Unmap(number);
                     }} {}

LV2_URID Lv2Numbers::Map(const char* uri) {
    const std::lock_guard lock(m_mutex);
    const auto [place, fresh] = m_numbers.try_emplace(uri, static_cast<LV2_URID>(m_uris.size() + 1));
    if (fresh) m_uris.push_back(place->first.c_str());
    return place->second;
}

const char* Lv2Numbers::Unmap(LV2_URID number) const {
    const std::lock_guard lock(m_mutex);
    return number >= 1 && number <= m_uris.size() ? m_uris[number - 1] : nullptr;
}

Lv2Host& Lv2Host::Get() {
    static Lv2Host host;
    return host;
}

Lv2Host::Lv2Host() : m_world(lilv_world_new()), m_logFeature{&m_numbers, LogPrintf, Log} {
    lilv_world_load_all(m_world.get());
}

const LilvPlugin* Lv2Host::Find(std::string_view uri) const {
    const Lv2Node node(lilv_new_uri(m_world.get(), std::string(uri).c_str()));
    if (!node) return nullptr;
    return lilv_plugins_get_by_uri(lilv_world_get_all_plugins(m_world.get()), node.get());
}

} // namespace vrx::tool
