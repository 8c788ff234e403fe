// Real-time code: nothing here allocates, locks or throws, and it calls the system only to wake the worker. What
// `Freewheel` allows is the exception.

#include "live/Stream.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace vrx::live {

namespace {

constexpr double kFadeSeconds = 0.001;
constexpr std::chrono::seconds kFreewheelPatience{8}; // audio servers take a client for dead after ten

void Add(std::atomic<std::uint64_t>& count, std::uint64_t more) {
    count.store(count.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
}

std::size_t FadeFrames(const Shape& shape) {
    const auto frames = static_cast<std::size_t>(shape.sampleRate * kFadeSeconds);
    return std::clamp<std::size_t>(frames, 1, shape.blockFrames);
}

} // namespace

Stream::Stream(const Shape& shape, Slots& slots)
    : m_shape(shape), m_slots(slots), m_delayFrames(std::bit_ceil(shape.latencyFrames + shape.periodFrames)),
      m_delay(m_delayFrames * shape.channels),
      m_tickets((shape.latencyFrames + shape.periodFrames) / shape.blockFrames + 2, kNoTicket),
      m_fadeFrames(FadeFrames(shape)), m_held(shape.channels) {}

void Stream::Process(const float* const* in, float* const* out, std::size_t frames) {
    // Channels may be processed in place, so a piece is taken in whole before any of it is put out.
    for (std::size_t at = 0; at < frames;) {
        const std::size_t piece = std::min(frames - at, m_shape.periodFrames);
        TakeIn(in, at, piece);
        m_slots.Hand();
        PutOut(out, at, piece);
        at += piece;
    }
    Add(m_counts.frames, frames);
}

void Stream::TakeIn(const float* const* in, std::size_t at, std::size_t frames) {
    const std::size_t begin = m_in & (m_delayFrames - 1);
    const std::size_t untilEnd = std::min(frames, m_delayFrames - begin);
    for (std::size_t channel = 0; channel < m_shape.channels; ++channel) {
        float* const ring = m_delay.data() + channel * m_delayFrames;
        std::copy_n(in[channel] + at, untilEnd, ring + begin);
        std::copy_n(in[channel] + at + untilEnd, frames - untilEnd, ring);
    }
    const std::uint64_t first = m_in / m_shape.blockFrames;
    m_in += frames;
    for (std::uint64_t block = first; block < m_in / m_shape.blockFrames; ++block) QueueBlock(block);
}

void Stream::QueueBlock(std::uint64_t block) {
    TicketOf(block) = kNoTicket;
    float* samples = m_slots.Claim();
    if (samples == nullptr) return; // the worker is far behind: this block stays here
    const std::uint64_t from = block * m_shape.blockFrames;
    for (std::size_t i = 0; i < m_shape.blockFrames; ++i)
        for (std::size_t channel = 0; channel < m_shape.channels; ++channel)
            *samples++ = Dry(channel, from + i);
    TicketOf(block) = m_slots.Queue(block);
}

void Stream::PutOut(float* const* out, std::size_t at, std::size_t frames) {
    for (const std::size_t end = at + frames; at < end;) {
        std::size_t piece = end - at;
        if (m_out < m_shape.latencyFrames) { // nothing has come in that early
            piece = std::min<std::uint64_t>(piece, m_shape.latencyFrames - m_out);
            for (std::size_t channel = 0; channel < m_shape.channels; ++channel)
                std::fill_n(out[channel] + at, piece, 0.0F);
        } else {
            const std::uint64_t from = m_out - m_shape.latencyFrames;
            const std::size_t offset = from % m_shape.blockFrames;
            piece = std::min(piece, m_shape.blockFrames - offset);
            if (offset == 0) BeginBlock(from / m_shape.blockFrames);
            Render(out, at, from, offset, piece);
            if (offset + piece == m_shape.blockFrames) EndBlock();
        }
        m_out += piece;
        at += piece;
    }
}

void Stream::BeginBlock(std::uint64_t block) {
    m_before = m_kind;
    m_kind = Decide(block);
    m_fade = m_before == m_kind || m_before == Kind::kNothing ? 0 : m_fadeFrames;
}

Stream::Kind Stream::Decide(std::uint64_t block) {
    Add(m_counts.blocks, 1);
    m_ticket = TicketOf(block);
    if (m_ticket != kNoTicket && m_freewheel) AwaitReply(m_ticket);
    const SlotState turn = m_ticket == kNoTicket ? SlotState::kLate : m_slots.TakeTurn(m_ticket);
    if (turn == SlotState::kReplied) {
        m_reply = m_slots.Reply(m_ticket);
        return m_bypass ? Kind::kDry : Kind::kWet;
    }
    m_ticket = kNoTicket;
    Add(m_counts.late, 1);
    if (turn == SlotState::kFailed) Add(m_counts.failed, 1);
    return m_bypass || m_shape.late == Late::kDry ? Kind::kDry : Kind::kSilence;
}

void Stream::AwaitReply(Slots::Ticket ticket) {
    // Waiting in vain once is enough: until the server answers again, the rest of a bounce goes on without it.
    const std::uint64_t replies = m_slots.Replies();
    if (replies == m_repliesInVain) return;
    const bool done = m_slots.Await(ticket, std::chrono::steady_clock::now() + kFreewheelPatience);
    m_repliesInVain = done ? kNeverInVain : replies;
}

void Stream::EndBlock() {
    if (m_kind == Kind::kWet) {
        const float* const last = m_reply + (m_shape.blockFrames - 1) * m_shape.channels;
        for (std::size_t channel = 0; channel < m_shape.channels; ++channel)
            m_held[channel] = std::isfinite(last[channel]) ? last[channel] : 0.0F;
    }
    if (m_ticket != kNoTicket) m_slots.Release(m_ticket);
    m_ticket = kNoTicket;
}

void Stream::Render(float* const* out, std::size_t at, std::uint64_t from, std::size_t offset,
                    std::size_t frames) {
    for (std::size_t channel = 0; channel < m_shape.channels; ++channel) {
        float* const to = out[channel] + at;
        for (std::size_t i = 0; i < frames; ++i) to[i] = Sample(m_kind, channel, from + i, offset + i);
        for (std::size_t i = 0; i < frames && offset + i < m_fade; ++i) {
            const auto part = static_cast<float>(offset + i + 1) / static_cast<float>(m_fade + 1);
            // What the block before would have gone on with.
            const float before =
                m_before == Kind::kWet ? m_held[channel] : Sample(m_before, channel, from + i, 0);
            to[i] = before + part * (to[i] - before);
        }
    }
}

float Stream::Sample(Kind kind, std::size_t channel, std::uint64_t from, std::size_t offset) const {
    switch (kind) {
    case Kind::kWet:
        return m_reply[offset * m_shape.channels + channel];
    case Kind::kDry:
        return Dry(channel, from);
    default:
        return 0;
    }
}

} // namespace vrx::live
