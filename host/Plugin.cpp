#include "host/Plugin.h"

#include "tools/program/Errors.h"

#include <dlfcn.h>
#include <filesystem>
#include <system_error>

namespace vrx {

namespace {

namespace fs = std::filesystem;

constexpr char kPluginName[] = "VRX_talker_norvo.so";
constexpr char kFactorySymbol[] = "_Z13TalkerFactoryv"; // TalkerFactory()

std::string FindPlugin() {
    std::error_code error;
    const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
    for (const fs::path& folder : {here, here / "../lib", here / "../lib" / VRX_LIBRARY_ARCHITECTURE})
        if (fs::exists(folder / kPluginName, error)) return folder / kPluginName;
    throw Failure{kFileFailed, std::string("no ") + kPluginName + " beside this program (" + here.string() +
                                   ") or in ../lib; name it with --plugin PATH"};
}

std::string LoaderMessage() {
    const char* message = ::dlerror();
    return message != nullptr ? message : "unknown reason";
}

} // namespace

Plugin::Plugin(const std::string& path) {
    // A name without a slash would be searched for in the system's library folders.
    const std::string file = path.empty() ? FindPlugin() : fs::absolute(path).string();
    m_library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_library == nullptr) throw Failure{kFileFailed, "cannot load the plug-in: " + LoaderMessage()};
    m_factory = reinterpret_cast<CVRXTalker* (*)()>(::dlsym(m_library, kFactorySymbol));
    if (m_factory == nullptr) {
        ::dlclose(m_library);
        throw Failure{kFileFailed, file + " is no talker plug-in: it has no TalkerFactory()"};
    }
    std::error_code error;
    m_file = fs::canonical(file, error).string();
}

Plugin::~Plugin() {
    ::dlclose(m_library);
}

std::unique_ptr<CVRXTalker> Plugin::CreateTalker() const {
    return std::unique_ptr<CVRXTalker>(m_factory());
}

} // namespace vrx
