#include "host/Plugin.h"

#include <dlfcn.h>
#include <filesystem>
#include <system_error>

namespace vrx::host {

namespace {

namespace fs = std::filesystem;

constexpr char kPluginName[] = "VRX_talker_norvo.so";
constexpr char kFactorySymbol[] = "_Z13TalkerFactoryv"; // TalkerFactory()

std::string FindPlugin(std::string& error) {
    std::error_code failed;
    const fs::path here = fs::read_symlink("/proc/self/exe", failed).parent_path();
    for (const fs::path& folder : {here, here / "../lib", here / "../lib" / VRX_LIBRARY_ARCHITECTURE})
        if (fs::exists(folder / kPluginName, failed)) return folder / kPluginName;
    error = std::string("no ") + kPluginName + " beside this program (" + here.string() +
            ") or in ../lib; name it with --plugin PATH";
    return "";
}

std::string LoaderMessage() {
    const char* message = ::dlerror();
    return message != nullptr ? message : "unknown reason";
}

} // namespace

std::shared_ptr<Plugin> Plugin::Load(const std::string& path, std::string& error) {
    std::error_code failed;
    // A name without a slash would be searched for in the system's library folders.
    const std::string file = path.empty() ? FindPlugin(error) : fs::absolute(path, failed).string();
    if (file.empty()) return nullptr;
    const std::shared_ptr<Plugin> plugin(new Plugin);
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
