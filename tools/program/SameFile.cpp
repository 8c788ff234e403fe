#include "tools/program/SameFile.h"

#include "tools/program/Errors.h"

#include <filesystem>
#include <sys/stat.h>

namespace vrx::tool {

namespace {

namespace fs = std::filesystem;

/// What two names of one file have in common.
struct Identity {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    fs::path place; // where it does not exist
};

/// Where a name that is not there yet leads to; a link may point to what is not there either.
fs::path Place(fs::path path) {
    std::error_code error;
    constexpr int kMostLinks = 40; // as many as the kernel follows
    for (int i = 0; i < kMostLinks && fs::is_symlink(fs::symlink_status(path, error)); ++i)
        path = path.parent_path() / fs::read_symlink(path, error); // an absolute target replaces all of it
    const fs::path place = fs::weakly_canonical(fs::absolute(path, error), error);
    return error ? path : place;
}

/// False for what is no file: pipes, devices, folders.
bool Identify(const NamedFile& file, Identity& identity) {
    struct stat status = {};
    const bool standard = file.path == "-";
    const int failed = standard ? ::fstat(file.descriptor, &status) : ::stat(file.path.c_str(), &status);
    if (failed != 0) {
        identity.place = Place(file.path);
        return !standard;
    }
    identity = {true, status.st_dev, status.st_ino, {}};
    return S_ISREG(status.st_mode);
}

bool AreSame(const NamedFile& one, const NamedFile& other) {
    Identity a;
    Identity b;
    if (!Identify(one, a) || !Identify(other, b) || a.exists != b.exists) return false;
    return a.exists ? a.device == b.device && a.inode == b.inode : a.place == b.place;
}

} // namespace

void RefuseSameFiles(std::initializer_list<NamedFile> files) {
    for (const NamedFile* one = files.begin(); one != files.end(); ++one)
        for (const NamedFile* other = one + 1; other != files.end(); ++other)
            if (!one->path.empty() && !other->path.empty() && AreSame(*one, *other))
                throw Failure{kWrongUsage, std::string(one->name) + " and " + other->name +
                                               " name the same file (" + other->path +
                                               "): give each its own"};
}

} // namespace vrx::tool
