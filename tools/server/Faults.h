#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vrx::tool {

struct FaultScenario;

/// One way to misbehave, as `--faults` names it.
struct Fault {
    const FaultScenario* scenario = nullptr;
    uint32_t bytes = 0;
    std::chrono::milliseconds time{0};
};

/// Reads a list such as "pieces=10,stall=500ms,reset". Times are whole numbers with "ms" or "s", at most an
/// hour; bytes are whole numbers. Returns "" and sets `faults`, or says what is wrong.
std::string ParseFaults(std::string_view text, std::vector<Fault>& faults);

/// What ParseFaults understands, one scenario a line.
std::string DescribeFaults();

/// One step of what is done instead of sending a reply.
struct FaultStep {
    enum Kind {
        kSend,         ///< `bytes`
        kSendInPieces, ///< `bytes`, `piece` of them at a time, 1 ms apart; a plan hands them out one by one
        kSendForever,  ///< `bytes` over and over
        kWait,         ///< for `time`
        kEnd,          ///< close the connection in order
        kReset,        ///< reset the connection
        kRefuse,       ///< accept no connection for `time`
    };
    Kind kind = kSend;
    std::string_view bytes = {}; ///< of the reply, or of a constant
    std::chrono::milliseconds time{0};
    size_t piece = 0;
};

/// How one reply is spoilt: a few steps, however long the reply.
class FaultPlan {
public:
    /// Nothing to do.
    FaultPlan() = default;

    /// reply   a whole reply packet; may be changed, and has to stay until the last step is done
    FaultPlan(const Fault& fault, std::span<char> reply);

    /// The next step; none at the end.
    std::optional<FaultStep> Next();

private:
    std::vector<FaultStep> m_steps; // the next one last
};

/// Decides for each reply of one connection whether it is spoilt and how. The same seed and connection
/// number give the same decisions.
class FaultDice {
public:
    FaultDice(uint64_t seed, uint64_t connection);

    /// One of `faults` with the given chance, any of them alike; else null. Null when there are none.
    const Fault* Roll(const std::vector<Fault>& faults, double chance);

private:
    std::mt19937_64 m_random;
};

} // namespace vrx::tool
