#pragma once

#include <asio.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace vrx::tool {

using Clock = std::chrono::steady_clock;
/// What keeps the handlers of one connection in a row, whichever thread runs them.
using Strand = asio::strand<asio::io_context::executor_type>;
using Socket = asio::basic_stream_socket<asio::ip::tcp, Strand>;

/// The threads that run the server's handlers, all from one io_context.
///
/// While handlers are short, one thread runs them all: handing each event from thread to thread costs more than
/// answering a small block. The others sleep until a handler says that it takes long, then share the work for
/// as long as that goes on.
class Workers {
public:
    explicit Workers(unsigned threads);
    /// Ends them as Stop does and waits for them.
    ~Workers();
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    asio::io_context& Io() { return m_io; }
    Strand MakeStrand() { return asio::make_strand(m_io); }

    /// Starts the threads; they run until there is nothing left to wait for.
    void Start();

    /// Called by a handler, at `now`, that needs more than kLong for a block: others may want to go on meanwhile.
    void ShareWork(Clock::time_point now);
    static constexpr std::chrono::microseconds kLong{25};

    /// For a handler that does the work of many: while it lasts, no other thread runs any handler, and what this one
    /// calls needs no strand. Most deliveries are so, and a strand costs 3 % of a small block.
    class Solitude {
    public:
        /// Lasts from the start unless other threads have come to share the work.
        explicit Solitude(Workers& workers);
        ~Solitude() { End(); }
        Solitude(const Solitude&) = delete;
        Solitude& operator=(const Solitude&) = delete;

        /// It ends here when somebody has called ShareWork since the last time.
        bool Lasts();

    private:
        void End();

        Workers& m_workers;
        Clock::time_point m_began;
        bool m_lasts;
    };

    /// Waits until all threads have ended, at most for so long; false when one still runs.
    bool AwaitEnd(std::chrono::milliseconds longest);

    /// Makes the threads end after the handlers they are in, whatever is still to be done.
    void Stop();

private:
    void Lead();
    void Help();
    void Ended();
    bool AreShared(Clock::time_point now) const { return now < m_shareUntil.load(std::memory_order_relaxed); }

    asio::io_context m_io;
    unsigned m_count;
    std::vector<std::thread> m_threads;
    std::atomic<Clock::time_point> m_shareUntil{Clock::time_point::min()};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    unsigned m_running = 0;
    unsigned m_helping = 0; // threads besides the first that run handlers
    bool m_kept = false;    // to the first: a Solitude lasts
    bool m_over = false;
};

} // namespace vrx::tool
