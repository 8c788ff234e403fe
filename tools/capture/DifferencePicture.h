#pragma once

#include "tools/capture/ExchangeComparer.h"
#include "tools/report/Envelope.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace vrx::tool {

/// Draws how much the exchanges of two recordings differ, one place for each in the order in which they are added. Its
/// memory does not grow with them.
class DifferencePicture {
public:
    enum Kind {
        kSame,
        kOtherSamples, ///< the replies' samples differ
        kOtherwise,    ///< something else differs
        kMissing,      ///< only one recording has it
    };

    /// signals   of this exchange alone
    void Add(Kind kind, const SignalDistance& signals);

    /// How far apart the samples are, and how many of them, as figures of a page; "" when nothing was added.
    ///
    /// toleranceDb   drawn as a line where it is given
    std::string Figures(std::optional<double> toleranceDb) const;

    /// The place of the largest distance, from 1; 0: no samples differ at all.
    std::uint64_t Farthest() const { return m_farthest; }

private:
    std::string Distances(std::optional<double> toleranceDb) const;
    std::string Shares() const;

    Envelope m_decibels; // of the largest distance; the floor where there is none
    Envelope m_percent;  // of the samples that differ
    Envelope m_kind;
    double m_smallest = std::numeric_limits<double>::infinity(); // above none, in decibels
    double m_largest = 0;
    std::uint64_t m_farthest = 0;
};

} // namespace vrx::tool
