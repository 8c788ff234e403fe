#pragma once

#include "tools/capture/Alignment.h"
#include "tools/capture/DifferencePicture.h"
#include "tools/capture/ExchangeComparer.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vrx::tool {

/// Counts what is the same in two recordings, and keeps the first difference.
class DifferenceSummary {
public:
    explicit DifferenceSummary(std::optional<double> toleranceDb)
        : m_tolerance(toleranceDb), m_comparer(toleranceDb) {}

    void Add(const ExchangePair& pair);

    bool Same() const { return m_different == 0 && m_missing == 0; }
    /// "exchange 5, reply frame 12, channel 2: 0.5 in A, 0.25 in B"; "" when all is the same.
    std::string FirstInWords(const std::string& a, const std::string& b) const;
    nlohmann::ordered_json Json() const;
    /// A table for people, with the distance of the signals.
    std::string Table() const;
    /// A page that draws where and how much A and B differ.
    std::string Page(const std::string& a, const std::string& b) const;

    const ExchangeComparer& Comparer() const { return m_comparer; }

private:
    struct First {
        std::uint64_t exchange = 0;
        Difference difference;
    };

    void Note(std::uint64_t exchange, Difference difference);
    std::vector<std::pair<const char*, std::string>> Rows() const;
    std::uint64_t Exchanges() const { return m_same + m_different + std::max(m_onlyA, m_onlyB); }

    std::optional<double> m_tolerance;
    ExchangeComparer m_comparer;
    DifferencePicture m_picture;
    std::uint64_t m_same = 0;
    std::uint64_t m_different = 0;
    std::uint64_t m_missing = 0;
    std::uint64_t m_onlyA = 0;
    std::uint64_t m_onlyB = 0;
    std::optional<First> m_first;
};

} // namespace vrx::tool
