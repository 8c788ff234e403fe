#pragma once

#include "tools/capture/Exchange.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>

namespace vrx::tool {

/// The same exchange of two recordings, or one that only one of them has.
struct ExchangePair {
    std::optional<Exchange> a;
    std::optional<Exchange> b;
};

/// Puts the exchanges of two recordings side by side, also when one has more, connection by connection: connections
/// belong together when they begin with the same requests, otherwise those that are most alike. Looks so far ahead
/// as its window is, and holds no more.
class Alignment {
public:
    /// Sets the exchange to the next one and is false at the end.
    using Source = std::function<bool(Exchange&)>;

    struct Window {
        std::size_t exchanges = 256;               ///< of one connection
        std::size_t bytes = std::size_t{64} << 20; ///< of one side
        std::size_t held = 8192;                   ///< exchanges of one side
    };

    Alignment(Source a, Source b, Window window);
    Alignment(Source a, Source b) : Alignment(std::move(a), std::move(b), Window()) {}

    /// Those of two connections come in order. False at the end.
    bool Next(ExchangePair& pair);

private:
    static constexpr int kA = 0;
    static constexpr int kB = 1;

    struct Connection {
        std::deque<Exchange> waiting;
        std::deque<std::uint64_t> keys; // of `waiting`
        bool ended = false;
        std::uint64_t partner = 0;               // 0: none yet
        bool alone = false;                      // has none: its exchanges are missing on the other side
        std::array<std::uint64_t, 8> first = {}; // keys of its first exchanges
        std::size_t seen = 0;
    };
    struct Side {
        Source source;
        std::map<std::uint64_t, Connection> connections;
        bool ended = false;
        std::size_t bytes = 0;
        std::size_t held = 0;
    };

    bool Read(Side& side);
    bool Full(const Side& side) const { return side.bytes > m_window.bytes || side.held > m_window.held; }
    void PairEqual();
    bool PairMostAlike();
    bool Step(bool force);
    bool StepPair(Connection& a, Connection& b, bool force);
    void AlignWindow(Connection& a, Connection& b, bool toTheEnd);
    void Emit(Connection* a, Connection* b);
    Exchange Take(Side& side, Connection& connection);
    void Drop();
    bool Mature(const Side& side, const Connection& connection) const;

    Window m_window;
    std::array<Side, 2> m_sides;
    std::deque<ExchangePair> m_ready;
};

} // namespace vrx::tool
