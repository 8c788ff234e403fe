#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <readerwriterqueue/readerwritercircularbuffer.h>
#include <semaphore>
#include <vector>

namespace vrx::live {

/// How far a slot's block has come. The real-time side and the worker move it by compare-and-swap; whoever a
/// state belongs to may touch the slot's samples.
enum class SlotState : std::uint32_t {
    kFree,    ///< real-time side: may be filled
    kQueued,  ///< worker: may be taken; real-time side: may be given up
    kTaken,   ///< worker: at the server; real-time side: may be given up
    kReplied, ///< real-time side: holds the reply, is played at its turn and then free
    kFailed,  ///< real-time side: there is no reply, free at its turn
    kLate,    ///< worker: its turn has passed, free as soon as the worker comes to it
};

/// The blocks on their way between the real-time side and the worker: a ring of preallocated slots, used and
/// freed in order. A slot is known by its ticket, the number of slots that were filled before it.
class Slots {
public:
    using Ticket = std::uint64_t;

    /// samples   in each slot
    Slots(std::size_t count, std::size_t samples);

    // The real-time side. None of these allocates, locks or waits; `Hand` may wake the worker, which is the
    // only system call.

    /// The samples of the next slot; null while that slot is not free.
    float* Claim();
    /// The samples of the slot claimed last are complete; it holds the stream's block of that number.
    Ticket Queue(std::uint64_t block);
    /// Tells the worker of all slots queued since the last call.
    void Hand();
    /// The turn of a block has come: kReplied, kFailed or kLate, which does not change any more.
    SlotState TakeTurn(Ticket ticket);
    /// The reply of a slot whose turn gave kReplied; valid until `Release`.
    const float* Reply(Ticket ticket) const { return At(ticket).samples; }
    /// Frees a slot whose turn gave kReplied.
    void Release(Ticket ticket) { At(ticket).state.store(SlotState::kFree); }

    /// Waits until the block is replied or failed; false when it is not by then, or after `Close`. Not for real
    /// time.
    bool Await(Ticket ticket, std::chrono::steady_clock::time_point until);
    /// From any thread: nobody waits for replies any more.
    void Close();

    /// How many replies have come, late ones included.
    std::uint64_t Replies() const { return m_replies; }

    // The worker.

    struct Block {
        Ticket ticket;
        std::uint64_t number; ///< in the stream
        float* samples;
    };
    /// Waits at most so long for the next block whose turn has not passed, and takes it.
    std::optional<Block> Take(std::chrono::microseconds patience);
    /// Frees slots whose turn has passed, so that newer blocks find room while the worker is not taking any.
    void Drain();
    /// Whether the turn of a taken block is still to come.
    bool Wanted(const Block& block) const { return At(block.ticket).state.load() == SlotState::kTaken; }
    /// Hands a taken block back, with the reply in its samples or as failed. False when its turn has passed: then
    /// nothing comes of it.
    bool Finish(const Block& block, bool replied);

private:
    struct Slot {
        std::atomic<SlotState> state{SlotState::kFree};
        std::uint64_t block = 0;
        float* samples = nullptr;
    };

    Slot& At(Ticket ticket) { return m_slots[ticket % m_slots.size()]; }
    const Slot& At(Ticket ticket) const { return m_slots[ticket % m_slots.size()]; }
    bool Done(Ticket ticket) const;
    void Learn(std::chrono::microseconds patience);

    std::vector<float> m_samples;
    std::vector<Slot> m_slots;
    moodycamel::BlockingReaderWriterCircularBuffer<Ticket> m_handed; // how many slots were queued in all
    std::atomic<std::uint64_t> m_replies{0};
    std::atomic<bool> m_closed{false};
    std::atomic<bool> m_awaited{false};
    std::counting_semaphore<> m_done{0};

    // The real-time side's.
    Ticket m_filled = 0;
    Ticket m_told = 0;

    // The worker's.
    Ticket m_known = 0; // queued, as far as the worker was told
    Ticket m_next = 0;  // to take
};

} // namespace vrx::live
