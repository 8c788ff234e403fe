#pragma once

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>

namespace vrx::tool {

/// A recorder in a process of its own, for a command that must have one thread.
class RecordingProcess {
public:
    /// A recorder in front of a server. Throws Failure as the recorder does: the file exists or cannot be created, the
    /// server's name is not known.
    RecordingProcess(const std::string& file, const std::string& host, int port);
    /// A recorder of what scripted servers tell. Throws Failure when the file exists or cannot be created.
    explicit RecordingProcess(const std::string& file);
    /// Ends the recording; first the connections are to be gone.
    ~RecordingProcess();
    RecordingProcess(const RecordingProcess&) = delete;
    RecordingProcess& operator=(const RecordingProcess&) = delete;

    /// Where to connect on 127.0.0.1 instead of to the server.
    int Port() const { return m_port; }
    /// The socket for the scripted servers' WireTap.
    int Tap() const { return m_tap; }

private:
    /// Begins to record until the result is destroyed; may set the port.
    using Begin = std::function<std::shared_ptr<void>(int& port)>;
    struct Beginning;

    void Start(const Begin& begin);
    [[noreturn]] static void Record(const Begin& begin, int answer, int lifeline);

    pid_t m_pid = -1;
    int m_lifeline = -1; ///< its end ends the process
    int m_port = 0;
    int m_tap = -1;
};

} // namespace vrx::tool
