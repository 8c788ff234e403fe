#pragma once

#include <cstddef>
#include <cstdio>
#include <exception>
#include <string>

namespace vrx::tool {

/// The exit codes of `vrx`, as its help lists them.
enum ExitCode : int {
    kDone = 0,
    kWrongUsage = 1,
    kFileFailed = 2,
    kCannotConnect = 3,
    kRunFailed = 4,
    kInterrupted = 5,
};

/// Thrown by a command's parts to end the command: its one line on standard error and its exit code. The
/// message names what failed, where, and what to do about it.
struct Failure {
    ExitCode code;
    std::string message;
};

/// Control characters, which can come in through file names and server replies, as '?': the text stays one
/// line and cannot steer a terminal. Those are the bytes below 0x20, 0x7F, and U+0080 to U+009F in UTF-8.
inline std::string WithoutControls(std::string text) {
    const auto byte = [&text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (byte(at) < 0x20 || byte(at) == 0x7F) text[at] = '?';
        const bool second = at > 0 && byte(at - 1) == 0xC2 && byte(at) >= 0x80 && byte(at) <= 0x9F;
        if (second) text[at - 1] = text[at] = '?';
    }
    return text;
}

/// Writes "<who>: <message>" and a line feed to standard error, always as one line.
inline void PrintError(const std::string& who, const std::string& message) {
    (void)std::fprintf(stderr, "%s: %s\n", who.c_str(), WithoutControls(message).c_str());
}

/// Runs the body of a command, prints what ended it early, and returns the exit code.
template <class Body>
int RunCommand(const char* who, const Body& body) {
    try {
        return body();
    } catch (const Failure& failure) {
        PrintError(who, failure.message);
        return failure.code;
    } catch (const std::exception& error) {
        PrintError(who, error.what());
        return kRunFailed;
    }
}

} // namespace vrx::tool
