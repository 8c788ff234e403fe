#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

/// An empty folder that disappears with this object, whatever a test left in it.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "vrx-test-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        m_path = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    std::string operator/(std::string_view name) const { return (m_path / name).string(); }

    /// Creates a file and returns its path.
    std::string Write(std::string_view name, std::string_view bytes) const {
        std::ofstream(*this / name, std::ios::binary) << bytes;
        return *this / name;
    }
    std::string Read(std::string_view name) const {
        std::ostringstream bytes;
        bytes << std::ifstream(*this / name, std::ios::binary).rdbuf();
        return std::move(bytes).str();
    }
    /// How many entries there are, hidden ones included.
    std::size_t Count() const {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) count += entry.exists() ? 1 : 0;
        return count;
    }

private:
    std::filesystem::path m_path;
};
