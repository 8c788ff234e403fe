#pragma once

#include "tests/support/Subprocess.h"

#include <csignal>
#include <string>
#include <vector>

/// Whether this `vrx` can record.
inline bool CanRecord() {
    return RunProgram({VRX_PROGRAM, "record", "--help"}).exitCode == 0;
}

/// A `vrx record` under way.
class RecordProcess {
public:
    RecordProcess(const std::string& server, const std::string& file,
                  const std::vector<std::string>& options = {})
        : m_process(Command(server, file, options)) {
        const std::string first = m_process.ReadLine();
        m_port = first.substr(first.rfind(':') + 1);
    }
    const std::string& Port() const { return m_port; }
    Subprocess::Outcome Stop(int signal = SIGTERM) {
        m_process.Signal(signal);
        return m_process.Wait();
    }
    void Kill() { (void)Stop(SIGKILL); }

private:
    static std::vector<std::string> Command(const std::string& server, const std::string& file,
                                            const std::vector<std::string>& options) {
        std::vector<std::string> command{VRX_PROGRAM, "record", "--to", server, file};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    Subprocess m_process;
    std::string m_port;
};
