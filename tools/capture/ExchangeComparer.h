#pragma once

#include "host/Samples.h"
#include "tools/capture/Exchange.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vrx::tool {

/// One value of two that differ, as people read it.
struct Shown {
    std::string text;
    bool number = false; ///< the text is a number
};

/// What differs between two exchanges.
struct Difference {
    std::string what; ///< "reply frame 17, channel 2", say; frames and channels from 1
    Shown a;
    Shown b;
};

/// How far apart two signals are.
struct SignalDistance {
    std::uint64_t samples = 0;   ///< that were compared
    std::uint64_t differing = 0; ///< beyond the tolerance
    double largest = 0;          ///< the largest distance of two samples; 1 is full scale
};

/// Compares exchanges by what they mean: not by when they were, how replies were cut into pieces, where a client
/// said it was, nor by what a server reports about its load (cycle figures, its times). A reply that the client did
/// not wait for counts as far as it came.
///
/// Samples are floats of one channel until pins say something else; what they say counts from then on.
class ExchangeComparer {
public:
    /// toleranceDb   samples that lie no further apart are the same, in decibels below full scale; nothing: each
    ///               word has to be the same
    explicit ExchangeComparer(std::optional<double> toleranceDb);

    /// What differs first; nothing when they are the same. Requests first.
    std::optional<Difference> Compare(const Exchange& a, const Exchange& b);
    std::optional<Difference> CompareRequests(const Exchange& a, const Exchange& b);
    std::optional<Difference> CompareReplies(const Exchange& a, const Exchange& b);

    /// Takes note of what the pins say in this exchange, as `CompareReplies` does.
    void Learn(const Exchange& exchange);

    /// Of the replies to the blocks compared so far.
    const SignalDistance& Signals() const { return m_signals; }
    /// Of the last comparison of two replies alone.
    const SignalDistance& LastSignals() const { return m_last; }

private:
    std::optional<Difference> CompareRequestPackets(std::string_view a, std::string_view b);
    std::optional<Difference> CompareReplyFrames(std::string_view a, std::string_view b);
    std::optional<Difference> CompareSamples(const char* whose, std::string_view a, std::string_view b,
                                             bool measure);
    Shown ShownSample(std::uint32_t word) const;

    std::optional<double> m_tolerance; // 1 is full scale
    host::SampleFormat m_format = host::SampleFormat::kF32;
    std::size_t m_channels = 1;
    bool m_pins = false; // the replies at hand are about them
    SignalDistance m_signals;
    SignalDistance m_last;
};

/// What the request is, without what does not count in a comparison: equal for requests that are the same.
std::uint64_t RequestKey(const Exchange& exchange);

/// The request in words: "the text 'help'", "a block of 480 words", "the question for the pins".
std::string RequestInWords(const Exchange& exchange);

} // namespace vrx::tool
