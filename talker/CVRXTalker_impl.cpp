#include "talker/CVRXTalker_impl.h"

#include "base/StringFormat.h"
#include "base/StringMap.h"
#include "base/internal/LittleEndian.h"
#include "tcpio/CTcpIOTalk.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

namespace {

constexpr int kNotAPacket = -1000;
constexpr int kReplyTimeout = 1000; // ten seconds
constexpr int kNoTimeout = -1;
constexpr uint64_t kLongestPacket = 0x7FFFFFFF;

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

/// What is asked of the server: words for the input object, words back from the output object.
/// The object path text is "<layout>,<input><member>,<output><member>".
struct CVRXTalker_impl::Command {
    std::string_view layout;
    std::string_view input;
    std::string_view output;
    std::string_view member;
    const void* words;
    uint32_t wordCount;
    uint32_t replyWords;

    size_t TextLength() const { return layout.size() + input.size() + output.size() + 2 * member.size() + 2; }

    /// The text's bytes with its terminating zero, padded with zeroes to whole words.
    size_t TextBytes() const { return (TextLength() | 3) + 1; }

    uint64_t TotalBytes() const {
        return kCommandHeaderBytes + uint64_t{4} * (uint64_t{wordCount} + 1) + TextBytes();
    }

    /// | offset | content |
    /// |---|---|
    /// | 0, 4 | packet marker, total length in bytes |
    /// | 8 | words from offset 16 up to the text |
    /// | 12 | command code |
    /// | 16 | words that the reply is to carry from its offset 16 on |
    /// | 20 | the words for the input object, then the text |
    void Write(unsigned char* packet) const {
        vrx::LeWriter to(packet);
        to.U32(CTcpIOTalk::kPacketMarker);
        to.U32(static_cast<uint32_t>(TotalBytes()));
        to.U32(wordCount + 1);
        to.U32(kObjectCommand);
        to.U32(replyWords);
        to.Raw(words, size_t{4} * wordCount);
        for (const std::string_view piece :
             {layout, std::string_view(","), input, member, std::string_view(","), output, member})
            to.Raw(piece.data(), piece.size());
        to.Zeros(TextBytes() - TextLength());
    }
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
    if (!args || !*args) return false;
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

/// Sends a command and waits for the reply packet. On success `packet` points at it, into the channel's
/// buffer. Otherwise the failure has been printed; except that a text in place of the packet goes to
/// `textReply`, if the caller wants it, to be reported there.
int CVRXTalker_impl::Exchange(const char* operation, const Command& command, const unsigned char*& packet,
                              std::string* textReply) {
    if (!m_tcpio) {
        std::printf("CVRXTalker::%s: m_tcpio is NULL\n", operation);
        return CTcpIOTalk::kNoConnection;
    }
    std::string reply;
    void* data = nullptr;
    int length = 0;
    int result = CTcpIOTalk::kSendFailed;
    const uint64_t size = command.TotalBytes();
    if (size <= kLongestPacket) {
        const auto bytes = std::make_unique_for_overwrite<unsigned char[]>(size);
        command.Write(bytes.get());
        MutexRef mutex(m_mutex);
        const std::lock_guard lock(mutex);
        result = m_tcpio->SendBinaryMessage(m_server.c_str(), m_servport, bytes.get(), static_cast<int>(size),
                                            reply, data, length, kReplyTimeout, true);
    }
    if (result < 0) {
        std::printf("CVRXTalker::%s: SendBinaryMessage failed with %d\n", operation, result);
        return result;
    }
    packet = static_cast<const unsigned char*>(data);
    // The reply's length is not compared with what was asked for: servers may send less than they announce.
    if (vrx::LoadLe32(packet) == CTcpIOTalk::kPacketMarker) return result;
    if (textReply && !reply.empty())
        *textReply = std::move(reply);
    else
        std::printf("CVRXTalker::%s: SendBinaryMessage did not reply with packet\n", operation);
    return kNotAPacket;
}

int CVRXTalker_impl::PumpAudio(const void* in, void* out, unsigned inCount, unsigned outCount) {
    const Command command{
        m_layout, m_input, m_output, ".samples[0]", in, inCount, outCount + kReplyHeadWords};
    const unsigned char* packet = nullptr;
    std::string text;
    const int result = Exchange("PumpAudio", command, packet, &text);
    if (!text.empty())
        std::printf("CVRXTalker::PumpAudio: SendBinaryMessage replied with %s\n", text.c_str());
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
    const Command command{"-1", m_input, m_output, ".info1", kNoWords, 4, 2 + kReplyHeadWords};
    const unsigned char* packet = nullptr;
    const int result = Exchange("PinProps", command, packet, nullptr);
    if (result < 0) return result;

    UnpackPin(vrx::LoadLe32(packet + kReplyData), in1, in2, in3);
    UnpackPin(vrx::LoadLe32(packet + kReplyData + 4), out1, out2, out3);
    return SignedWord(packet, kReplyStatus);
}

int CVRXTalker_impl::SendMessage(const char* text, std::string& reply) {
    if (!m_tcpio) {
        std::puts("CVRXTalker::SendMessage: m_tcpio is NULL");
        return CTcpIOTalk::kNoConnection;
    }
    void* data = nullptr;
    int length = 0;
    MutexRef mutex(m_mutex);
    const std::lock_guard lock(mutex);
    return m_tcpio->SendTcpMessage(m_server.c_str(), m_servport, text, reply, data, length, kNoTimeout);
}
