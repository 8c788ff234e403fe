#pragma once

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <string>

/// A test with a temporary folder of its own.
class FolderTest : public testing::Test {
protected:
    std::string Path(const char* name) const { return m_folder / name; }
    std::string Write(const char* name, const std::string& bytes) const {
        return m_folder.Write(name, bytes);
    }
    /// The content of a file, given its name in the folder or its whole path.
    std::string Bytes(const std::string& name) const { return m_folder.Read(name); }

    TemporaryFolder m_folder;
};
