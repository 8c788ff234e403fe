#pragma once

#include "lv2/settings/BundleSettings.h"

#include <filesystem>
#include <string>
#include <vector>

namespace vrx::tool {

/// A folder that LV2 hosts search for bundles, and the talkers' bundles in it, each FOLDER/vrx-NAME.lv2. All operations
/// throw Failure with what to do when they cannot; a host that looks at the folder meanwhile sees a bundle whole or
/// not at all.
class BundleFolder {
public:
    /// folder   need not exist; "": ~/.lv2
    explicit BundleFolder(const std::string& folder);

    /// Writes a bundle, with a link to `binary`; creates the folder. Throws Failure when the name is taken and
    /// `overwrite` is false, and in any case when it is taken by something that is no talker's bundle.
    void Add(const lv2::BundleSettings& settings, const std::string& binary, bool overwrite) const;

    /// The settings of all bundles here, by name. Those of others, and what cannot be read, are left out.
    std::vector<lv2::BundleSettings> List() const;

    /// Removes a bundle. Throws Failure when there is none of that name.
    void Remove(const std::string& name) const;

    /// Where the bundle of that name lies or would lie.
    std::filesystem::path PathOf(const std::string& name) const {
        return m_folder / ("vrx-" + name + ".lv2");
    }

private:
    std::filesystem::path m_folder;
};

} // namespace vrx::tool
