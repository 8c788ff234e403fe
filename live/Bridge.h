#pragma once

#include "host/Pacing.h"
#include "host/RunStatistics.h"
#include "host/Samples.h"
#include "host/Session.h"
#include "live/Shape.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace vrx::live {

/// What a bridge works with. It takes all of this over: when it has to let a stuck thread go, that thread keeps these
/// things and destroys them when it ends, so whatever the functions hold (the plug-in, say) must be theirs by value or
/// shared pointer.
struct BridgeParts {
    /// Connected or not, never null. The worker connects before the first block; the way replies are taken is set
    /// to suit the blocks.
    std::unique_ptr<host::Session> session;
    /// What the server takes and gives; nothing: its pins say, which are asked for before the first block. A server that
    /// does not answer to that is taken to want floats.
    std::optional<host::SampleFormat> words = host::SampleFormat::kF32;
    /// Times exchanges and the pauses of an outage; null: the machine's steady clock.
    std::shared_ptr<host::RunClock> clock;
    /// Of the worker's thread, among those that run in real time (first in, first out); 0: an ordinary thread. It
    /// stays ordinary where the system does not allow more.
    int priority = 0;
    /// An outage begins, with the reason in words: "result -9995: the server closed the connection". Once an
    /// outage, on the worker's thread; null: nobody asks.
    std::function<void(const std::string& why)> outage;
    /// After each exchange, with the block's number in the stream (from 1), on the worker's thread, which waits
    /// for it; the words are those of one block, both ways. Null: nobody asks.
    std::function<void(const host::BlockRecord&, const std::uint32_t* in, const std::uint32_t* out)>
        exchanged;
};

/// Joins a real-time callback to a talker, which waits for its server. `Process` hands blocks to one worker thread, which
/// owns the talker, and takes the replies that are back; it never waits for one.
///
/// Delay    What goes in at frame t comes out at frame t + latencyFrames, from the first frame to the last, whatever
///          the server does. Before that comes silence.
/// Late     A block whose reply is not back when its first frame is to go out is late: the whole block is the dry input
///          with the same delay, or silence. Its reply is dropped when it comes. A fade of a millisecond, at most a
///          block, joins blocks of different kinds; a wet block behind a wet block is what the server sent, bit for bit.
/// Outages  The worker recovers: after 0.5, 1, 2, 4, 5, 5... seconds it tries again, with a new connect or a new talker
///          where that is needed. Blocks whose turn has passed are not sent. A status below zero from the server fails
///          that block alone.
/// Threads  `Process` on one thread at a time; everything else from any thread, `Stop` from one. Destruction not while
///          `Process` runs.
class Bridge {
public:
    /// Starts the worker, which connects; returns at once. `shape` and its latency stay as they are: for other measures
    /// make a new bridge. Throws std::system_error when there is no thread to be had.
    Bridge(const Shape& shape, BridgeParts parts);

    /// Stops.
    ~Bridge();
    Bridge(const Bridge&) = delete;
    Bridge& operator=(const Bridge&) = delete;

    /// Takes `frames` frames of each channel and gives as many, for real time: it does not allocate, lock or wait, and
    /// calls the system at most once for every periodFrames frames, to wake the worker.
    ///
    /// in, out   one pointer per channel, never null; `out` may hold the same buffers as `in`
    /// frames    any number; replies are late oftener where it is more than periodFrames
    void Process(const float* const* in, float* const* out, std::size_t frames);

    /// While on, `Process` waits for the replies, so that none is late when the program runs faster than real time. It
    /// waits at most 8 seconds for one, and after that no more until the server has answered again.
    void Freewheel(bool on);

    /// While on, the dry input goes out, as late as ever; blocks still go to the server. Takes effect at the next block,
    /// with a fade.
    void Bypass(bool on);

    /// Ends the worker within 0.2 seconds; blocks that are not back stay late. A worker that is stuck in the talker is
    /// let go: it ends by itself, ten seconds later at most, and takes with it what it needs. A program that unloads
    /// the code of this class must make sure that no such thread is left in it. True when the worker has ended. Further
    /// calls change nothing.
    bool Stop();

    struct Counts {
        std::uint64_t frames = 0;     ///< through `Process`
        std::uint64_t blocks = 0;     ///< whose turn has come
        std::uint64_t late = 0;       ///< of them, those whose reply was not back
        std::uint64_t lost = 0;       ///< of the late ones, those whose exchange failed
        std::uint64_t reconnects = 0; ///< outages that are over
        bool outage = false;          ///< the last exchange failed on the way
    };
    Counts Count() const;

    const Shape& Measures() const { return m_shape; }

private:
    struct State;

    const Shape m_shape;
    std::shared_ptr<State> m_state; // shared with the worker's thread
    std::future<void> m_workerEnd;
    std::thread m_thread;
    bool m_ended = false;
};

} // namespace vrx::live
