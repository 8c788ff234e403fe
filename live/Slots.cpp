#include "live/Slots.h"

namespace vrx::live {

Slots::Slots(std::size_t count, std::size_t samples)
    : m_samples(count * samples), m_slots(count), m_handed(count) {
    for (std::size_t i = 0; i < count; ++i) m_slots[i].samples = m_samples.data() + i * samples;
}

// The real-time side.

float* Slots::Claim() {
    Slot& slot = At(m_filled);
    return slot.state.load() == SlotState::kFree ? slot.samples : nullptr;
}

Slots::Ticket Slots::Queue(std::uint64_t block) {
    Slot& slot = At(m_filled);
    slot.block = block;
    slot.state.store(SlotState::kQueued);
    return m_filled++;
}

void Slots::Hand() {
    if (m_told == m_filled) return;
    // There is always room: every ticket in the queue stands for a slot that is not free.
    if (m_handed.try_enqueue(m_filled)) m_told = m_filled;
}

SlotState Slots::TakeTurn(Ticket ticket) {
    std::atomic<SlotState>& state = At(ticket).state;
    SlotState now = state.load();
    while (now == SlotState::kQueued ||
           now == SlotState::kTaken) // at most twice: the worker only moves it on
        if (state.compare_exchange_strong(now, SlotState::kLate)) return SlotState::kLate;
    if (now == SlotState::kFailed) state.store(SlotState::kFree);
    return now;
}

bool Slots::Done(Ticket ticket) const {
    const SlotState state = At(ticket).state.load();
    return state == SlotState::kReplied || state == SlotState::kFailed;
}

bool Slots::Await(Ticket ticket, std::chrono::steady_clock::time_point until) {
    m_awaited = true; // the worker looks at this after it has moved a slot on, so no wake-up is missed
    while (!Done(ticket) && !m_closed && m_done.try_acquire_until(until)) {
    }
    m_awaited = false;
    return Done(ticket);
}

void Slots::Close() {
    m_closed = true;
    m_done.release();
}

// The worker.

void Slots::Learn(std::chrono::microseconds patience) {
    Ticket known = m_known;
    if (!m_handed.wait_dequeue_timed(known, patience)) return;
    while (m_handed.try_dequeue(known)) {
    }
    m_known = known;
}

void Slots::Drain() {
    Ticket known = m_known;
    while (m_handed.try_dequeue(known)) m_known = known;
    for (; m_next != m_known && At(m_next).state.load() == SlotState::kLate; ++m_next)
        At(m_next).state.store(SlotState::kFree);
}

std::optional<Slots::Block> Slots::Take(std::chrono::microseconds patience) {
    if (m_next == m_known) Learn(patience);
    while (m_next != m_known) {
        const Ticket ticket = m_next++;
        Slot& slot = At(ticket);
        SlotState now = SlotState::kQueued;
        if (slot.state.compare_exchange_strong(now, SlotState::kTaken))
            return Block{ticket, slot.block, slot.samples};
        slot.state.store(SlotState::kFree); // its turn has passed
    }
    return {};
}

bool Slots::Finish(const Block& block, bool replied) {
    if (replied) ++m_replies;
    Slot& slot = At(block.ticket);
    SlotState now = SlotState::kTaken;
    const SlotState end = replied ? SlotState::kReplied : SlotState::kFailed;
    const bool inTime = slot.state.compare_exchange_strong(now, end);
    if (!inTime) slot.state.store(SlotState::kFree);
    if (m_awaited) m_done.release();
    return inTime;
}

} // namespace vrx::live
