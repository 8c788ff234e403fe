#pragma once

#include "host/BlockPump.h"
#include "host/Pacing.h"
#include "host/Session.h"
#include "live/Bridge.h"
#include "live/Slots.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace vrx::live {

/// What other threads may ask about a worker, and tell it.
struct WorkerState {
    std::atomic<bool> stopped{false};
    std::atomic<std::uint64_t> failed{0}; ///< exchanges whose block had become late before
    std::atomic<std::uint64_t> reconnects{0};
    std::atomic<unsigned> attempts{0}; ///< to recover since the last exchange that worked
};

/// The other side of a bridge: takes block after block to the server and meets everything that goes wrong there. For one
/// thread.
class Worker {
public:
    /// samples   in a block. The references must live longer; `parts` has a clock.
    Worker(BridgeParts& parts, std::size_t samples, Slots& slots, WorkerState& state);

    /// Connects, then works until it is stopped.
    void Run();

    /// The first connection; an outage begins here when the server is not there.
    void Connect();
    /// Waits at most so long for a block, and sends it.
    void Step(std::chrono::microseconds patience);

private:
    void Exchange();
    void AskWords();
    void Replied(const host::BlockRecord& record);
    void GiveUp();
    void ExchangeFailed(int result);
    void Recover(int result, const std::string& why);
    void Pause(double seconds);
    bool Stopped() const { return m_state.stopped; }

    BridgeParts& m_parts;
    Slots& m_slots;
    WorkerState& m_state;
    std::optional<host::SampleFormat> m_words;
    unsigned m_questions = 0;            // about the words, that failed
    std::optional<Slots::Block> m_block; // the one that is on its way
    bool m_exchangeFailed = false;       // its exchange, at least once
    std::vector<std::uint32_t> m_in;     // its words
    std::vector<std::uint32_t> m_out;
    host::BlockPump m_pump;
};

} // namespace vrx::live
