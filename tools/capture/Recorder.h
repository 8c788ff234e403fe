#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace vrx::tool {

struct RecorderOptions {
    std::string host;   ///< the server's name or dotted IPv4 address
    int port = 0;       ///< the server's
    std::string file;   ///< the recording
    int listenPort = 0; ///< on 127.0.0.1; 0: the system picks a free one
    bool overwrite = false;
    bool mute = false; ///< zeroes stand for samples in the recording
    /// Gets what a person should know, one sentence at a time: that the recording has ended early, that the server
    /// refuses. Called from the thread that runs the recorder. Null: nobody wants to know.
    std::function<void(const std::string&)> tell;
};

struct RecorderFigures {
    std::uint64_t clients = 0;
    std::uint64_t requestBytes = 0;
    std::uint64_t replyBytes = 0;
    std::uint64_t fileBytes = 0;
};

/// Stands between clients and a server: hands every piece of bytes on at once and as it came, ends and resets
/// included, and writes it to a capture file. The file holds every exchange once its reply was handed on. When it
/// cannot be written any more, the recording ends and the conversations go on.
class Recorder {
public:
    /// Creates the file, finds the server's address and listens. Throws Failure when one of these fails.
    explicit Recorder(RecorderOptions options);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    int Port() const;

    /// Serves until `stopped`, which is asked twenty times a second, is true.
    void Run(const std::function<bool()>& stopped);

    const RecorderFigures& Figures() const;
    /// Why the recording ended early; "" when it did not.
    const std::string& Error() const;

private:
    class Proxy;
    std::unique_ptr<Proxy> m_proxy;
};

/// A recorder on a thread of its own, for a command that records what it does itself.
class BackgroundRecorder {
public:
    /// Throws Failure as Recorder does.
    explicit BackgroundRecorder(RecorderOptions options);
    /// Ends the recording; first the talkers are to be gone.
    ~BackgroundRecorder();
    BackgroundRecorder(const BackgroundRecorder&) = delete;
    BackgroundRecorder& operator=(const BackgroundRecorder&) = delete;

    int Port() const { return m_recorder.Port(); }

private:
    Recorder m_recorder;
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

} // namespace vrx::tool
