#include "tools/report/Envelope.h"

#include <algorithm>

namespace vrx::tool {

void Envelope::Add(double low, double high) {
    if (m_count == kMostColumns * m_perColumn) JoinNeighbours();
    if (m_count++ % m_perColumn == 0) {
        m_columns.push_back({low, high});
        return;
    }
    Column& column = m_columns.back();
    column.low = std::min(column.low, low);
    column.high = std::max(column.high, high);
}

void Envelope::JoinNeighbours() {
    for (std::size_t i = 0; i < kMostColumns / 2; ++i) {
        const Column& left = m_columns[2 * i];
        const Column& right = m_columns[2 * i + 1];
        m_columns[i] = {std::min(left.low, right.low), std::max(left.high, right.high)};
    }
    m_columns.resize(kMostColumns / 2);
    m_perColumn *= 2;
}

double Envelope::Lowest() const {
    double lowest = m_columns.empty() ? 0 : m_columns[0].low;
    for (const Column& column : m_columns) lowest = std::min(lowest, column.low);
    return lowest;
}

double Envelope::Highest() const {
    double highest = m_columns.empty() ? 0 : m_columns[0].high;
    for (const Column& column : m_columns) highest = std::max(highest, column.high);
    return highest;
}

} // namespace vrx::tool
