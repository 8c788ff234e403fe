#pragma once

#include <cstddef>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>
#include <mutex>
#include <optional>
#include <string>

namespace vrx::lv2 {

/// What a host offers of what the plug-in can use; nothing of it has to be there.
struct HostFeatures {
    /// features   as handed to `instantiate`: ended by null, itself null where a host has none
    explicit HostFeatures(const LV2_Feature* const* features);

    /// How many frames one call of `run` usually brings, or brings at most; nothing where the host does not say.
    std::optional<std::size_t> BlockLength() const;

    const LV2_URID_Map* map = nullptr;
    const LV2_Options_Option* options = nullptr;
    const LV2_Log_Log* log = nullptr;
};

/// Where the plug-in's lines go: the host's log, or standard error where it has none.
class HostLog {
public:
    explicit HostLog(const HostFeatures& features);

    /// Writes one line; from any thread.
    void Warn(const std::string& line);

    /// The host may be gone from now on: `Warn` does nothing any more, and is not under way.
    void Close();

private:
    std::mutex m_mutex;
    const LV2_Log_Log* m_log;
    LV2_URID m_warning;
    bool m_closed = false;
};

} // namespace vrx::lv2
