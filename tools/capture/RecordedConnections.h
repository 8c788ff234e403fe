#pragma once

#include "tools/capture/Recording.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vrx::tool {

/// One connection of a recording, exchange by exchange.
class RecordedConnection {
public:
    /// Throws Failure when the file cannot be read.
    RecordedConnection(const std::string& file, std::uint64_t number);

    /// The next exchange; nothing behind the last one. Valid until Take.
    const Exchange* Next();
    void Take() { m_next.reset(); }

    std::uint64_t Number() const { return m_number; }

private:
    Recording m_recording;
    std::uint64_t m_number;
    std::optional<Exchange> m_next;
    bool m_over = false;
};

/// The connections of a recording by how they begin, read only as far as anybody asks.
class RecordedConnections {
public:
    struct Entry {
        std::uint64_t number = 0;
        bool serverFirst = false;         ///< the server did something before any request
        std::vector<std::uint64_t> first; ///< keys of the first requests, at most kFirst
    };
    static constexpr std::size_t kFirst = 16;

    /// Throws Failure when the file cannot be read.
    explicit RecordedConnections(const std::string& file);

    /// The connection at this place, from 0, in the order in which they were opened; null behind the last one. Valid
    /// until the next call.
    const Entry* At(std::size_t place);

    const std::string& File() const { return m_file; }

private:
    std::string m_file;
    std::unique_ptr<Recording> m_recording;
    std::vector<Entry> m_entries;
};

} // namespace vrx::tool
