#pragma once

#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace vrx::tool {

/// One way to misbehave, as `--faults` names it.
struct Fault {
    enum Kind {
        kPieces,         ///< the reply in pieces of so many bytes, 1 ms apart
        kStall,          ///< half the reply, a pause, the rest
        kStallHeader,    ///< 6 bytes, the middle of the length word, a pause, the rest
        kCut,            ///< so many bytes of the reply, then the end of the stream
        kReset,          ///< no reply, the connection is reset
        kNoAnswer,       ///< no reply, the connection stays
        kWrongTag,       ///< tag 0x07FF0004
        kWrongLength,    ///< the length word says so many bytes
        kNegativeStatus, ///< status -5
        kText,           ///< an error line instead of a packet
        kEndlessText,    ///< text without an end
        kLate,           ///< the reply after a pause
        kDuplicate,      ///< the reply twice
        kRefuse,         ///< no reply, the connection ends, and new ones are refused for a while
    };
    Kind kind = kPieces;
    uint32_t bytes = 0;
    std::chrono::milliseconds time{0};
};

/// Reads a list such as "pieces=10,stall=500ms,reset". Times are whole numbers with "ms" or "s", at most an
/// hour; bytes are whole numbers. Returns "" and sets `faults`, or says what is wrong.
std::string ParseFaults(std::string_view text, std::vector<Fault>& faults);

/// What ParseFaults understands, one scenario a line.
std::string DescribeFaults();

/// What to do instead of sending a reply: a few steps in order.
struct FaultStep {
    enum Kind {
        kSend,        ///< `bytes`
        kSendForever, ///< `bytes` over and over
        kWait,        ///< for `time`
        kEnd,         ///< close the connection in order
        kReset,       ///< reset the connection
        kRefuse,      ///< accept no connection for `time`
    };
    Kind kind = kSend;
    std::string bytes;
    std::chrono::milliseconds time{0};
};

/// The steps that spoil `reply`, a whole reply packet.
std::vector<FaultStep> PlanFault(const Fault& fault, std::string_view reply);

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
