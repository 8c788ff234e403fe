#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

/// A program started by a test: its output is captured, and it never outlives this object.
///
///     Subprocess server({VRX_PROGRAM, "serve"});
///     const std::string first = server.ReadLine();
///     server.Signal(SIGTERM);
///     const Subprocess::Outcome end = server.Wait();
///     EXPECT_EQ(end.exitCode, 0) << end.err;
class Subprocess {
public:
    using Milliseconds = std::chrono::milliseconds;
    /// Long enough for a loaded machine under a sanitizer; only a failing test waits that long.
    static constexpr Milliseconds kPatience{20000};

    struct Outcome {
        bool timedOut = false; ///< still running after the time-out; it was killed and reaped
        int exitCode = -1;     ///< -1 when a signal ended it
        int signal = 0;        ///< the signal that ended it, 0 for an ordinary exit
        std::string out;       ///< all of its standard output, lines already read included
        std::string err;       ///< all of its standard error
    };

    /// Starts `command[0]`, looked up along PATH, with this process's environment and an empty standard
    /// input. Throws std::runtime_error when it cannot be started.
    explicit Subprocess(const std::vector<std::string>& command);

    /// Kills the program if it still runs, and reaps it.
    ~Subprocess();
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    /// The next line of standard output without its line feed; what there is of it when the output ends or
    /// the time is up.
    std::string ReadLine(Milliseconds timeout = kPatience);

    /// Waits for the end. May be called once.
    Outcome Wait(Milliseconds timeout = kPatience);

    void Signal(int number) const;
    pid_t Pid() const { return m_pid; }

private:
    using Clock = std::chrono::steady_clock;

    bool Collect(Clock::time_point until);
    void Reap(Outcome& outcome);

    pid_t m_pid = -1;
    int m_exit = -1; // becomes readable when the program has ended
    int m_outPipe = -1;
    int m_errPipe = -1;
    bool m_ended = false;
    std::string m_out;
    std::string m_err;
    size_t m_linesEnd = 0; // how much of m_out ReadLine has handed out
};

/// Starts `command`, waits for its end and returns what it did.
Subprocess::Outcome RunProgram(const std::vector<std::string>& command,
                               Subprocess::Milliseconds timeout = Subprocess::kPatience);
