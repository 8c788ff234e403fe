#include "talker/CVRXTalker_impl.h"

#include "base/StringFormat.h"
#include "base/StringMap.h"
#include "base/internal/Blanks.h"
#include "base/internal/LittleEndian.h"
#include "tcpio/CTcpIOTalk.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

namespace {

constexpr int kReplyTimeout = 1000; // ten seconds
constexpr int kNoTimeout = -1;
constexpr uint64_t kLongestPacket = 0x7FFFFFFF;

// The channel's results are handed to the host as they are.
static_assert(int{CVRXTalker::kReplied} == CTcpIOTalk::kReplied);
static_assert(int{CVRXTalker::kNoConnection} == CTcpIOTalk::kNoConnection);
static_assert(int{CVRXTalker::kPeerClosed} == CTcpIOTalk::kPeerClosed);
static_assert(int{CVRXTalker::kReceiveFailed} == CTcpIOTalk::kReceiveFailed);
static_assert(int{CVRXTalker::kSendFailed} == CTcpIOTalk::kSendFailed);
static_assert(int{CVRXTalker::kTimedOut} == CTcpIOTalk::kTimedOut);

// Command and reply packets: 32-bit little-endian words, then a command's object path text.
constexpr uint32_t kObjectCommand = 0x3A;
constexpr uint32_t kCommandHeaderBytes = 16;
constexpr uint32_t kReplyStatus = 16; // byte offsets in a reply
constexpr uint32_t kReplyAverageCycles = 20;
constexpr uint32_t kReplyPumpCycles = 24;
constexpr uint32_t kReplyData = 28;
constexpr uint32_t kReplyHeadWords = 3; // status and two cycle figures stand before the data words

/// The recursive mutex as the standard library's lock_guard wants it.
class MutexRef {
public:
    explicit MutexRef(pthread_mutex_t& mutex) : m_mutex(mutex) {}
    void lock() { pthread_mutex_lock(&m_mutex); }
    void unlock() { pthread_mutex_unlock(&m_mutex); }

private:
    pthread_mutex_t& m_mutex;
};

/// Room for one packet, not cleared: in the object itself for blocks of up to 4,096 words, else on the heap.
class PacketBuffer {
public:
    explicit PacketBuffer(size_t size) {
        if (size > sizeof m_near) m_far = std::make_unique_for_overwrite<unsigned char[]>(size);
    }
    unsigned char* Bytes() { return m_far ? m_far.get() : m_near; }

private:
    std::unique_ptr<unsigned char[]> m_far;
    unsigned char m_near[4 * 4096 + 1024]; // and the objects' names
};

int32_t ToPort(const std::string& text) {
    return static_cast<int32_t>(std::strtol(text.c_str(), nullptr, 10));
}

int32_t SignedWord(const unsigned char* packet, uint32_t offset) {
    return static_cast<int32_t>(vrx::LoadLe32(packet + offset));
}

/// A cycle figure comes with 8 fractional bits; a negative one is kept as a large unsigned number, as hosts
/// expect.
uint32_t CycleFigure(const unsigned char* packet, uint32_t offset) {
    return static_cast<uint32_t>(SignedWord(packet, offset) >> 8);
}

void UnpackPin(uint32_t word, unsigned& first, unsigned& second, unsigned& third) {
    first = (word >> 10) & 0x1FFFF;
    second = word & 0x3FF;
    third = (word >> 27) & 1;
}

} // namespace

/// The text behind an object's name. It is copied at its full room, which takes an instruction or two where
/// its size would take a call; the zeroes behind the last one pad the packet, and run up to kRoom bytes past
/// its end.
struct CVRXTalker_impl::MemberText {
    static constexpr size_t kRoom = 16;
    char text[kRoom];
    size_t size;
};

/// What is asked of the server: words for the input object, words back from the output object.
struct CVRXTalker_impl::Command {
    std::string_view layout;
    const MemberText& member; // of both objects: what is written to and read from
    const void* words;
    uint32_t wordCount;
    uint32_t replyWords;
};

CVRXTalker* TalkerFactory() {
    return new CVRXTalker_impl;
}

CVRXTalker_impl::CVRXTalker_impl() {
    pthread_mutexattr_t attributes{};
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

CVRXTalker_impl::~CVRXTalker_impl() {
    delete m_tcpio;
    pthread_mutex_destroy(&m_mutex);
}

float CVRXTalker_impl::GetAverageCycles() const {
    return static_cast<float>(m_averageCycles);
}

float CVRXTalker_impl::GetPumpCycles() const {
    return static_cast<float>(m_pumpCycles);
}

bool CVRXTalker_impl::Configure(const char* args) {
    if (vrx::IsEmpty(args)) return false;
    string_map settings;
    settings.Split(args, 0);
    for (const char* key : {"server", "servport", "clport", "input", "output", "layout"}) {
        if (settings.contains(key)) continue;
        std::printf("CVRXTalker::Configure: '%s' argument missing\n", key);
        return false;
    }
    m_server = settings["server"];
    m_servport = ToPort(settings["servport"]);
    m_clport = ToPort(settings["clport"]);
    m_input = settings["input"];
    m_output = settings["output"];
    m_layout = settings["layout"];
    m_connected = Connect();
    return m_connected;
}

bool CVRXTalker_impl::Connect() {
    if (!m_tcpio) m_tcpio = new CTcpIOTalk;
    const std::string command = String::Format("connect,%s,%d", m_server.c_str(), m_clport);
    std::string reply;
    void* data = nullptr;
    int length = 0;
    int result;
    {
        MutexRef mutex(m_mutex);
        const std::lock_guard lock(mutex);
        result = m_tcpio->SendTcpMessage(m_server.c_str(), m_servport, command.c_str(), reply, data, length,
                                         kReplyTimeout);
    }
    if (result >= 0) return true; // whatever the server said
    std::printf("CVRXTalker::Connect: SendTcpMessage() of '%s' failed with hr=0x%08x\n", command.c_str(),
                static_cast<unsigned>(result));
    delete m_tcpio;
    m_tcpio = nullptr;
    return false;
}

/// Writes a command packet of `size` bytes, and up to MemberText::kRoom zeroes behind it:
///
/// | offset | content |
/// |---|---|
/// | 0, 4 | packet marker, total length in bytes |
/// | 8 | words from offset 16 up to the text |
/// | 12 | command code |
/// | 16 | words that the reply is to carry from its offset 16 on |
/// | 20 | the words for the input object |
/// | then | "<layout>,<input><member>,<output><member>", a zero byte, zeroes up to a whole word |
inline void CVRXTalker_impl::WritePacket(unsigned char* packet, uint32_t size, const Command& command) const {
    vrx::LeWriter to(packet);
    to.U32(CTcpIOTalk::kPacketMarker);
    to.U32(size);
    to.U32(command.wordCount + 1);
    to.U32(kObjectCommand);
    to.U32(command.replyWords);
    to.Raw(command.words, size_t{4} * command.wordCount);
    to.Raw(command.layout.data(), command.layout.size());
    to.Raw(",", 1);
    to.Raw(m_input.data(), m_input.size());
    to.Part(command.member.text, command.member.size);
    to.Raw(",", 1);
    to.Raw(m_output.data(), m_output.size());
    to.Part(command.member.text, command.member.size);
}

/// Bytes of a command's packet; the text always ends in one to four zeroes.
inline uint64_t CVRXTalker_impl::PacketSize(const Command& command) const {
    const size_t text =
        command.layout.size() + m_input.size() + m_output.size() + 2 * command.member.size + 2;
    return kCommandHeaderBytes + uint64_t{4} * (uint64_t{command.wordCount} + 1) + (text | 3) + 1;
}

/// Sends a command and waits for the reply. On success `packet` points at it, into the channel's buffer. A
/// reply that is no packet gives kNotAPacket, with the text that came instead in `text`; that is left to the
/// caller to report, all other failures have been.
///
/// Part of each of its two callers: passing the command through memory would cost 67 instructions, a sixth of what a
/// block of 16 words takes beyond the system's own.
[[gnu::always_inline]] inline int CVRXTalker_impl::Exchange(const char* operation, const Command& command,
                                                            const unsigned char*& packet, std::string& text) {
    if (!m_tcpio) {
        std::printf("CVRXTalker::%s: m_tcpio is NULL\n", operation);
        return kNoConnection;
    }
    void* data = nullptr;
    int length = 0;
    int result = kSendFailed;
    const uint64_t size = PacketSize(command);
    if (size <= kLongestPacket) {
        PacketBuffer buffer(size + MemberText::kRoom);
        WritePacket(buffer.Bytes(), static_cast<uint32_t>(size), command);
        MutexRef mutex(m_mutex);
        const std::lock_guard lock(mutex);
        result = m_tcpio->SendBinaryMessage(m_server.c_str(), m_servport, buffer.Bytes(),
                                            static_cast<int>(size), text, data, length, kReplyTimeout, true);
    }
    if (result < 0) {
        std::printf("CVRXTalker::%s: SendBinaryMessage failed with %d\n", operation, result);
        return result;
    }
    packet = static_cast<const unsigned char*>(data);
    // The reply's length is not compared with what was asked for: servers may send less than they announce.
    return vrx::LoadLe32(packet) == CTcpIOTalk::kPacketMarker ? result : kNotAPacket;
}

int CVRXTalker_impl::PumpAudio(const void* in, void* out, unsigned inCount, unsigned outCount) {
    static constexpr MemberText kSamples{".samples[0]", 11};
    const Command command{m_layout, kSamples, in, inCount, outCount + kReplyHeadWords};
    const unsigned char* packet = nullptr;
    std::string text;
    const int result = Exchange("PumpAudio", command, packet, text);
    if (result == kNotAPacket && text.empty()) {
        std::puts("CVRXTalker::PumpAudio: SendBinaryMessage did not reply with packet");
    } else if (result == kNotAPacket) {
        std::printf("CVRXTalker::PumpAudio: SendBinaryMessage replied with %s\n", text.c_str());
    }
    if (result < 0) return result;

    constexpr unsigned kWordsInBuffer = (CTcpIOTalk::kBufferSize - kReplyData) / 4;
    if (outCount > 0) std::memcpy(out, packet + kReplyData, size_t{4} * std::min(outCount, kWordsInBuffer));
    m_averageCycles = CycleFigure(packet, kReplyAverageCycles);
    m_pumpCycles = CycleFigure(packet, kReplyPumpCycles);
    return SignedWord(packet, kReplyStatus);
}

int CVRXTalker_impl::PinProps(unsigned& in1, unsigned& in2, unsigned& in3, unsigned& out1, unsigned& out2,
                              unsigned& out3) {
    constexpr unsigned char kNoWords[16] = {};
    // "-1" stands where PumpAudio names its layout: pins are asked for outside any layout.
    static constexpr MemberText kInfo{".info1", 6};
    const Command command{"-1", kInfo, kNoWords, 4, 2 + kReplyHeadWords};
    const unsigned char* packet = nullptr;
    std::string text;
    const int result = Exchange("PinProps", command, packet, text);
    // A text that came instead is not printed here: only PumpAudio does that.
    if (result == kNotAPacket) std::puts("CVRXTalker::PinProps: SendBinaryMessage did not reply with packet");
    if (result < 0) return result;

    UnpackPin(vrx::LoadLe32(packet + kReplyData), in1, in2, in3);
    UnpackPin(vrx::LoadLe32(packet + kReplyData + 4), out1, out2, out3);
    return SignedWord(packet, kReplyStatus);
}

int CVRXTalker_impl::SendMessage(const char* text, std::string& reply) {
    if (!m_tcpio) {
        std::puts("CVRXTalker::SendMessage: m_tcpio is NULL");
        return kNoConnection;
    }
    void* data = nullptr;
    int length = 0;
    MutexRef mutex(m_mutex);
    const std::lock_guard lock(mutex);
    return m_tcpio->SendTcpMessage(m_server.c_str(), m_servport, text, reply, data, length, kNoTimeout);
}
