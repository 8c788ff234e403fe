#pragma once

#include <cctype>
#include <string>
#include <string_view>
#include <vector>

/// "" for a page whose elements are closed in order, whose attributes are quoted, and whose texts have no stray
/// markup characters; else what is wrong and where. Knows what the pages here use, not all of XML.
inline std::string WhyNotWellFormed(std::string_view page) {
    std::vector<std::string> open;
    std::size_t at = 0;
    const auto wrong = [&](const char* what) {
        return std::string(what) + " at " + std::to_string(at) + ": " + std::string(page.substr(at, 60));
    };
    const auto isName = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == ':';
    };
    const auto entityEnds = [&](std::size_t from) {
        for (const std::string_view entity : {"&amp;", "&lt;", "&gt;", "&quot;"})
            if (page.substr(from, entity.size()) == entity) return true;
        return false;
    };
    if (page.starts_with("<!DOCTYPE html>")) at = page.find('>') + 1;
    while (at < page.size()) {
        if (page[at] == '&' && !entityEnds(at)) return wrong("a bare &");
        if (page[at] == '>') return wrong("a bare >");
        if (page[at] != '<') {
            if (open.empty() && std::isspace(static_cast<unsigned char>(page[at])) == 0)
                return wrong("text outside the page");
            ++at;
            continue;
        }
        const bool closing = page.substr(at + 1, 1) == "/";
        std::size_t end = at + (closing ? 2 : 1);
        const std::size_t nameAt = end;
        while (end < page.size() && isName(page[end])) ++end;
        const std::string name(page.substr(nameAt, end - nameAt));
        if (name.empty()) return wrong("an element without a name");
        while (end < page.size() && page[end] == ' ') { // attributes
            const std::size_t equals = page.find('=', ++end);
            for (; end < equals && equals != page.npos; ++end)
                if (!isName(page[end])) return wrong("a broken attribute");
            if (page.substr(equals, 2) != "=\"") return wrong("an attribute without quotes");
            for (end = equals + 2; end < page.size() && page[end] != '"'; ++end)
                if (page[end] == '<' || (page[end] == '&' && !entityEnds(end)))
                    return wrong("markup in an attribute");
            ++end;
        }
        const bool empty = page.substr(end, 2) == "/>";
        if (empty) ++end;
        if (end >= page.size() || page[end] != '>') return wrong("an element without an end");
        if (closing && (open.empty() || open.back() != name)) return wrong("closed out of order");
        if (closing) open.pop_back();
        if (!closing && !empty) open.push_back(name);
        at = end + 1;
    }
    return open.empty() ? "" : "never closed: " + open.back();
}
