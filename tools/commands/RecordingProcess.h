#pragma once

#include <string>
#include <sys/types.h>

namespace vrx::tool {

/// A recorder in front of a server, in a process of its own, for a command that must have one thread.
class RecordingProcess {
public:
    /// Throws Failure as the recorder does: the file exists or cannot be created, the server's name is not known.
    RecordingProcess(const std::string& file, const std::string& host, int port);
    /// Ends the recording; first the connections are to be gone.
    ~RecordingProcess();
    RecordingProcess(const RecordingProcess&) = delete;
    RecordingProcess& operator=(const RecordingProcess&) = delete;

    /// Where to connect on 127.0.0.1 instead of to the server.
    int Port() const { return m_port; }

private:
    pid_t m_pid = -1;
    int m_lifeline = -1; ///< its end ends the process
    int m_port = 0;
};

} // namespace vrx::tool
