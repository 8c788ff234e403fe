#include "tools/bundles/BundleFolder.h"

#include "tools/bundles/BundleTurtle.h"
#include "tools/program/Errors.h"
#include "tools/program/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <system_error>

namespace vrx::tool {

namespace {

namespace fs = std::filesystem;

fs::path HomeFolder() {
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home == '\0')
        throw Failure{kFileFailed,
                      "no home folder (HOME is not set): name the folder of the bundles with --dir"};
    return fs::path(home) / ".lv2";
}

/// A folder beside the bundles in which one is put together or taken apart. Hosts look for a manifest in each folder
/// that they search, and not in the folders in there.
class Workshop {
public:
    explicit Workshop(const fs::path& folder) {
        std::string name = (folder / ".vrx-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr)
            throw Failure{kFileFailed,
                          folder.string() + ": nothing can be written here: " + std::strerror(errno)};
        m_path = name;
    }
    ~Workshop() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    Workshop(const Workshop&) = delete;
    Workshop& operator=(const Workshop&) = delete;

    fs::path Bundle() const { return m_path / "bundle"; }
    fs::path Attic() const { return m_path / "attic"; }

private:
    fs::path m_path;
};

void WriteText(const fs::path& path, const std::string& text) {
    OutputFile file(path.string(), false);
    file.Write(text);
    file.Finish();
}

void WriteBundle(const fs::path& bundle, const lv2::BundleSettings& settings, const std::string& binary) {
    const auto settingsText = lv2::SettingsText(settings);
    if (!settingsText)
        throw Failure{kWrongUsage, "server, objects and files may not have a line feed in them"};
    fs::create_directory(bundle);
    WriteText(bundle / lv2::kSettingsFile, *settingsText);
    WriteText(bundle / lv2::kPluginFile, PluginTurtle(settings));
    WriteText(bundle / lv2::kManifestFile, ManifestTurtle(settings));
    fs::create_symlink(binary, bundle / lv2::kBinaryFile);
}

bool Taken(const fs::path& path) {
    return fs::exists(fs::symlink_status(path));
}

void ThrowUnlessOurs(const fs::path& bundle) {
    const bool ours = fs::is_directory(fs::symlink_status(bundle)) && fs::exists(bundle / lv2::kSettingsFile);
    if (!ours) throw Failure{kFileFailed, bundle.string() + ": is no talker's bundle: move it away yourself"};
}

/// Puts `bundle` into the place of `old`, which ends up in the place of `bundle` or in `attic`: in one step where the file
/// system can let two folders change places, else with a moment without either.
void Replace(const fs::path& old, const fs::path& bundle, const fs::path& attic) {
    if (::renameat2(AT_FDCWD, bundle.c_str(), AT_FDCWD, old.c_str(), RENAME_EXCHANGE) == 0) return;
    fs::rename(old, attic);
    fs::rename(bundle, old);
}

/// What the standard library throws about files, as a Failure.
template <class Body>
void WithFiles(const Body& body) {
    try {
        body();
    } catch (const fs::filesystem_error& error) {
        throw Failure{kFileFailed, error.path1().string() + ": " + error.code().message()};
    }
}

} // namespace

BundleFolder::BundleFolder(const std::string& folder)
    : m_folder(folder.empty() ? HomeFolder() : fs::absolute(folder).lexically_normal()) {}

void BundleFolder::Add(const lv2::BundleSettings& settings, const std::string& binary, bool overwrite) const {
    if (!lv2::IsBundleName(settings.name))
        throw Failure{
            kWrongUsage,
            "the name '" + settings.name +
                "' cannot be used: take 1 to 64 letters, digits, '-' and '_', a letter or digit first"};
    const fs::path bundle = PathOf(settings.name);
    WithFiles([&] {
        fs::create_directories(m_folder);
        const bool taken = Taken(bundle);
        if (taken && !overwrite)
            throw Failure{kFileFailed,
                          bundle.string() +
                              ": exists already: choose another name, or overwrite it with --force"};
        if (taken) ThrowUnlessOurs(bundle);
        const Workshop workshop(m_folder);
        WriteBundle(workshop.Bundle(), settings, binary);
        if (taken)
            Replace(bundle, workshop.Bundle(), workshop.Attic());
        else
            fs::rename(workshop.Bundle(), bundle);
    });
}

std::vector<lv2::BundleSettings> BundleFolder::List() const {
    std::vector<lv2::BundleSettings> bundles;
    std::error_code failed;
    if (!fs::exists(m_folder, failed)) return bundles;
    WithFiles([&] {
        for (const fs::directory_entry& entry : fs::directory_iterator(m_folder)) {
            auto settings = lv2::ReadSettings(entry.path().string());
            if (settings && PathOf(settings->name) == entry.path()) bundles.push_back(std::move(*settings));
        }
    });
    std::sort(bundles.begin(), bundles.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return bundles;
}

void BundleFolder::Remove(const std::string& name) const {
    const fs::path bundle = PathOf(name);
    WithFiles([&] {
        if (!lv2::IsBundleName(name) || !Taken(bundle))
            throw Failure{kFileFailed, "no talker '" + name + "' in " + m_folder.string() +
                                           ": vrx lv2 list shows the names that are there"};
        ThrowUnlessOurs(bundle);
        const Workshop workshop(m_folder);
        fs::rename(bundle, workshop.Attic());
    });
}

} // namespace vrx::tool
