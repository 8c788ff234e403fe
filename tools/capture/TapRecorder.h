#pragma once

#include "tools/capture/CaptureWriter.h"
#include "tools/capture/WallClock.h"

#include <functional>
#include <string>
#include <thread>

namespace vrx::tool {

/// Writes what the WireTaps of other processes tell to a capture file, on a thread of its own. The file holds every
/// exchange once its reply was told. When it cannot be written any more, the recording ends.
class TapRecorder {
public:
    /// file    created; Failure is thrown when it exists or cannot be
    /// socket  where the taps' events arrive; closed at the end
    /// tell    gets one sentence when the recording has ended early; called from the recorder's thread
    TapRecorder(const std::string& file, int socket, std::function<void(const std::string&)> tell);
    /// Writes what was told until now.
    ~TapRecorder();
    TapRecorder(const TapRecorder&) = delete;
    TapRecorder& operator=(const TapRecorder&) = delete;

private:
    void Run();
    void Flush();

    std::string m_file;
    int m_socket;
    std::function<void(const std::string&)> m_tell;
    CaptureWriter m_writer;
    WallClock m_clock;
    bool m_flushFailed = false;
    std::thread m_thread;
};

} // namespace vrx::tool
