#include "host/Plugin.h"

#include "host/InstalledFile.h"

#include <dlfcn.h>
#include <filesystem>
#include <system_error>

namespace vrx::host {

namespace {

namespace fs = std::filesystem;

constexpr char kPluginName[] = "VRX_talker_norvo.so";
constexpr char kFactorySymbol[] = "_Z13TalkerFactoryv"; // TalkerFactory()

std::string LoaderMessage() {
    const char* message = ::dlerror();
    return message != nullptr ? message : "unknown reason";
}

} // namespace

std::string Plugin::Locate(const std::string& path, std::string& error) {
    std::error_code failed;
    // A name without a slash would be searched for in the system's library folders.
    if (!path.empty()) return fs::absolute(path, failed).lexically_normal().string();
    std::string file = FindInstalled(kPluginName);
    if (file.empty())
        error = std::string("no ") + kPluginName + " beside this program (" + ProgramFolder() +
                ") or in ../lib; name it with --plugin PATH";
    return file;
}

std::shared_ptr<Plugin> Plugin::Load(const std::string& path, std::string& error) {
    const std::string file = Locate(path, error);
    if (file.empty()) return nullptr;
    std::shared_ptr<Plugin> plugin(new Plugin);
    plugin->m_library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (plugin->m_library == nullptr) {
        error = "cannot load the plug-in: " + LoaderMessage();
        return nullptr;
    }
    plugin->m_factory = reinterpret_cast<CVRXTalker* (*)()>(::dlsym(plugin->m_library, kFactorySymbol));
    if (plugin->m_factory == nullptr) {
        error = file + " is no talker plug-in: it has no TalkerFactory()";
        return nullptr;
    }
    std::error_code failed;
    plugin->m_file = fs::canonical(file, failed).string();
    return plugin;
}

Plugin::~Plugin() {
    if (m_library != nullptr) ::dlclose(m_library);
}

std::unique_ptr<CVRXTalker> Plugin::CreateTalker() const {
    return std::unique_ptr<CVRXTalker>(m_factory());
}

} // namespace vrx::host
