#pragma once

#include <string>

/// A talker: runs blocks of audio through a remote processing server, one request and one reply at a time
/// over one TCP connection.
///
/// A host needs this header alone: it loads the library with dlopen (POSIX.1-2001), resolves TalkerFactory by
/// its mangled name "_Z13TalkerFactoryv", and deletes the talker it got through the virtual destructor before
/// it unloads the library.
///
/// Results: negative numbers are failures of the exchange, see Result. Each failure also prints one line to
/// standard output that begins with "CVRXTalker::<Operation>: "; success prints nothing.
///
/// Threads: calls may come from several threads, and their exchanges with the server never mix. Yet the reply
/// of an exchange is read after the next one may have begun, so pump and send text from one thread at a time
/// if you rely on each reply; and never configure or delete a talker that another thread is using.
///
/// Blocking: every call that reaches the server returns when the reply has come. Configure, PumpAudio and
/// PinProps wait at most ten seconds for it, SendMessage without limit.
///
/// Stack: Configure takes some 70 KiB of the calling thread's, PumpAudio and PinProps some 20 KiB.
///
/// No signal is raised when the server goes away, and nothing is thrown but the standard library's own
/// exceptions for want of memory.
class CVRXTalker {
public:
    /// What became of an exchange. A server's status word is returned as it is and may equal any of these; the
    /// printed line tells whether a result is the talker's own.
    ///
    /// After kPeerClosed, kReceiveFailed and kTimedOut the connection is closed, and the next call reconnects
    /// by itself. After kSendFailed it depends. If reconnecting was refused, the next call tries again by
    /// itself. If the server dropped an open connection, further blocks fail alike until Configure or
    /// SendMessage has replaced the connection. If the block was too large, the connection stands as it was.
    enum Result : int {
        kReplied = 1,           ///< SendMessage: the reply has come
        kNoConnection = -1,     ///< not configured, or the server is unknown or cannot be reached
        kNotAPacket = -1000,    ///< something else than a packet came; the connection stands
        kPeerClosed = -9995,    ///< the server closed the connection
        kReceiveFailed = -9996, ///< receiving failed, by a signal's handler for example
        kSendFailed = -9997,    ///< sending failed, or the packet would be longer than 2,147,483,647 bytes
        kTimedOut = -9999,      ///< no reply within ten seconds
    };

    /// Closes the connection. Takes up to 100 ms once a reply has been awaited.
    virtual ~CVRXTalker() = default;

    /// What the server spent on average, in its own unit, as it said with the last accepted reply to PumpAudio.
    /// 0 before the first. A negative figure shows as one near 2^32.
    virtual float GetAverageCycles() const = 0;

    /// As GetAverageCycles, but what the server spent on that block.
    virtual float GetPumpCycles() const = 0;

    /// Sets the server and its objects, and connects.
    ///
    /// args  "server=10.0.0.5,servport=7000,clport=7001,input=In,output=Out,layout=Main": all six keys are
    ///       needed, in any order; others are ignored; of a key given twice the first counts. A value cannot
    ///       hold a comma. Ports are read up to the first character that is not a digit and are not checked.
    ///
    /// Returns true when the server has answered the connect command, whatever it said. False for null or
    /// empty args (nothing changes, nothing is printed), for a missing key (nothing changes) and for a failed
    /// connect (the new settings stay, the talker is not connected). An open connection stays with its server
    /// even when args names another: use a new talker for that.
    virtual bool Configure(const char* args) = 0;

    /// Sends one block and receives one block.
    ///
    /// in        inCount words of 32 bits, sent as they are; may be null when inCount is 0
    /// out       room for outCount words; written only when a reply is accepted; may be the same memory as in
    /// Counts    words, not frames; how they relate is between host and server
    ///
    /// Returns the server's status word (which may itself be negative) when a reply packet came. Otherwise one
    /// of Result, which is negative then, and leaves `out` and the cycle figures alone.
    ///
    /// The reply is what one receive delivers: keep it within one network segment (1460 bytes on Ethernet),
    /// or what has not arrived with the first segment is missing from `out`. A reply cannot exceed 1 MiB;
    /// words of `out` beyond that stay as they are.
    virtual int PumpAudio(const void* in, void* out, unsigned inCount, unsigned outCount) = 0;

    /// Asks for the properties of the input and the output pin: three values each, of 17 bits, 10 bits and 1
    /// bit, whose meaning the server defines.
    ///
    /// Returns as PumpAudio does; the values are written only when a reply packet came.
    virtual int PinProps(unsigned& in1, unsigned& in2, unsigned& in3, unsigned& out1, unsigned& out2,
                         unsigned& out3) = 0;

    /// Sends a line of text and waits, without limit, for the reply.
    ///
    /// text   a line feed is added unless it ends in one; null or "" sends nothing and still waits
    /// reply  the reply line without its line feed, or a whole packet's bytes. Empty when no reply came;
    ///        untouched when kNoConnection is returned, for then none was awaited
    ///
    /// Returns kReplied, kNoConnection, kPeerClosed or kReceiveFailed; the next call reconnects by itself.
    /// Unlike the others it prints only when the talker is not configured.
    virtual int SendMessage(const char* text, std::string& reply) = 0;
};

/// Makes a talker that is not connected yet; nothing touches the network before Configure. The caller owns
/// it.
__attribute__((visibility("default"))) CVRXTalker* TalkerFactory();
