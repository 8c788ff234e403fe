#include "lv2/HostFeatures.h"

#include <cstdint>
#include <cstdio>
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <string_view>

namespace vrx::lv2 {

namespace {

const void* Find(const LV2_Feature* const* features, std::string_view uri) {
    for (; features != nullptr && *features != nullptr; ++features)
        if (uri == (*features)->URI) return (*features)->data;
    return nullptr;
}

/// Above 0.
std::optional<std::size_t> IntOption(const HostFeatures& host, const char* uri) {
    const LV2_URID key = host.map->map(host.map->handle, uri);
    const LV2_URID intType = host.map->map(host.map->handle, LV2_ATOM__Int);
    for (const LV2_Options_Option* option = host.options; option->key != 0; ++option) {
        if (option->key != key || option->type != intType || option->size != sizeof(std::int32_t)) continue;
        const std::int32_t value = *static_cast<const std::int32_t*>(option->value);
        if (value > 0) return value;
    }
    return std::nullopt;
}

} // namespace

HostFeatures::HostFeatures(const LV2_Feature* const* features)
    : map(static_cast<const LV2_URID_Map*>(Find(features, LV2_URID__map))),
      options(static_cast<const LV2_Options_Option*>(Find(features, LV2_OPTIONS__options))),
      log(static_cast<const LV2_Log_Log*>(Find(features, LV2_LOG__log))) {}

std::optional<std::size_t> HostFeatures::BlockLength() const {
    if (map == nullptr || options == nullptr) return std::nullopt;
    const auto nominal = IntOption(*this, LV2_BUF_SIZE__nominalBlockLength);
    return nominal ? nominal : IntOption(*this, LV2_BUF_SIZE__maxBlockLength);
}

HostLog::HostLog(const HostFeatures& features)
    : m_log(features.map != nullptr ? features.log : nullptr),
      m_warning(m_log != nullptr ? features.map->map(features.map->handle, LV2_LOG__Warning) : 0) {}

void HostLog::Warn(const std::string& line) {
    const std::lock_guard lock(m_mutex);
    if (m_closed) return;
    if (m_log != nullptr)
        (void)m_log->printf(m_log->handle, m_warning, "%s\n", line.c_str());
    else
        (void)std::fprintf(stderr, "%s\n", line.c_str());
}

void HostLog::Close() {
    const std::lock_guard lock(m_mutex);
    m_closed = true;
}

} // namespace vrx::lv2
