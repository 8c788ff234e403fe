#pragma once

#include "talker/CVRXTalker.h"

#include <memory>
#include <string>

namespace vrx::host {

/// The talker's shared library, loaded at run time through its one entry point and unloaded again.
class Plugin {
public:
    /// The absolute path of what `Load(path)` loads: `path` itself, or when that is "" the VRX_talker_norvo.so that belongs
    /// to this program, see `FindInstalled`. "" when there is none: `error` then says what to do.
    static std::string Locate(const std::string& path, std::string& error);

    /// Loads what `Locate` finds. Null when that fails: `error` then names the file and the reason. Threads:
    /// any, also several at a time.
    static std::shared_ptr<Plugin> Load(const std::string& path, std::string& error);
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    /// The file that was loaded, links followed.
    const std::string& File() const { return m_file; }

    /// A new talker that knows no server yet. It must be gone before the plug-in is.
    std::unique_ptr<CVRXTalker> CreateTalker() const;

private:
    Plugin() = default;

    std::string m_file;
    void* m_library = nullptr;
    CVRXTalker* (*m_factory)() = nullptr;
};

} // namespace vrx::host
