#pragma once

#include "base/Export.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <netdb.h>
#include <new>
#include <pthread.h>
#include <string>

/// One persistent IPv4 TCP connection to a server: sends a line of text or the bytes of a packet, and waits
/// for the one reply that follows.
///
/// The connection is opened by the first exchange and kept for the next one. Whatever closes it (KillSocket,
/// a failed receive, a time-out) also forgets port and host, so that the next exchange looks the host up and
/// connects again. While a connection stands, the host and port given to an exchange are not looked at.
///
/// Threads: one caller at a time, the object takes no lock. A watchdog thread of the object's own is started
/// by the first awaited reply and ends with the object. Time-outs are given in units of 10 ms and count in
/// whole ticks of 100 ms: 1000 is ten seconds. A negative time-out waits without limit; 0 to 9 waits without
/// limit and then still reports kTimedOut. The time-out bounds each single receive, not connecting or
/// sending.
///
/// Signals: none is raised when the peer has gone; the watchdog runs with all signals blocked.
///
/// Size: over 1 MiB, the receive buffer being part of the object: create it with `new`, which takes storage
/// straight from the system, so that pages of the buffer that no reply has reached cost nothing.
class VRX_EXPORT CTcpIOTalk {
public:
    /// What the exchanges return. SendTcpMessage never returns kSendFailed.
    enum Result : int {
        kReplied = 1,           ///< a reply was received
        kNoConnection = -1,     ///< not connected, or the host is neither known nor a dotted quad
        kPeerClosed = -9995,    ///< the server closed the connection, or the reply does not fit the buffer
        kReceiveFailed = -9996, ///< recv failed
        kSendFailed = -9997,    ///< send failed while a packet was being written
        kTimedOut = -9999,      ///< the watchdog ran out
    };

    /// First word of every packet, little-endian.
    enum : uint32_t { kPacketMarker = 0x07FF0003 };

    /// Bytes that the receive buffer holds; a longer reply cannot be received.
    enum : int { kBufferSize = 0x100000 };

    /// Neither connects nor starts the watchdog.
    CTcpIOTalk();

    /// Stops the watchdog, which takes up to one tick (100 ms), and closes the connection.
    ~CTcpIOTalk();

    CTcpIOTalk(const CTcpIOTalk&) = delete;
    CTcpIOTalk& operator=(const CTcpIOTalk&) = delete;

    /// Takes storage straight from the system; std::bad_alloc when there is none.
    static void* operator new(size_t size);

    /// The same, but null when there is none.
    static void* operator new(size_t size, const std::nothrow_t&) noexcept;

#ifdef __cpp_aligned_new
    /// The same two for an alignment of up to a page, at which the storage begins anyway.
    static void* operator new(size_t size, std::align_val_t) {
        return operator new(size);
    }
    static void* operator new(size_t size, std::align_val_t, const std::nothrow_t& tag) noexcept {
        return operator new(size, tag);
    }
#endif

    /// Constructs in storage of the caller's own.
    static void* operator new(size_t, void* where) noexcept {
        return where;
    }

    /// Gives the storage back to the system; null is left alone.
    static void operator delete(void* storage, size_t size) noexcept;

    /// Looks a host name up with gethostbyname (POSIX.1-2001).
    ///
    /// Returns null for a null or empty name, for a name whose first character is a digit (it is taken for a
    /// dotted quad) and for a name that is not known. The entry is the library's own copy: it stays valid and
    /// unchanged until the library is unloaded, and is never freed by the caller. Any thread may call.
    static hostent* TranslateAddress(const char* name);

    /// Records the port (its low 16 bits) and looks the host up, but only when the port differs from the
    /// recorded one; then an open connection is closed first. With the same port nothing happens, not even a
    /// new look-up of another host.
    void SetHostEnt(const char* host, int port);

    /// Creates the TCP socket, with TCP_NODELAY, if there is none. Failures show when connecting.
    void MakeSocket();

    /// Connects to the recorded port at `address` (network byte order), or at the first address of the
    /// looked-up host when `address` is 0. Does nothing when connected. A failure, including one for want of
    /// any address, closes the socket.
    void ConnectSocket(unsigned int address);

    /// Closes the connection and forgets port and host; without a socket nothing happens.
    void KillSocket();

    /// Sends a line of text on `socket` in pieces of at most 1024 bytes.
    ///
    /// A line feed is added unless the text ends in one; a null or empty text sends nothing.
    /// Returns 0 when all was sent, else the result of the send that failed (0 or negative).
    int SendString(int socket, const char* text);

    /// The watchdog's loop, for its thread only: ticks every 100 ms until the destructor stops it; returns 0.
    int TimerThread();

    /// Waits for one reply on the open connection.
    ///
    /// reply    raw: cleared. Otherwise the text line without its line feed (a carriage return before it stays),
    ///          or the bytes of the whole packet
    /// data     start of this object's receive buffer: valid until the next exchange, never freed by the caller
    /// length   raw: bytes received; packet: its total length; text line: 0
    /// timeout  units of 10 ms for each receive, see the class
    /// raw      true: whatever a single receive delivers is the reply. false: receives until a packet (marked by
    ///          kPacketMarker, its length in the second word) or a text line is complete; what follows the
    ///          line feed in the same receive is dropped, and a line with a zero byte in it is never complete
    ///
    /// Returns kReplied, kPeerClosed, kReceiveFailed or kTimedOut. After kTimedOut by the watchdog the
    /// connection is closed; after the others it is left to the caller.
    int GetBinaryMessage(std::string& reply, void*& data, int& length, int timeout, bool raw);

    /// Sends one line of text and waits for a text line or a packet.
    ///
    /// host     name, or dotted quad (first character a digit); null or empty counts as unknown
    /// text     see SendString; an empty text sends nothing and still waits
    /// Others   see GetBinaryMessage with `raw` false
    ///
    /// Connects first if need be: three attempts with no connection open, one if the open one turns out dead.
    /// Returns kReplied, kNoConnection, kPeerClosed, kReceiveFailed or kTimedOut. After a failure the
    /// connection is closed and the next call reconnects, but for one case: when only the last attempt
    /// connects, kNoConnection is returned with the connection open, nothing was sent, and the next call uses
    /// it.
    int SendTcpMessage(const char* host, int port, const char* text, std::string& reply, void*& data,
                       int& length, int timeout);

    /// Sends the bytes of a packet and waits for the reply.
    ///
    /// bytes, count  the packet; a negative count is a failed send, 0 sends nothing and waits for the reply
    /// port          a negative port connects to its low 16 bits and collects a reply that comes in several
    ///               receives: 4 times the upper half of its first word gives the bytes to wait for
    /// Others        see GetBinaryMessage
    ///
    /// Connects first if need be, with a single attempt.
    /// Returns kReplied, kNoConnection (unknown host), kSendFailed, kPeerClosed, kReceiveFailed or kTimedOut.
    /// A failed receive closes the connection. A failed send leaves a socket that stands as it is: further
    /// packets fail as well until a text exchange has replaced it. A collected reply that breaks off after
    /// its first piece still returns kReplied, with the connection closed and the data incomplete.
    int SendBinaryMessage(const char* host, int port, const unsigned char* bytes, int count,
                          std::string& reply, void*& data, int& length, int timeout, bool raw);

    /// One of this machine's IPv4 addresses as a dotted quad, in the order of getifaddrs, 127.0.0.1 left out.
    /// An index past the end, or negative, gives the first; without any address the result is empty.
    std::string GetIPAddress(int index);

private:
    friend struct CTcpIOTalkLayout;

    VRX_HIDDEN bool OpenConnection(const char* host, int port);
    VRX_HIDDEN void StartWatchdog();
    VRX_HIDDEN void Tick();
    VRX_HIDDEN bool Expired();
    VRX_HIDDEN int AwaitReply(std::string& reply, void*& data, int& length, int timeout, bool raw);
    VRX_HIDDEN int ReceiveOnce(int at, int ticks);
    VRX_HIDDEN int CollectReply(std::string& reply, int& length, int ticks);
    VRX_HIDDEN int CollectPieces(std::string& reply, void*& data, int& length, int timeout, bool raw);
    VRX_HIDDEN uint32_t WordAt(int offset) const;

    // The watchdog reads m_socket and moves m_countdown while a receive is under way; the rest is the
    // caller's.
    std::atomic<int32_t> m_socket{-1};
    uint16_t m_port = 0; // network byte order
    hostent* m_host = nullptr;
    char m_buffer[kBufferSize + 8]; // the spare bytes take the terminating zero of a full buffer
    bool m_connected = false;
    pthread_t m_timerThread = 0;
    std::atomic<bool> m_stopTimer{false};
    std::atomic<bool> m_timerExited{false};
    std::atomic<int32_t> m_countdown{-1};
};

/// Sibling programs rely on these offsets.
struct CTcpIOTalkLayout {
    static_assert(offsetof(CTcpIOTalk, m_socket) == 0, "");
    static_assert(offsetof(CTcpIOTalk, m_port) == 4, "");
    static_assert(offsetof(CTcpIOTalk, m_host) == 8, "");
    static_assert(offsetof(CTcpIOTalk, m_buffer) == 16, "");
    static_assert(offsetof(CTcpIOTalk, m_connected) == 1048600, "");
    static_assert(offsetof(CTcpIOTalk, m_timerThread) == 1048608, "");
    static_assert(offsetof(CTcpIOTalk, m_stopTimer) == 1048616, "");
    static_assert(offsetof(CTcpIOTalk, m_timerExited) == 1048617, "");
    static_assert(offsetof(CTcpIOTalk, m_countdown) == 1048620, "");
    static_assert(sizeof(CTcpIOTalk) == 1048624, "");
    static_assert(sizeof(std::atomic<int32_t>) == 4 && ATOMIC_INT_LOCK_FREE == 2, "");
    static_assert(sizeof(std::atomic<bool>) == 1 && ATOMIC_BOOL_LOCK_FREE == 2, "");
};
