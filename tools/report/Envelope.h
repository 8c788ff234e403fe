#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vrx::tool {

/// The lowest and highest values of a long series, in columns of equally many values each. Its memory is
/// bounded: when there would be more than `kMostColumns`, neighbours are joined two by two.
class Envelope {
public:
    static constexpr std::size_t kMostColumns = 1024;

    struct Column {
        double low = 0;
        double high = 0;
    };

    void Add(double value) { Add(value, value); }

    /// Adds one place of the series whose values reach from `low` to `high`.
    void Add(double low, double high);

    const std::vector<Column>& Columns() const { return m_columns; }
    std::uint64_t Count() const { return m_count; }
    /// How many places a column stands for; the last one may stand for fewer.
    std::uint64_t PerColumn() const { return m_perColumn; }
    double Lowest() const;
    double Highest() const;

private:
    void JoinNeighbours();

    std::vector<Column> m_columns;
    std::uint64_t m_count = 0;
    std::uint64_t m_perColumn = 1;
};

} // namespace vrx::tool
