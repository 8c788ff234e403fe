#include "tools/capture/Recording.h"

#include "tools/program/Numbers.h"

namespace vrx::tool {

Recording::Recording(const std::string& path) : m_path(path), m_events(path), m_exchanges(m_events.IsRaw()) {}

bool Recording::Next(Exchange& exchange) {
    CaptureEvent event;
    while (!m_exchanges.Next(exchange)) {
        if (m_ended) return false;
        if (m_events.Next(event)) {
            m_exchanges.Take(event);
        } else {
            m_exchanges.Finish();
            m_ended = true;
        }
    }
    return true;
}

std::vector<std::string> Recording::Notes() const {
    std::vector<std::string> notes = m_events.Notes();
    if (m_exchanges.Unfinished() > 0)
        notes.push_back(m_path + ": " + Counted(m_exchanges.Unfinished(), "exchange") +
                        " at the end without a whole reply: left out");
    return notes;
}

Failure NoExchanges(const std::string& path) {
    return {kFileFailed, path + ": holds no exchange between a talker and a server: is it the right file?"};
}

} // namespace vrx::tool
