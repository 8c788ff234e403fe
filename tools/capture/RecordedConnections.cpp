#include "tools/capture/RecordedConnections.h"

#include "tools/capture/ExchangeComparer.h"

#include <algorithm>

namespace vrx::tool {

RecordedConnection::RecordedConnection(const std::string& file, std::uint64_t number)
    : m_recording(file), m_number(number) {}

const Exchange* RecordedConnection::Next() {
    while (!m_next && !m_over) {
        Exchange exchange;
        m_over = !m_recording.Next(exchange);
        if (m_over || exchange.connection != m_number) continue;
        m_over = exchange.last;
        m_next = std::move(exchange);
    }
    return m_next ? &*m_next : nullptr;
}

RecordedConnections::RecordedConnections(const std::string& file)
    : m_file(file), m_recording(std::make_unique<Recording>(file)) {}

const RecordedConnections::Entry* RecordedConnections::At(std::size_t place) {
    const auto known = [&] { return place < m_entries.size() && m_entries[place].first.size() >= kFirst; };
    Exchange exchange;
    while (!known() && m_recording != nullptr) {
        if (!m_recording->Next(exchange)) {
            m_recording = nullptr;
            break;
        }
        auto entry = std::ranges::find(m_entries, exchange.connection, &Entry::number);
        if (entry == m_entries.end()) {
            m_entries.push_back({exchange.connection, exchange.kind == Exchange::kNothing, {}});
            entry = m_entries.end() - 1;
        }
        if (entry->first.size() < kFirst) entry->first.push_back(RequestKey(exchange));
    }
    return place < m_entries.size() ? &m_entries[place] : nullptr;
}

} // namespace vrx::tool
