#include "tools/capture/TapRecorder.h"

#include "tools/wire/WireTap.h"

#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace vrx::tool {

TapRecorder::TapRecorder(const std::string& file, int socket, std::function<void(const std::string&)> tell)
    : m_file(file), m_socket(socket), m_tell(std::move(tell)), m_writer(file, false),
      m_thread([this] { Run(); }) {}

TapRecorder::~TapRecorder() {
    (void)::shutdown(m_socket, SHUT_RD); // what was told before is still heard
    m_thread.join();
    ::close(m_socket);
}

void TapRecorder::Run() {
    WireEvent event;
    std::string bytes;
    while (WireTap::Hear(m_socket, event, bytes)) {
        const std::int64_t time = m_clock.At(event.time);
        const Side from = event.fromServer ? Side::kServer : Side::kClient;
        switch (event.kind) {
        case WireEvent::kOpened:
            m_writer.Open(event.connection, {"127.0.0.1", event.clientPort}, {"127.0.0.1", event.serverPort},
                          time);
            break;
        case WireEvent::kBytes:
            m_writer.Bytes(event.connection, from, time, bytes);
            break;
        case WireEvent::kClosed:
            m_writer.Close(event.connection, from, time);
            break;
        case WireEvent::kReset:
            m_writer.Reset(event.connection, from, time);
            break;
        }
        if (event.kind != WireEvent::kBytes || event.fromServer) Flush();
    }
    Flush();
}

void TapRecorder::Flush() {
    if (m_flushFailed) return;
    m_flushFailed = !m_writer.Flush();
    if (m_flushFailed)
        m_tell(m_file + ": the recording ends here: " + m_writer.Error() + "; the checks go on");
}

} // namespace vrx::tool
