#include "live/Bridge.h"

#include "live/Slots.h"
#include "live/Stream.h"
#include "live/Worker.h"

#include <algorithm>
#include <csignal>
#include <pthread.h>
#include <utility>

namespace vrx::live {

namespace {

constexpr std::chrono::milliseconds kStopPatience{180};

/// As many blocks as are between in and out, with one being filled, one being played, and one that the worker keeps
/// beyond its turn.
std::size_t SlotCount(const Shape& shape) {
    return (shape.latencyFrames + shape.periodFrames) / shape.blockFrames + 3;
}

/// While it lives, threads start with every signal blocked, so that the program's handlers never run on them.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_before;
};

} // namespace

/// Everything that both threads use; it lives as long as the longer of them needs it.
struct Bridge::State {
    State(const Shape& shape, BridgeParts given)
        : parts(std::move(given)), samples(shape.blockFrames * shape.channels),
          slots(SlotCount(shape), samples), stream(shape, slots) {}

    void Work() {
        (void)pthread_setname_np(pthread_self(), "vrx-bridge");
        const sched_param urgent{.sched_priority = parts.priority};
        if (parts.priority > 0) (void)pthread_setschedparam(pthread_self(), SCHED_FIFO, &urgent);
        if (!parts.clock) // made here: it changes how exactly its thread is woken
            parts.clock = std::make_shared<host::SteadyRunClock>([this] { return worker.stopped.load(); });
        Worker(parts, samples, slots, worker).Run();
        parts = {}; // closes the connection
        ended.set_value();
    }

    BridgeParts parts;
    const std::size_t samples; // in a block
    Slots slots;
    Stream stream;
    WorkerState worker;
    std::promise<void> ended;
};

Bridge::Bridge(const Shape& shape, BridgeParts parts)
    : m_shape(shape), m_state(std::make_shared<State>(shape, std::move(parts))),
      m_workerEnd(m_state->ended.get_future()) {
    const SignalsBlocked blocked;
    m_thread = std::thread([state = m_state] { state->Work(); });
}

Bridge::~Bridge() {
    (void)Stop();
}

bool Bridge::Stop() {
    m_state->worker.stopped = true;
    m_state->slots.Close();
    if (!m_thread.joinable()) return m_ended;
    m_ended = m_workerEnd.wait_for(kStopPatience) == std::future_status::ready;
    if (m_ended)
        m_thread.join();
    else
        m_thread.detach();
    return m_ended;
}

void Bridge::Process(const float* const* in, float* const* out, std::size_t frames) {
    m_state->stream.Process(in, out, frames);
}

void Bridge::Freewheel(bool on) {
    m_state->stream.Freewheel(on);
}

void Bridge::Bypass(bool on) {
    m_state->stream.Bypass(on);
}

Bridge::Counts Bridge::Count() const {
    const Stream& stream = m_state->stream;
    const WorkerState& worker = m_state->worker;
    Counts counts;
    counts.lost = stream.FailedBlocks() + worker.failed;
    counts.late = stream.LateBlocks();
    counts.blocks = stream.Blocks();
    counts.frames = stream.Frames();
    counts.lost = std::min(counts.lost, counts.late); // the two sides count while we look
    counts.reconnects = worker.reconnects;
    counts.outage = worker.attempts > 0;
    return counts;
}

} // namespace vrx::live
