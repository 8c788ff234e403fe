#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <string_view>

namespace vrx::tool {

/// What is checked, and how a stranger's server wants to be addressed.
struct CheckTarget {
    enum Kind { kPlugin, kServer };
    Kind kind = kPlugin;
    std::string file; ///< the plug-in
    std::string host; ///< the server
    int port = 0;
    int recorderPort = 0; ///< on 127.0.0.1, to connect to instead of to the server; 0: there is no recorder
    int recorderTap = -1; ///< the scripted servers' WireTap; -1: there is no recorder
    std::string input = "In";
    std::string output = "Out";
    std::string layout = "Main";
    std::size_t block = 0;    ///< frames; 0: as the pins say, else one segment
    std::size_t channels = 0; ///< 0: as the pins say, else 2
    std::uint64_t seed = 1;

    /// Where checks connect.
    const std::string& ConnectHost() const;
    int ConnectPort() const { return recorderPort != 0 ? recorderPort : port; }

    /// The file, or "host:port".
    std::string Name() const { return kind == kPlugin ? file : host + ":" + std::to_string(port); }
};

/// Three sentences for the maker of what is checked.
struct Observation {
    std::string expected;
    std::string got;
    std::string means; ///< for a user
};

/// Thrown by a check: what hosts or servers rely on does not hold.
struct Mismatch {
    Observation what;
};

/// Thrown by a check: it could not be tried.
struct Untried {
    std::string why;
};

/// What a running check has of the program around it.
class Trial {
public:
    /// doing   where the runner looks when the check hangs or crashes; `room` bytes, always ended by a zero
    Trial(const CheckTarget& target, std::uint64_t seed, std::span<char> doing)
        : m_target(target), m_random(seed), m_doing(doing) {}

    const CheckTarget& Target() const { return m_target; }

    /// The same states for the same seed and check.
    std::mt19937_64& Random() { return m_random; }

    /// A number from 0 to `end` - 1.
    std::uint32_t Below(std::uint32_t end) { return static_cast<std::uint32_t>(m_random() % end); }

    /// Notes what is about to be done.
    void Doing(std::string_view what);

    /// Notes what merely costs; the check goes on. The first warning is reported.
    void Warn(Observation what);

    /// "" without a warning.
    const Observation& Warning() const { return m_warning; }

private:
    const CheckTarget& m_target;
    std::mt19937_64 m_random;
    std::span<char> m_doing;
    Observation m_warning;
};

/// The time for saying the same again and again: what is slow is asked less often instead of running out of time.
class LoopTime {
public:
    explicit LoopTime(std::chrono::seconds time = std::chrono::seconds(12))
        : m_end(std::chrono::steady_clock::now() + time) {}

    bool Left() const { return std::chrono::steady_clock::now() < m_end; }

private:
    std::chrono::steady_clock::time_point m_end;
};

/// One check: a row of its room's table.
struct Check {
    const char* name;
    CheckTarget::Kind kind;
    int level;
    const char* proves; ///< one sentence
    const char* needs;  ///< the check that must not have failed before, or ""
    int seconds;        ///< its time-out, in which waiting for a busy processor does not count
    void (*run)(Trial&);
};

/// All checks of a kind, by level; those that others need stand before them.
std::span<const Check> ChecksOf(CheckTarget::Kind kind);

} // namespace vrx::tool
