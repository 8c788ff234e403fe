#pragma once

#include "live/Shape.h"
#include "live/Slots.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vrx::live {

/// The real-time side of a bridge: cuts what comes in into blocks, and puts together what goes out from the replies
/// and, where one is missing, from the delayed input.
class Stream {
public:
    Stream(const Shape& shape, Slots& slots);

    /// See Bridge::Process. One thread at a time.
    void Process(const float* const* in, float* const* out, std::size_t frames);

    // From any thread.
    void Freewheel(bool on) { m_freewheel = on; }
    void Bypass(bool on) { m_bypass = on; }
    std::uint64_t Frames() const { return m_counts.frames.load(std::memory_order_relaxed); }
    std::uint64_t Blocks() const { return m_counts.blocks.load(std::memory_order_relaxed); }
    std::uint64_t LateBlocks() const { return m_counts.late.load(std::memory_order_relaxed); }
    std::uint64_t FailedBlocks() const { return m_counts.failed.load(std::memory_order_relaxed); }

private:
    /// What a block's output is made of.
    enum class Kind { kNothing, kWet, kDry, kSilence };

    static constexpr Slots::Ticket kNoTicket = ~Slots::Ticket{0};

    void TakeIn(const float* const* in, std::size_t at, std::size_t frames);
    void QueueBlock(std::uint64_t block);
    void PutOut(float* const* out, std::size_t at, std::size_t frames);
    void BeginBlock(std::uint64_t block);
    void EndBlock();
    Kind Decide(std::uint64_t block);
    void AwaitReply(Slots::Ticket ticket);
    void Render(float* const* out, std::size_t at, std::uint64_t from, std::size_t offset,
                std::size_t frames);
    float Sample(Kind kind, std::size_t channel, std::uint64_t from, std::size_t offset) const;
    float Dry(std::size_t channel, std::uint64_t frame) const {
        return m_delay[channel * m_delayFrames + (frame & (m_delayFrames - 1))];
    }
    Slots::Ticket& TicketOf(std::uint64_t block) { return m_tickets[block % m_tickets.size()]; }

    const Shape m_shape;
    Slots& m_slots;

    // The latest input of each channel, a power of two of frames: what is still to go out, and one call more.
    const std::size_t m_delayFrames;
    std::vector<float> m_delay;
    std::vector<Slots::Ticket> m_tickets; // of the blocks between in and out

    std::uint64_t m_in = 0;  // frames that came in
    std::uint64_t m_out = 0; // frames that went out
    Kind m_kind = Kind::kNothing;
    Kind m_before = Kind::kNothing; // the kind of the block before
    std::size_t m_fade = 0;         // frames of this block that lead over from the one before
    const std::size_t m_fadeFrames;
    const float* m_reply = nullptr; // of this block, when it is wet
    Slots::Ticket m_ticket = kNoTicket;
    std::vector<float> m_held; // the last frame of a wet block

    std::atomic<bool> m_freewheel{false};
    std::atomic<bool> m_bypass{false};
    static constexpr std::uint64_t kNeverInVain = ~std::uint64_t{0};
    std::uint64_t m_repliesInVain = kNeverInVain; // that had come when one was waited for in vain

    /// Written here alone, so that plain additions do.
    struct Counts {
        std::atomic<std::uint64_t> frames{0};
        std::atomic<std::uint64_t> blocks{0};
        std::atomic<std::uint64_t> late{0};
        std::atomic<std::uint64_t> failed{0}; // of the late ones
    };
    Counts m_counts;
};

} // namespace vrx::live
