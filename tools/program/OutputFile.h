#pragma once

#include <fstream>
#include <string>
#include <string_view>

namespace vrx::tool {

/// A text file that a command leaves beside its main result. What was written stays, also when the command
/// fails later.
class OutputFile {
public:
    /// Throws Failure when the file exists and `overwrite` is false; for a check before a long run.
    static void Check(const std::string& path, bool overwrite);

    /// Throws Failure as `Check` does, and when the file cannot be created.
    OutputFile(const std::string& path, bool overwrite);

    void Write(std::string_view text) { m_stream << text; }
    /// Throws Failure when not everything reached the file.
    void Finish();

private:
    std::string m_path;
    std::ofstream m_stream;
};

} // namespace vrx::tool
