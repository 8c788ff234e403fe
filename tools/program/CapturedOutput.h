#pragma once

#include <string>
#include <string_view>
#include <unistd.h>

namespace vrx::tool {

/// While it lives, what the process writes to its standard output is kept aside instead of shown: the talker
/// prints its diagnostics there, and a command's own results must not be mixed with them. One at a time.
class CapturedOutput {
public:
    CapturedOutput();
    /// Restores standard output; what was captured since the last `TakeLines` is dropped.
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    /// What was captured since the last call, without the final line feed; "" for nothing.
    std::string TakeLines();

    /// Writes to the real standard output, unbuffered. Throws Failure when that fails.
    void Print(std::string_view text) const;

    /// The descriptor of the real standard output, and whether that is a terminal.
    int Real() const { return m_real; }
    bool IsTerminal() const { return ::isatty(m_real) == 1; }

private:
    int m_real = -1;   // a duplicate of the real standard output
    int m_memory = -1; // an anonymous file in memory that stands in for it
};

} // namespace vrx::tool
