#pragma once

#include "tools/capture/CaptureReader.h"
#include "tools/capture/ExchangeAssembler.h"
#include "tools/program/Errors.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vrx::tool {

/// The exchanges of a capture file, read in one pass; holds those under way and nothing else.
class Recording {
public:
    /// Throws Failure when the file cannot be read or is no capture.
    explicit Recording(const std::string& path);

    /// Sets `exchange` to the next one that is over; false at the end. Those of one connection come in order, those
    /// of different connections in the order in which they ended. Throws Failure as CaptureReader does.
    bool Next(Exchange& exchange);

    const std::string& Path() const { return m_path; }

    /// What a reader of the result should know, one sentence each; complete at the end of the file.
    std::vector<std::string> Notes() const;

private:
    std::string m_path;
    CaptureReader m_events;
    ExchangeAssembler m_exchanges;
    bool m_ended = false;
};

/// What to throw about a file in which nobody asked anything.
Failure NoExchanges(const std::string& path);

} // namespace vrx::tool
