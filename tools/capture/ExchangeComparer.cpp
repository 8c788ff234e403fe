#include "tools/capture/ExchangeComparer.h"

#include "host/Packet.h"
#include "tools/capture/FrameTracker.h"
#include "tools/program/Numbers.h"
#include "tools/wire/ServerProtocol.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>

namespace vrx::tool {

namespace {

constexpr std::size_t kHeaderBytes = 16;
constexpr std::size_t kCyclesAt = 20;
constexpr std::size_t kCyclesEnd = 28;

std::uint32_t WordAt(std::string_view bytes, std::size_t at) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

struct Field {
    const char* name;
    std::size_t at;
    bool isSigned = false;
};

Shown ShownNumber(std::int64_t value) {
    return {std::to_string(value), true};
}

Shown ShownWord(std::uint32_t word, bool isSigned) {
    return ShownNumber(isSigned ? std::int64_t{static_cast<std::int32_t>(word)} : std::int64_t{word});
}

Shown ShownText(std::string_view text) {
    return {"'" + Printable(text) + "'"};
}

/// Two texts that differ, from a little before their first difference where that is far behind the beginning.
Difference DifferentTexts(const char* what, std::string_view a, std::string_view b) {
    constexpr std::size_t kFar = 48;
    constexpr std::size_t kBefore = 16;
    const auto same = static_cast<std::size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
    if (same < kFar) return {what, ShownText(a), ShownText(b)};
    const std::size_t from = same - kBefore;
    return {std::string(what) + " from byte " + std::to_string(from + 1), ShownText(a.substr(from)),
            ShownText(b.substr(from))};
}

Shown ShownSize(std::size_t bytes) {
    return {Counted(bytes, "byte")};
}

std::optional<Difference> CompareFields(std::string_view a, std::string_view b,
                                        std::initializer_list<Field> fields) {
    for (const Field& field : fields) {
        if (std::min(a.size(), b.size()) < field.at + 4) return {};
        const std::uint32_t inA = WordAt(a, field.at);
        const std::uint32_t inB = WordAt(b, field.at);
        if (inA != inB)
            return Difference{field.name, ShownWord(inA, field.isSigned), ShownWord(inB, field.isSigned)};
    }
    return {};
}

std::optional<Difference> CompareBytes(const std::string& whose, std::string_view a, std::string_view b) {
    const std::size_t common = std::min(a.size(), b.size());
    const auto at =
        static_cast<std::size_t>(std::mismatch(a.begin(), a.begin() + common, b.begin()).first - a.begin());
    if (at < common)
        return Difference{whose + " byte " + std::to_string(at + 1),
                          ShownNumber(static_cast<unsigned char>(a[at])),
                          ShownNumber(static_cast<unsigned char>(b[at]))};
    if (a.size() != b.size()) return Difference{whose + " size", ShownSize(a.size()), ShownSize(b.size())};
    return {};
}

/// Where the samples of a request packet end and its objects begin; 0 when its counts do not fit its size.
std::size_t ObjectsAt(std::string_view packet) {
    if (packet.size() < host::kRequestHeaderBytes) return 0;
    const std::size_t at = kHeaderBytes + std::size_t{4} * WordAt(packet, 8);
    return at >= host::kRequestHeaderBytes && at < packet.size() ? at : 0;
}

std::string_view Objects(std::string_view packet) {
    const std::string_view padded = packet.substr(ObjectsAt(packet));
    return padded.substr(0, padded.find('\0'));
}

bool AsksForPins(std::string_view packet) {
    return ObjectsAt(packet) != 0 && Objects(packet).ends_with(host::kInfoMember);
}

/// Puts a star for each figure that follows the name: "uptime=12.5", "uptime: 12", "\"uptime\":12".
void MaskFigures(std::string& text, std::string_view name) {
    for (std::size_t at = text.find(name); at != text.npos; at = text.find(name, at)) {
        at += name.size();
        if (text.compare(at, 1, "\"") == 0) ++at;
        if (text.compare(at, 1, "=") != 0 && text.compare(at, 1, ":") != 0) continue;
        ++at;
        if (text.compare(at, 1, " ") == 0) ++at;
        const std::size_t end = std::min(text.find_first_not_of("0123456789.", at), text.size());
        if (end > at) text.replace(at, end - at, "*");
    }
}

/// The line without its end and without what only says when it was.
std::string Timeless(std::string_view line) {
    while (line.ends_with('\n') || line.ends_with('\r')) line.remove_suffix(1);
    std::string text(line);
    for (const std::string_view name : {"uptime", "busy"}) MaskFigures(text, name);
    return text;
}

bool IsText(std::string_view reply) {
    return !reply.empty() && static_cast<unsigned char>(reply.front()) >= 0x20;
}

Shown ReplyInWords(std::string_view reply) {
    if (reply.empty()) return {"nothing"};
    if (IsText(reply)) return {"the text " + ShownText(reply.substr(0, reply.find('\n'))).text};
    return {"a packet of " + Counted(reply.size(), "byte")};
}

std::string_view EndInWords(ServerEnd end) {
    switch (end) {
    case ServerEnd::kCloses:
        return "the server closes it";
    case ServerEnd::kResets:
        return "the server resets it";
    case ServerEnd::kStays:
        break;
    }
    return "it stays open";
}

/// The first message of a reply. What is neither text nor packet has no end but the reply's.
std::string_view FirstFrame(std::string_view reply) {
    FrameTracker frame;
    const std::size_t count = frame.Take(reply);
    return IsText(reply) || frame.IsPacket() ? reply.substr(0, count) : reply;
}

} // namespace

ExchangeComparer::ExchangeComparer(std::optional<double> toleranceDb) {
    if (toleranceDb) m_tolerance = std::pow(10.0, *toleranceDb / 20);
}

std::optional<Difference> ExchangeComparer::Compare(const Exchange& a, const Exchange& b) {
    std::optional<Difference> difference = CompareRequests(a, b);
    std::optional<Difference> inReply = CompareReplies(a, b);
    return difference ? difference : inReply;
}

std::optional<Difference> ExchangeComparer::CompareRequests(const Exchange& a, const Exchange& b) {
    if (a.kind != b.kind) return Difference{"request", {RequestInWords(a)}, {RequestInWords(b)}};
    if (a.kind == Exchange::kPacket) return CompareRequestPackets(a.request, b.request);
    if (a.kind == Exchange::kBytes) return CompareBytes("request", a.request, b.request);
    if (RequestKey(a) == RequestKey(b)) return {};
    return DifferentTexts("request text", Timeless(a.request), Timeless(b.request));
}

std::optional<Difference> ExchangeComparer::CompareRequestPackets(std::string_view a, std::string_view b) {
    if (auto difference = CompareFields(
            a, b, {{"request command", 12}, {"request argument words", 8}, {"request reply words", 16}}))
        return difference;
    const std::size_t objectsA = ObjectsAt(a);
    const std::size_t objectsB = ObjectsAt(b);
    if (objectsA == 0 || objectsB == 0) return CompareBytes("request", a, b);
    if (Objects(a) != Objects(b)) return DifferentTexts("request objects", Objects(a), Objects(b));
    constexpr std::size_t kSamplesAt = host::kRequestHeaderBytes;
    return CompareSamples("request", a.substr(kSamplesAt, objectsA - kSamplesAt),
                          b.substr(kSamplesAt, objectsB - kSamplesAt), false);
}

std::optional<Difference> ExchangeComparer::CompareReplies(const Exchange& a, const Exchange& b) {
    m_last = {};
    m_pins = a.kind == Exchange::kPacket && AsksForPins(a.request);
    Learn(a);
    const std::string replyA = ReplyBytes(a);
    const std::string replyB = ReplyBytes(b);
    std::string_view restA = replyA;
    std::string_view restB = replyB;
    if (a.cut || b.cut) { // nobody waited for the rest
        const std::size_t common = std::min(restA.size(), restB.size());
        restA = restA.substr(0, common);
        restB = restB.substr(0, common);
    }
    const auto total = [this] {
        m_signals.samples += m_last.samples;
        m_signals.differing += m_last.differing;
        m_signals.largest = std::max(m_signals.largest, m_last.largest);
    };
    while (!restA.empty() || !restB.empty()) {
        const std::string_view frameA = FirstFrame(restA);
        const std::string_view frameB = FirstFrame(restB);
        if (auto difference = CompareReplyFrames(frameA, frameB)) {
            total();
            return difference;
        }
        restA.remove_prefix(frameA.size());
        restB.remove_prefix(frameB.size());
    }
    total();
    if (a.end == b.end || a.cut || b.cut) return {};
    return Difference{
        "end of the connection", {std::string(EndInWords(a.end))}, {std::string(EndInWords(b.end))}};
}

std::optional<Difference> ExchangeComparer::CompareReplyFrames(std::string_view a, std::string_view b) {
    if (a.empty() || b.empty() || IsText(a) != IsText(b))
        return Difference{"reply", ReplyInWords(a), ReplyInWords(b)};
    if (IsText(a)) {
        if (Timeless(a) == Timeless(b)) return {};
        return DifferentTexts("reply text", Timeless(a), Timeless(b));
    }
    if (auto difference = CompareFields(a, b,
                                        {{"reply tag", 0},
                                         {"reply length", 4},
                                         {"reply words", 8},
                                         {"reply command", 12},
                                         {"reply status", 16, true}}))
        return difference;
    const std::string_view samplesA = a.substr(std::min(a.size(), kCyclesEnd));
    const std::string_view samplesB = b.substr(std::min(b.size(), kCyclesEnd));
    if (auto difference = m_pins ? CompareFields(a, b, {{"reply input pin", 28}, {"reply output pin", 32}})
                                 : CompareSamples("reply", samplesA, samplesB, true))
        return difference;
    if (std::min(a.size(), b.size()) < kCyclesAt)
        if (auto difference = CompareBytes("reply", a, b)) return difference;
    if (a.size() != b.size()) return Difference{"reply size", ShownSize(a.size()), ShownSize(b.size())};
    return {};
}

std::optional<Difference> ExchangeComparer::CompareSamples(const char* whose, std::string_view a,
                                                           std::string_view b, bool measure) {
    const std::size_t words = std::min(a.size(), b.size()) / 4;
    if (measure) m_last.samples += words;
    if (std::memcmp(a.data(), b.data(), 4 * words) == 0) return {};
    std::optional<Difference> first;
    for (std::size_t i = 0; i < words; ++i) {
        const std::uint32_t inA = WordAt(a, 4 * i);
        const std::uint32_t inB = WordAt(b, 4 * i);
        if (inA == inB) continue;
        const double distance =
            std::abs(host::SampleFromWord(inA, m_format) - host::SampleFromWord(inB, m_format));
        if (measure && distance > m_last.largest) m_last.largest = distance;
        if (m_tolerance && distance <= *m_tolerance) continue; // never for what is no number
        if (measure) ++m_last.differing;
        if (!first) {
            std::string place = std::string(whose) + " frame " + std::to_string(i / m_channels + 1);
            if (m_channels > 1) place += ", channel " + std::to_string(i % m_channels + 1);
            first = Difference{place, ShownSample(inA), ShownSample(inB)};
        }
        if (!measure) break;
    }
    return first;
}

/// What the pins say about the samples.
void ExchangeComparer::Learn(const Exchange& exchange) {
    constexpr std::uint32_t kFloats = 1U << 27;
    if (exchange.kind != Exchange::kPacket || !AsksForPins(exchange.request) || !exchange.whole) return;
    const std::string reply = ReplyBytes(exchange);
    if (!reply.starts_with(host::kPacketTagBytes) || reply.size() < kCyclesEnd + 8) return;
    const std::uint32_t input = WordAt(reply, kCyclesEnd);
    if (input == 0) return; // a server that does not say
    m_channels = std::max(input & 0x3FFU, 1U);
    m_format = (input & kFloats) != 0 ? host::SampleFormat::kF32 : host::SampleFormat::kS32;
}

Shown ExchangeComparer::ShownSample(std::uint32_t word) const {
    if (m_format == host::SampleFormat::kS32) return ShownWord(word, true);
    const auto value = std::bit_cast<float>(word);
    char text[64];
    const auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return {std::string(text, error == std::errc() ? end : text), std::isfinite(value)};
}

std::uint64_t RequestKey(const Exchange& exchange) {
    const std::hash<std::string_view> hash;
    const std::uint64_t kind = static_cast<std::uint64_t>(exchange.kind) << 56;
    if (exchange.kind != Exchange::kLine) return hash(exchange.request) ^ kind;
    if (exchange.request.starts_with(kConnectCommand)) return hash(kConnectCommand) ^ kind;
    return hash(Timeless(exchange.request)) ^ kind;
}

std::string RequestInWords(const Exchange& exchange) {
    switch (exchange.kind) {
    case Exchange::kNothing:
        return "nothing";
    case Exchange::kLine:
        return "the text " + ShownText(Timeless(exchange.request)).text;
    case Exchange::kBytes:
        return Counted(exchange.request.size(), "byte") + " that are no message";
    case Exchange::kPacket:
        break;
    }
    const std::size_t objects = ObjectsAt(exchange.request);
    if (objects == 0) return "a packet of " + Counted(exchange.request.size(), "byte");
    if (AsksForPins(exchange.request)) return "the question for the pins";
    return "a block of " + Counted((objects - host::kRequestHeaderBytes) / 4, "word");
}

} // namespace vrx::tool
