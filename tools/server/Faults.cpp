#include "tools/server/Faults.h"

#include "tools/wire/ServerProtocol.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <initializer_list>

namespace vrx::tool {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLongest{3600000};
constexpr milliseconds kBetweenPieces{1};
constexpr size_t kInsideLengthWord = 6;
constexpr size_t kEndlessPiece = 65536;
constexpr size_t kLengthAt = 4;
constexpr size_t kStatusAt = 16;
constexpr uint32_t kWrongTag = 0x07FF0004;
constexpr auto kNegativeStatus = static_cast<uint32_t>(-5);

enum class Value { kNone, kBytes, kTime };

struct FaultName {
    std::string_view name;
    Fault::Kind kind;
    Value value;
    std::string_view meaning;
};
constexpr FaultName kFaultNames[] = {
    {"pieces", Fault::kPieces, Value::kBytes, "the reply in pieces of N bytes, 1 ms apart"},
    {"stall", Fault::kStall, Value::kTime, "half the reply, a pause of T, the rest"},
    {"stall-header", Fault::kStallHeader, Value::kTime, "6 bytes, a pause of T inside the header, the rest"},
    {"cut", Fault::kCut, Value::kBytes, "the first N bytes, then the connection ends"},
    {"reset", Fault::kReset, Value::kNone, "the connection is reset"},
    {"no-answer", Fault::kNoAnswer, Value::kNone, "nothing; the connection stays"},
    {"wrong-tag", Fault::kWrongTag, Value::kNone, "tag 0x07FF0004"},
    {"wrong-length", Fault::kWrongLength, Value::kBytes, "the length word says N bytes"},
    {"negative-status", Fault::kNegativeStatus, Value::kNone, "status -5"},
    {"text", Fault::kText, Value::kNone, "an error line instead of a packet"},
    {"endless-text", Fault::kEndlessText, Value::kNone, "text without an end"},
    {"late", Fault::kLate, Value::kTime, "the reply after T"},
    {"duplicate", Fault::kDuplicate, Value::kNone, "the reply twice"},
    {"refuse", Fault::kRefuse, Value::kTime, "the connection ends, new ones are refused for T"},
};

bool ParseCount(std::string_view text, uint32_t& count) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    return error == std::errc() && end == text.data() + text.size();
}

bool ParseTime(std::string_view text, milliseconds& time) {
    const size_t unitAt = text.find_first_not_of("0123456789");
    if (unitAt == text.npos) return false;
    const std::string_view unit = text.substr(unitAt);
    uint32_t count = 0;
    if (!ParseCount(text.substr(0, unitAt), count) || (unit != "ms" && unit != "s")) return false;
    time = milliseconds(unit == "s" ? int64_t{count} * 1000 : int64_t{count});
    return time <= kLongest;
}

bool ParseValue(std::string_view text, Value value, Fault& fault) {
    switch (value) {
    case Value::kNone:
        return text.empty();
    case Value::kBytes:
        return text.starts_with('=') && ParseCount(text.substr(1), fault.bytes);
    case Value::kTime:
        return text.starts_with('=') && ParseTime(text.substr(1), fault.time);
    }
    return false;
}

bool ParseFault(std::string_view text, Fault& fault) {
    const std::string_view name = text.substr(0, text.find('='));
    for (const FaultName& known : kFaultNames) {
        if (known.name != name) continue;
        fault.kind = known.kind;
        const bool empty = fault.kind == Fault::kPieces && text == "pieces=0";
        return ParseValue(text.substr(name.size()), known.value, fault) && !empty;
    }
    return false;
}

FaultStep SendStep(std::string_view bytes) {
    return {FaultStep::kSend, std::string(bytes), {}};
}
FaultStep TimeStep(FaultStep::Kind kind, milliseconds time) {
    return {kind, {}, time};
}

/// The reply with one word replaced.
std::string WithWord(std::string_view reply, size_t offset, uint32_t word) {
    std::string changed(reply);
    std::memcpy(changed.data() + offset, &word, sizeof word);
    return changed;
}

std::vector<FaultStep> InPieces(std::string_view reply, size_t piece) {
    std::vector<FaultStep> steps;
    for (size_t at = 0; at < reply.size(); at += piece) {
        if (at > 0) steps.push_back(TimeStep(FaultStep::kWait, kBetweenPieces));
        steps.push_back(SendStep(reply.substr(at, piece)));
    }
    return steps;
}

std::vector<FaultStep> Interrupted(std::string_view reply, size_t at, milliseconds time) {
    return {SendStep(reply.substr(0, at)), TimeStep(FaultStep::kWait, time), SendStep(reply.substr(at))};
}

std::mt19937_64 Seeded(uint64_t seed, uint64_t connection) {
    std::seed_seq both{static_cast<uint32_t>(seed), static_cast<uint32_t>(seed >> 32),
                       static_cast<uint32_t>(connection), static_cast<uint32_t>(connection >> 32)};
    return std::mt19937_64(both);
}

} // namespace

std::string ParseFaults(std::string_view text, std::vector<Fault>& faults) {
    std::vector<Fault> parsed;
    for (size_t at = 0; at <= text.size();) {
        const size_t comma = std::min(text.find(',', at), text.size());
        const std::string_view one = text.substr(at, comma - at);
        Fault fault;
        if (!ParseFault(one, fault)) {
            return std::string("'").append(one).append("' is not a fault; --faults help lists them");
        }
        parsed.push_back(fault);
        at = comma + 1;
    }
    faults = std::move(parsed);
    return {};
}

std::string DescribeFaults() {
    constexpr size_t kColumn = 20;
    std::string text;
    for (const FaultName& known : kFaultNames) {
        std::string line(known.name);
        if (known.value == Value::kBytes) line += "=N";
        if (known.value == Value::kTime) line += "=T";
        line.resize(kColumn, ' ');
        text.append(line).append(known.meaning).append("\n");
    }
    return text + "N is a number of bytes, T a time such as 500ms or 2s.\n";
}

std::vector<FaultStep> PlanFault(const Fault& fault, std::string_view reply) {
    switch (fault.kind) {
    case Fault::kPieces:
        return InPieces(reply, fault.bytes);
    case Fault::kStall:
        return Interrupted(reply, reply.size() / 2, fault.time);
    case Fault::kStallHeader:
        return Interrupted(reply, kInsideLengthWord, fault.time);
    case Fault::kCut:
        return {SendStep(reply.substr(0, fault.bytes)), TimeStep(FaultStep::kEnd, {})};
    case Fault::kReset:
        return {TimeStep(FaultStep::kReset, {})};
    case Fault::kNoAnswer:
        return {};
    case Fault::kWrongTag:
        return {SendStep(WithWord(reply, 0, kWrongTag))};
    case Fault::kWrongLength:
        return {SendStep(WithWord(reply, kLengthAt, fault.bytes))};
    case Fault::kNegativeStatus:
        return {SendStep(WithWord(reply, kStatusAt, kNegativeStatus))};
    case Fault::kText:
        return {SendStep("error: a fault on purpose\n")};
    case Fault::kEndlessText:
        return {{FaultStep::kSendForever, std::string(kEndlessPiece, 'x'), {}}};
    case Fault::kLate:
        return {TimeStep(FaultStep::kWait, fault.time), SendStep(reply)};
    case Fault::kDuplicate:
        return {SendStep(std::string(reply) + std::string(reply))};
    case Fault::kRefuse:
        return {TimeStep(FaultStep::kRefuse, fault.time), TimeStep(FaultStep::kEnd, {})};
    }
    return {};
}

FaultDice::FaultDice(uint64_t seed, uint64_t connection) : m_random(Seeded(seed, connection)) {}

const Fault* FaultDice::Roll(const std::vector<Fault>& faults, double chance) {
    if (faults.empty()) return nullptr;
    // Spelt out, since the library's distributions differ between versions and a seed has to keep its
    // meaning.
    const double part = static_cast<double>(m_random() >> 11) * 0x1p-53;
    const uint64_t which = m_random() % faults.size();
    return part < chance ? &faults[which] : nullptr;
}

} // namespace vrx::tool
