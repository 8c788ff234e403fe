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
constexpr size_t kLengthAt = 4;
constexpr size_t kStatusAt = 16;
constexpr uint32_t kWrongTag = 0x07FF0004;
constexpr auto kNegativeStatus = static_cast<uint32_t>(-5);

using Steps = std::vector<FaultStep>;

FaultStep SendStep(std::string_view bytes) {
    return {FaultStep::kSend, bytes};
}
FaultStep TimeStep(FaultStep::Kind kind, milliseconds time) {
    return {kind, {}, time};
}

std::string_view View(std::span<char> reply) {
    return {reply.data(), reply.size()};
}

/// The reply with one word replaced.
Steps WithWord(std::span<char> reply, size_t offset, uint32_t word) {
    std::memcpy(reply.data() + offset, &word, sizeof word);
    return {SendStep(View(reply))};
}

Steps Interrupted(std::string_view reply, size_t at, milliseconds time) {
    return {SendStep(reply.substr(0, at)), TimeStep(FaultStep::kWait, time), SendStep(reply.substr(at))};
}

std::string_view EndlessText() {
    static const std::string text(65536, 'x');
    return text;
}

} // namespace

/// A row: adding one adds a fault.
struct FaultScenario {
    enum class Value { kNone, kBytes, kTime };

    std::string_view name;
    Value value;
    uint32_t leastBytes;
    std::string_view meaning;
    Steps (*plan)(const Fault& fault, std::span<char> reply);
};

namespace {

using Value = FaultScenario::Value;

constexpr FaultScenario kScenarios[] = {
    {"pieces", Value::kBytes, 1, "the reply in pieces of N bytes, 1 ms apart",
     [](const Fault& fault, std::span<char> reply) {
         return Steps{{FaultStep::kSendInPieces, View(reply), {}, fault.bytes}};
     }},
    {"stall", Value::kTime, 0, "half the reply, a pause of T, the rest",
     [](const Fault& fault, std::span<char> reply) {
         return Interrupted(View(reply), reply.size() / 2, fault.time);
     }},
    {"stall-header", Value::kTime, 0, "6 bytes, a pause of T inside the header, the rest",
     [](const Fault& fault, std::span<char> reply) {
         return Interrupted(View(reply), kInsideLengthWord, fault.time);
     }},
    {"cut", Value::kBytes, 0, "the first N bytes, then the connection ends",
     [](const Fault& fault, std::span<char> reply) {
         return Steps{SendStep(View(reply).substr(0, fault.bytes)), TimeStep(FaultStep::kEnd, {})};
     }},
    {"reset", Value::kNone, 0, "the connection is reset",
     [](const Fault&, std::span<char>) { return Steps{TimeStep(FaultStep::kReset, {})}; }},
    {"no-answer", Value::kNone, 0, "nothing; the connection stays",
     [](const Fault&, std::span<char>) { return Steps{}; }},
    {"wrong-tag", Value::kNone, 0, "tag 0x07FF0004",
     [](const Fault&, std::span<char> reply) { return WithWord(reply, 0, kWrongTag); }},
    {"wrong-length", Value::kBytes, 0, "the length word says N bytes",
     [](const Fault& fault, std::span<char> reply) { return WithWord(reply, kLengthAt, fault.bytes); }},
    {"negative-status", Value::kNone, 0, "status -5",
     [](const Fault&, std::span<char> reply) { return WithWord(reply, kStatusAt, kNegativeStatus); }},
    {"text", Value::kNone, 0, "an error line instead of a packet",
     [](const Fault&, std::span<char>) { return Steps{SendStep("error: a fault on purpose\n")}; }},
    {"endless-text", Value::kNone, 0, "text without an end",
     [](const Fault&, std::span<char>) {
         return Steps{{FaultStep::kSendForever, EndlessText()}};
     }},
    {"late", Value::kTime, 0, "the reply after T",
     [](const Fault& fault, std::span<char> reply) {
         return Steps{TimeStep(FaultStep::kWait, fault.time), SendStep(View(reply))};
     }},
    {"duplicate", Value::kNone, 0, "the reply twice",
     [](const Fault&, std::span<char> reply) {
         return Steps{SendStep(View(reply)), SendStep(View(reply))};
     }},
    {"refuse", Value::kTime, 0, "the connection ends, new ones are refused for T",
     [](const Fault& fault, std::span<char>) {
         return Steps{TimeStep(FaultStep::kRefuse, fault.time), TimeStep(FaultStep::kEnd, {})};
     }},
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

bool ParseValue(std::string_view text, const FaultScenario& scenario, Fault& fault) {
    switch (scenario.value) {
    case Value::kNone:
        return text.empty();
    case Value::kBytes:
        return text.starts_with('=') && ParseCount(text.substr(1), fault.bytes) &&
               fault.bytes >= scenario.leastBytes;
    case Value::kTime:
        return text.starts_with('=') && ParseTime(text.substr(1), fault.time);
    }
    return false;
}

bool ParseFault(std::string_view text, Fault& fault) {
    const std::string_view name = text.substr(0, text.find('='));
    for (const FaultScenario& known : kScenarios) {
        if (known.name != name) continue;
        fault.scenario = &known;
        return ParseValue(text.substr(name.size()), known, fault);
    }
    return false;
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
    for (const FaultScenario& known : kScenarios) {
        std::string line(known.name);
        if (known.value == Value::kBytes) line += "=N";
        if (known.value == Value::kTime) line += "=T";
        line.resize(kColumn, ' ');
        text.append(line).append(known.meaning).append("\n");
    }
    return text + "N is a number of bytes, T a time such as 500ms or 2s.\n";
}

FaultPlan::FaultPlan(const Fault& fault, std::span<char> reply)
    : m_steps(fault.scenario->plan(fault, reply)) {
    std::ranges::reverse(m_steps);
}

std::optional<FaultStep> FaultPlan::Next() {
    if (m_steps.empty()) return std::nullopt;
    FaultStep step = m_steps.back();
    m_steps.pop_back();
    if (step.kind != FaultStep::kSendInPieces) return step;

    const std::string_view rest = step.bytes.substr(std::min(step.piece, step.bytes.size()));
    if (!rest.empty()) {
        m_steps.push_back({FaultStep::kSendInPieces, rest, {}, step.piece});
        m_steps.push_back(TimeStep(FaultStep::kWait, kBetweenPieces));
    }
    return SendStep(step.bytes.substr(0, step.piece));
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
