#include "tcpio/CTcpIOTalk.h"

#include "tcpio/internal/HostTable.h"

#include <algorithm>
#include <arpa/inet.h>
#include <bit>
#include <cctype>
#include <csignal>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <new>
#include <sched.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

static_assert(std::endian::native == std::endian::little, "reply words are read as they stand in memory");

namespace {

constexpr int kNoSocket = -1;
constexpr int kPasses = 3;
constexpr size_t kTextPiece = 1024;

constexpr int kTimeoutUnitsPerTick = 10;
constexpr useconds_t kTickMicroseconds = 100000;
constexpr useconds_t kExitPollMicroseconds = 10000;

// Values of the countdown that are not a number of ticks left.
constexpr int32_t kExpired = 0;
constexpr int32_t kDisarmed = -1;
constexpr int32_t kExpiring = -2; // the watchdog is shutting the connection down

/// Storage that operator new has just taken from the system and that is therefore still all zero.
thread_local const void* zeroedStorage = nullptr;

/// Sends everything in pieces of at most `piece` bytes. Returns 1, or the result of the send that failed.
int SendAll(int socket, const void* bytes, size_t count, size_t piece) {
    const auto* next = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t sent = ::send(socket, next, std::min(count, piece), MSG_NOSIGNAL);
        if (sent <= 0) return static_cast<int>(sent);
        next += sent;
        count -= static_cast<size_t>(sent);
    }
    return 1;
}

bool IsEmpty(const char* text) {
    return !text || !*text;
}

bool IsDottedQuad(const char* host) {
    return host && std::isdigit(static_cast<unsigned char>(*host));
}

/// The first IPv4 address of a looked-up host in network byte order, or 0.
in_addr_t FirstAddress(const hostent* host) {
    if (!host || host->h_addrtype != AF_INET || !host->h_addr_list || !host->h_addr_list[0]) return 0;
    in_addr_t address;
    std::memcpy(&address, host->h_addr_list[0], sizeof address);
    return address;
}

void* RunWatchdog(void* talk) {
    static_cast<CTcpIOTalk*>(talk)->TimerThread();
    return nullptr;
}

} // namespace

void* CTcpIOTalk::operator new(size_t size, const std::nothrow_t&) noexcept {
    void* storage = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (storage == MAP_FAILED) return nullptr;
    zeroedStorage = storage;
    return storage;
}

void* CTcpIOTalk::operator new(size_t size) {
    void* storage = operator new(size, std::nothrow);
    if (!storage) throw std::bad_alloc();
    return storage;
}

void CTcpIOTalk::operator delete(void* storage, size_t size) noexcept {
    if (storage) ::munmap(storage, size);
}

CTcpIOTalk::CTcpIOTalk() {
    // Clearing the buffer would touch all of its pages; storage fresh from the system is clear already.
    if (std::exchange(zeroedStorage, nullptr) != this) std::memset(m_buffer, 0, sizeof m_buffer);
}

CTcpIOTalk::~CTcpIOTalk() {
    if (m_timerThread != 0) {
        m_stopTimer = true;
        while (!m_timerExited) ::usleep(kExitPollMicroseconds);
        ::pthread_join(m_timerThread, nullptr); // nothing of the thread may outlive an unloaded library
    }
    KillSocket();
}

hostent* CTcpIOTalk::TranslateAddress(const char* name) {
    if (IsEmpty(name) || IsDottedQuad(name)) return nullptr;
    return vrx::LookUpHost(name);
}

void CTcpIOTalk::SetHostEnt(const char* host, int port) {
    const uint16_t networkPort = htons(static_cast<uint16_t>(port));
    if (networkPort == m_port)
        return; // callers rely on a failed look-up not being repeated for the same port
    KillSocket();
    m_host = TranslateAddress(host);
    m_port = networkPort; // last: a look-up that threw has to be repeated
}

void CTcpIOTalk::MakeSocket() {
    if (m_socket != kNoSocket) return;
    m_socket = ::socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    (void)::setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on); // without it only slower
}

void CTcpIOTalk::ConnectSocket(unsigned int address) {
    if (m_connected) return;
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = m_port;
    server.sin_addr.s_addr = address != 0 ? address : FirstAddress(m_host);
    m_connected = server.sin_addr.s_addr != 0 &&
                  ::connect(m_socket, reinterpret_cast<const sockaddr*>(&server), sizeof server) == 0;
    if (!m_connected) KillSocket();
}

void CTcpIOTalk::KillSocket() {
    if (m_socket == kNoSocket) return;
    ::shutdown(m_socket, SHUT_RDWR);
    ::close(m_socket);
    m_socket = kNoSocket;
    m_port = 0;
    m_host = nullptr;
    m_connected = false;
}

/// False when the host is neither known nor a dotted quad. A connect that fails leaves no socket.
bool CTcpIOTalk::OpenConnection(const char* host, int port) {
    in_addr_t address = 0;
    SetHostEnt(host, port);
    if (!m_host) {
        if (!IsDottedQuad(host)) return false;
        address = ::inet_addr(host);
        m_port = htons(static_cast<uint16_t>(port));
    }
    MakeSocket();
    ConnectSocket(address);
    return true;
}

int CTcpIOTalk::SendString(int socket, const char* text) {
    if (IsEmpty(text)) return 0;
    const size_t length = std::strlen(text);
    if (text[length - 1] == '\n') return std::min(SendAll(socket, text, length, kTextPiece), 0);

    std::string line;
    line.reserve(length + 1);
    line.append(text, length).push_back('\n');
    return std::min(SendAll(socket, line.data(), line.size(), kTextPiece), 0);
}

void CTcpIOTalk::StartWatchdog() {
    if (m_timerThread != 0) return;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before); // the host's handlers never run on the watchdog
    pthread_t thread;
    if (::pthread_create(&thread, nullptr, RunWatchdog, this) == 0) m_timerThread = thread;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

int CTcpIOTalk::TimerThread() {
    while (!m_stopTimer) {
        Tick();
        ::usleep(kTickMicroseconds);
    }
    m_timerExited = true;
    return 0;
}

/// Counts an armed time-out down. The last tick wakes the blocked receive and then lets go of the connection:
/// closing it is left to the receiving thread, so that no descriptor is closed under a running receive.
void CTcpIOTalk::Tick() {
    int32_t ticks = m_countdown;
    if (ticks <= 0) return;
    const int32_t next = ticks == 1 ? kExpiring : ticks - 1;
    if (!m_countdown.compare_exchange_strong(ticks, next)) return; // disarmed meanwhile
    if (next != kExpiring) return;
    ::shutdown(m_socket, SHUT_RDWR);
    m_countdown = kExpired;
}

/// Disarms the countdown and returns false, or returns true once it has expired and the watchdog has let go.
inline bool CTcpIOTalk::Expired() {
    int32_t ticks = m_countdown;
    while (ticks != kExpired) {
        if (ticks == kExpiring) {
            ::sched_yield();
            ticks = m_countdown;
        } else if (m_countdown.compare_exchange_weak(ticks, kDisarmed)) {
            return false;
        }
    }
    return true;
}

/// Receives once behind the first `at` bytes of the buffer and puts a zero byte after what came.
/// Returns the bytes received (at least 1) or a negative Result.
inline int CTcpIOTalk::ReceiveOnce(int at, int ticks) {
    if (at >= kBufferSize) return kPeerClosed;
    m_countdown = ticks;
    const ssize_t received = ::recv(m_socket, m_buffer + at, static_cast<size_t>(kBufferSize - at), 0);
    if (Expired()) {
        if (ticks > 0) KillSocket(); // a time-out below one tick had no watchdog: its connection still stands
        return kTimedOut;
    }
    if (received == 0) return kPeerClosed;
    if (received < 0) return kReceiveFailed;
    m_buffer[at + received] = 0;
    return static_cast<int>(received);
}

uint32_t CTcpIOTalk::WordAt(int offset) const {
    uint32_t word;
    std::memcpy(&word, m_buffer + offset, sizeof word);
    return word;
}

/// Receives until a packet or a text line is complete.
///
/// The packet test reads the buffer's first two words even when fewer bytes of this reply have come: what
/// earlier replies left there takes part in it.
int CTcpIOTalk::CollectReply(std::string& reply, int& length, int ticks) {
    int total = 0;
    const char* lineEnd = m_buffer; // no line feed before here
    for (;;) {
        const int received = ReceiveOnce(total, ticks);
        if (received < 0) return received;
        total += received;

        if (WordAt(0) == kPacketMarker) {
            const uint32_t packetBytes = WordAt(4);
            length = static_cast<int>(packetBytes);
            if (packetBytes > static_cast<uint32_t>(total)) continue;
            reply.assign(m_buffer, packetBytes);
            return kReplied;
        }

        lineEnd = ::strchrnul(lineEnd, '\n'); // stays for good at a zero byte that the reply itself holds
        if (*lineEnd == '\n') {
            length = 0;
            reply.assign(m_buffer, static_cast<size_t>(lineEnd - m_buffer));
            return kReplied;
        }
    }
}

/// What GetBinaryMessage does, for calls from inside.
inline int CTcpIOTalk::AwaitReply(std::string& reply, void*& data, int& length, int timeout, bool raw) {
    StartWatchdog();
    reply.clear();
    length = 0;
    m_buffer[0] = 0;
    data = m_buffer;
    const int ticks = timeout < 0 ? kDisarmed : timeout / kTimeoutUnitsPerTick;
    if (!raw) return CollectReply(reply, length, ticks);

    const int received = ReceiveOnce(0, ticks);
    if (received < 0) return received;
    length = received;
    return kReplied;
}

int CTcpIOTalk::GetBinaryMessage(std::string& reply, void*& data, int& length, int timeout, bool raw) {
    return AwaitReply(reply, data, length, timeout, raw);
}

int CTcpIOTalk::SendTcpMessage(const char* host, int port, const char* text, std::string& reply, void*& data,
                               int& length, int timeout) {
    for (int pass = 0; pass < kPasses; ++pass) { // connecting uses up a pass as sending does
        if (m_socket == kNoSocket) {
            if (!OpenConnection(host, port)) return kNoConnection;
            continue;
        }
        if (!m_connected) {
            KillSocket();
            return kNoConnection;
        }
        if (SendString(m_socket, text) < 0) {
            KillSocket();
            continue;
        }
        const int result = GetBinaryMessage(reply, data, length, timeout, false);
        if (result < 0) KillSocket();
        return result;
    }
    return kNoConnection;
}

int CTcpIOTalk::SendBinaryMessage(const char* host, int port, const unsigned char* bytes, int count,
                                  std::string& reply, void*& data, int& length, int timeout, bool raw) {
    if (m_socket == kNoSocket && !OpenConnection(host, port)) return kNoConnection;
    if (count < 0) return kSendFailed;
    // The socket stays although the send failed: callers rely on only a text exchange replacing it.
    const auto size = static_cast<size_t>(count);
    if (SendAll(m_socket, bytes, size, size) <= 0) return kSendFailed;

    const int result = AwaitReply(reply, data, length, timeout, raw);
    if (result < 0) {
        KillSocket();
        return result;
    }
    return port >= 0 ? result : CollectPieces(reply, data, length, timeout, raw);
}

/// Completes a reply whose first piece, `length` bytes, lies in the buffer. What does not fit the buffer is
/// dropped. When a later piece fails, callers still get kReplied, the result of the first one.
int CTcpIOTalk::CollectPieces(std::string& reply, void*& data, int& length, int timeout, bool raw) {
    const int expected = static_cast<int>(4 * (WordAt(0) >> 16));
    if (length >= expected) return kReplied;

    std::vector<char> pieces;
    try {
        pieces.reserve(static_cast<size_t>(expected) + kBufferSize);
    } catch (...) {
        KillSocket(); // the rest of this reply must not answer the next exchange
        throw;
    }
    pieces.assign(m_buffer, m_buffer + length);
    while (length < expected) {
        void* piece;
        int pieceLength;
        if (GetBinaryMessage(reply, piece, pieceLength, timeout, raw) < 0) {
            KillSocket();
            return kReplied;
        }
        pieces.insert(pieces.end(), m_buffer, m_buffer + pieceLength);
        length += pieceLength;
    }
    length = std::min<int>(length, kBufferSize);
    std::copy_n(pieces.begin(), length, m_buffer);
    data = m_buffer;
    return kReplied;
}

std::string CTcpIOTalk::GetIPAddress(int index) {
    ifaddrs* interfaces = nullptr;
    if (::getifaddrs(&interfaces) != 0) return {};
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(interfaces, ::freeifaddrs);

    std::vector<std::string> addresses;
    for (const ifaddrs* entry = interfaces; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET) continue;
        sockaddr_in ipv4;
        std::memcpy(&ipv4, entry->ifa_addr, sizeof ipv4);
        char text[INET_ADDRSTRLEN];
        ::inet_ntop(AF_INET, &ipv4.sin_addr, text, sizeof text);
        if (std::strcmp(text, "127.0.0.1") != 0) addresses.emplace_back(text); // 127.0.1.1 and others stay
    }
    if (addresses.empty()) return {};
    const auto position = static_cast<size_t>(index);
    return position < addresses.size() ? addresses[position] : addresses.front();
}
