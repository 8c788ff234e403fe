#include "host/InstalledFile.h"

#include <filesystem>
#include <system_error>

namespace vrx::host {

namespace fs = std::filesystem;

std::string ProgramFolder() {
    std::error_code failed;
    return fs::read_symlink("/proc/self/exe", failed).parent_path().string();
}

std::string FindInstalled(const std::string& name) {
    std::error_code failed;
    const fs::path here = ProgramFolder();
    for (const fs::path& folder : {here, here / "../lib", here / "../lib" / VRX_LIBRARY_ARCHITECTURE}) {
        const fs::path file = (folder / name).lexically_normal();
        if (fs::exists(file, failed)) return file.string();
    }
    return "";
}

} // namespace vrx::host
