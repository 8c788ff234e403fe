#include "tools/capture/Alignment.h"

#include "tools/capture/ExchangeComparer.h"

#include <algorithm>
#include <dtl/dtl.hpp>
#include <utility>
#include <vector>

namespace vrx::tool {

namespace {

std::size_t BytesOf(const Exchange& exchange) {
    std::size_t bytes = exchange.request.size();
    for (const ReplyPiece& piece : exchange.reply) bytes += piece.bytes.size();
    return bytes;
}

} // namespace

Alignment::Alignment(Source a, Source b, Window window) : m_window(window) {
    m_sides[kA].source = std::move(a);
    m_sides[kB].source = std::move(b);
}

bool Alignment::Next(ExchangePair& pair) {
    while (m_ready.empty()) {
        PairEqual();
        if (Step(false)) continue;
        Drop();
        const bool readA = !Full(m_sides[kA]) && Read(m_sides[kA]);
        const bool readB = !Full(m_sides[kB]) && Read(m_sides[kB]);
        if (readA || readB || PairMostAlike()) continue;
        if (!Step(true)) return false;
    }
    pair = std::move(m_ready.front());
    m_ready.pop_front();
    return true;
}

bool Alignment::Read(Side& side) {
    Exchange exchange;
    side.ended = side.ended || !side.source(exchange);
    if (side.ended) return false;
    Connection& connection = side.connections[exchange.connection];
    const std::uint64_t key = RequestKey(exchange);
    if (connection.seen < connection.first.size()) connection.first[connection.seen++] = key;
    connection.ended = exchange.last;
    side.bytes += BytesOf(exchange);
    ++side.held;
    connection.keys.push_back(key);
    connection.waiting.push_back(std::move(exchange));
    return true;
}

/// Whether all of its first requests are known.
bool Alignment::Mature(const Side& side, const Connection& connection) const {
    return connection.seen == connection.first.size() || connection.ended || side.ended;
}

void Alignment::PairEqual() {
    for (auto& [numberA, a] : m_sides[kA].connections) {
        if (a.partner != 0 || a.alone || !Mature(m_sides[kA], a)) continue;
        for (auto& [numberB, b] : m_sides[kB].connections) {
            if (b.partner != 0 || b.alone || !Mature(m_sides[kB], b) || b.first != a.first) continue;
            a.partner = numberB;
            b.partner = numberA;
            break;
        }
    }
}

/// Pairs the oldest connection that has no partner with the one that is most like it; without any,
/// it stays alone. False when every connection is taken care of.
bool Alignment::PairMostAlike() {
    for (const int side : {kA, kB}) {
        Side& mine = m_sides[static_cast<std::size_t>(side)];
        Side& other = m_sides[static_cast<std::size_t>(1 - side)];
        for (auto& [number, connection] : mine.connections) {
            if (connection.partner != 0 || connection.alone) continue;
            std::pair<const std::uint64_t, Connection>* best = nullptr;
            std::ptrdiff_t most = -1;
            for (auto& candidate : other.connections) {
                if (candidate.second.partner != 0 || candidate.second.alone) continue;
                std::ptrdiff_t alike = 0;
                for (std::size_t i = 0; i < std::min(connection.seen, candidate.second.seen); ++i)
                    alike += connection.first[i] == candidate.second.first[i] ? 1 : 0;
                if (alike > most) {
                    most = alike;
                    best = &candidate;
                }
            }
            if (best != nullptr) {
                connection.partner = best->first;
                best->second.partner = number;
            } else {
                connection.alone = true;
            }
            return true;
        }
    }
    return false;
}

/// Makes pairs of what is known. False when there was nothing to do.
/// force   nothing more will be known, or there is no room for more
bool Alignment::Step(bool force) {
    for (auto& [number, a] : m_sides[kA].connections)
        if (a.partner != 0 && StepPair(a, m_sides[kB].connections[a.partner], force)) return true;
    for (const int side : {kA, kB}) {
        for (auto& [number, connection] : m_sides[static_cast<std::size_t>(side)].connections) {
            if (!connection.alone || connection.waiting.empty()) continue;
            Emit(side == kA ? &connection : nullptr, side == kB ? &connection : nullptr);
            return true;
        }
    }
    return false;
}

bool Alignment::StepPair(Connection& a, Connection& b, bool force) {
    const bool endA = a.ended || m_sides[kA].ended;
    const bool endB = b.ended || m_sides[kB].ended;
    if (a.waiting.empty() && b.waiting.empty()) return false;
    if (a.waiting.empty() || b.waiting.empty()) {
        const bool over = a.waiting.empty() ? endA : endB;
        if (!over && !force) return false;
        Emit(a.waiting.empty() ? nullptr : &a, b.waiting.empty() ? nullptr : &b);
        return true;
    }
    if (a.keys.front() == b.keys.front()) {
        Emit(&a, &b);
        return true;
    }
    const bool enough =
        (endA || a.waiting.size() >= m_window.exchanges) && (endB || b.waiting.size() >= m_window.exchanges);
    if (!enough && !force) return false;
    AlignWindow(a, b, endA && endB);
    return true;
}

/// Pairs what stands in the window by the longest common sequence of requests; what lies between is paired in order.
void Alignment::AlignWindow(Connection& a, Connection& b, bool toTheEnd) {
    const auto windowOf = [this](const Connection& each) {
        const auto count = std::min(each.keys.size(), m_window.exchanges);
        return std::vector<std::uint64_t>(each.keys.begin(),
                                          each.keys.begin() + static_cast<std::ptrdiff_t>(count));
    };
    dtl::Diff<std::uint64_t> difference(windowOf(a), windowOf(b));
    difference.compose();
    const auto script = difference.getSes().getSequence();

    std::size_t onlyA = 0;
    std::size_t onlyB = 0;
    bool common = false;
    const auto between = [&] {
        for (; onlyA > 0 && onlyB > 0; --onlyA, --onlyB) Emit(&a, &b);
        for (; onlyA > 0; --onlyA) Emit(&a, nullptr);
        for (; onlyB > 0; --onlyB) Emit(nullptr, &b);
    };
    for (const auto& [key, step] : script) {
        if (step.type == dtl::SES_DELETE) ++onlyA;
        if (step.type == dtl::SES_ADD) ++onlyB;
        if (step.type != dtl::SES_COMMON) continue;
        between();
        Emit(&a, &b);
        common = true;
    }
    // What stands behind the last common request may find its partner in the next window.
    if (toTheEnd || !common) between();
}

void Alignment::Emit(Connection* a, Connection* b) {
    ExchangePair pair;
    if (a != nullptr) pair.a = Take(m_sides[kA], *a);
    if (b != nullptr) pair.b = Take(m_sides[kB], *b);
    m_ready.push_back(std::move(pair));
}

Exchange Alignment::Take(Side& side, Connection& connection) {
    Exchange exchange = std::move(connection.waiting.front());
    connection.waiting.pop_front();
    connection.keys.pop_front();
    side.bytes -= BytesOf(exchange);
    --side.held;
    return exchange;
}

/// Forgets connections that are over on both sides.
void Alignment::Drop() {
    auto& connectionsA = m_sides[kA].connections;
    auto& connectionsB = m_sides[kB].connections;
    std::erase_if(connectionsA, [&](const auto& each) {
        const Connection& a = each.second;
        if (!a.ended || !a.waiting.empty() || a.partner == 0) return a.alone && a.ended && a.waiting.empty();
        const Connection& b = connectionsB[a.partner];
        if (!b.ended || !b.waiting.empty()) return false;
        connectionsB.erase(a.partner);
        return true;
    });
    std::erase_if(connectionsB, [](const auto& each) {
        return each.second.alone && each.second.ended && each.second.waiting.empty();
    });
}

} // namespace vrx::tool
