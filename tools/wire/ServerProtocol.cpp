#include "tools/wire/ServerProtocol.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace vrx::tool {

namespace {

static_assert(std::endian::native == std::endian::little, "words are copied as they stand in memory");

constexpr size_t kHeaderBytes = 16;
constexpr size_t kSmallestPacket = 24; // header, reply-size word, one word of text
constexpr size_t kFirstBuffer = 65536;
constexpr uint32_t kInfoWords = 5;

uint32_t WordAt(std::string_view bytes, size_t offset) {
    uint32_t word;
    std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

Frame Broken(std::string error) {
    return {Frame::kBroken, {}, std::move(error)};
}

/// Lines are text in any encoding: of the control characters only those that text has.
bool IsBinary(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 && c != '\t' && c != '\r' && c != '\n';
}

struct ObjectPath {
    std::string_view layout;
    std::string_view input;
    std::string_view output;
};

bool SplitPath(std::string_view text, ObjectPath& path) {
    const size_t first = text.find(',');
    if (first == text.npos) return false;
    const size_t second = text.find(',', first + 1);
    if (second == text.npos || text.find(',', second + 1) != text.npos) return false;
    path = {text.substr(0, first), text.substr(first + 1, second - first - 1), text.substr(second + 1)};
    return true;
}

/// Cuts `suffix` off both object names when both have it.
bool TakeSuffix(ObjectPath& path, std::string_view suffix) {
    if (!path.input.ends_with(suffix) || !path.output.ends_with(suffix)) return false;
    path.input.remove_suffix(suffix.size());
    path.output.remove_suffix(suffix.size());
    return true;
}

std::string CheckName(const char* what, std::string_view name, std::string_view wanted) {
    if (wanted.empty() || name == wanted) return {};
    return std::string("unknown ") + what + " '" + Printable(name) + "'";
}

std::string CheckPath(std::string_view text, const ObjectRules& rules, bool& info) {
    ObjectPath path;
    if (!SplitPath(text, path)) return "object path '" + Printable(text) + "' has not three fields";
    info = TakeSuffix(path, host::kInfoMember);
    if (!info && !TakeSuffix(path, host::kSamplesMember)) {
        return "object path '" + Printable(text) + "' ends neither in .samples[0] nor in .info1 twice";
    }
    std::string error = CheckName("layout", path.layout, info ? "-1" : std::string_view(rules.layout));
    if (error.empty()) error = CheckName("input", path.input, rules.input);
    if (error.empty()) error = CheckName("output", path.output, rules.output);
    return error;
}

} // namespace

FrameBuffer::FrameBuffer(size_t largestPacket) : m_largestPacket(largestPacket) {}

std::span<char> FrameBuffer::Space() {
    if (m_begin > 0) {
        std::copy(m_bytes.begin() + static_cast<ptrdiff_t>(m_begin),
                  m_bytes.begin() + static_cast<ptrdiff_t>(m_end), m_bytes.begin());
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_end == m_bytes.size()) {
        const size_t largest = std::max(m_largestPacket, kLargestLine + 1);
        m_bytes.resize(std::min(std::max(kFirstBuffer, 2 * m_bytes.size()), largest));
    }
    return std::span(m_bytes).subspan(m_end);
}

Frame FrameBuffer::Next() {
    const std::string_view waiting(m_bytes.data() + m_begin, m_end - m_begin);
    const size_t known = std::min(waiting.size(), host::kPacketTagBytes.size());
    if (waiting.substr(0, known) != host::kPacketTagBytes.substr(0, known)) return NextLine(waiting);
    if (waiting.size() < 2 * host::kPacketTagBytes.size()) return {};
    return NextPacket(waiting);
}

Frame FrameBuffer::NextLine(std::string_view waiting) {
    const size_t feed = waiting.find('\n', m_searched);
    const size_t end = std::min(feed, waiting.size());
    const std::string_view fresh = waiting.substr(m_searched, end - m_searched);
    if (std::any_of(fresh.begin(), fresh.end(), IsBinary)) {
        return Broken("neither a text line nor a packet");
    }
    if (end > kLargestLine) {
        return Broken("text line longer than " + std::to_string(kLargestLine) + " bytes");
    }
    if (feed == waiting.npos) {
        m_searched = waiting.size();
        return {};
    }
    return Take(Frame::kLine, feed, feed + 1);
}

Frame FrameBuffer::NextPacket(std::string_view waiting) {
    const size_t length = WordAt(waiting, 4);
    if (length < kSmallestPacket) {
        return Broken("packet length " + std::to_string(length) + " is less than " +
                      std::to_string(kSmallestPacket) + " bytes");
    }
    if (length > m_largestPacket) {
        return Broken("packet length " + std::to_string(length) + " exceeds the limit of " +
                      std::to_string(m_largestPacket) + " bytes");
    }
    if (length > waiting.size()) return {};
    return Take(Frame::kPacket, length, length);
}

Frame FrameBuffer::Take(Frame::Kind kind, size_t count, size_t total) {
    const std::string_view bytes(m_bytes.data() + m_begin, count);
    m_begin += total;
    m_searched = 0;
    return {kind, bytes, {}};
}

std::string RequestReader::Read(std::string_view packet, Request& request) {
    const size_t argumentWords = WordAt(packet, 8);
    const uint32_t command = WordAt(packet, 12);
    const uint32_t replyWords = WordAt(packet, 16);

    if (packet.size() % 4 != 0) {
        return "packet length " + std::to_string(packet.size()) + " is not in whole words";
    }
    if (command != host::kObjectCommand) return "unknown packet command " + std::to_string(command);
    const size_t textAt = kHeaderBytes + 4 * argumentWords;
    if (argumentWords == 0 || textAt >= packet.size()) {
        return "argument word count " + std::to_string(argumentWords) + " does not fit a packet of " +
               std::to_string(packet.size()) + " bytes";
    }
    bool info = false;
    if (std::string error = ReadPath(packet.substr(textAt), info); !error.empty()) return error;
    if (replyWords < host::kReplyFigures) {
        return "reply word count " + std::to_string(replyWords) + " is less than " +
               std::to_string(host::kReplyFigures);
    }
    const size_t block = std::max<size_t>(argumentWords - 1, replyWords - host::kReplyFigures);
    if (block > m_rules.largestBlock) {
        return "block of " + std::to_string(block) + " words exceeds the limit of " +
               std::to_string(m_rules.largestBlock);
    }
    if (info && (argumentWords != kInfoWords || replyWords != kInfoWords)) {
        return "a request for .info1 has 5 argument words and 5 reply words";
    }
    request.info = info;
    request.dataBytes = packet.substr(kHeaderBytes + 4, 4 * (argumentWords - 1));
    request.replyDataWords = replyWords - static_cast<uint32_t>(host::kReplyFigures);
    return {};
}

std::string RequestReader::ReadPath(std::string_view padded, bool& info) {
    if (padded == m_rightPath) {
        info = m_rightInfo;
        return {};
    }
    const std::string_view text = padded.substr(0, padded.find('\0'));
    if (padded.size() != (text.size() | 3) + 1 ||
        padded.find_first_not_of('\0', text.size()) != padded.npos) {
        return "object path is not ended by one to four zero bytes";
    }
    std::string error = CheckPath(text, m_rules, info);
    if (error.empty()) {
        m_rightPath = padded;
        m_rightInfo = info;
    }
    return error;
}

uint32_t PackPinInfo(const PinInfo& pin) {
    return (pin.blockFrames & 0x1FFFF) << 10 | (pin.channels & 0x3FF) | uint32_t{pin.floats} << 27;
}

uint32_t CycleWord(double nanoseconds) {
    constexpr double kLargest = 0x7FFFFF;
    return static_cast<uint32_t>(std::clamp(nanoseconds, 0.0, kLargest)) << 8;
}

void StartReply(std::vector<uint32_t>& reply, size_t dataWords) {
    reply.resize(host::kReplyDataAt + dataWords);
    reply[0] = host::kPacketTag;
    reply[1] = static_cast<uint32_t>(reply.size() * 4);
    reply[2] = static_cast<uint32_t>(host::kReplyFigures + dataWords);
    reply[3] = host::kObjectCommand;
    std::fill_n(reply.begin() + host::kReplyHeaderWords, host::kReplyFigures, 0);
}

std::string Printable(std::string_view text) {
    constexpr size_t kLongest = 64;
    std::string result(text.substr(0, kLongest));
    std::replace_if(
        result.begin(), result.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '.');
    return result;
}

} // namespace vrx::tool
