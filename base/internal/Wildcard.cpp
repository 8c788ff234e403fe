#include "base/internal/Wildcard.h"

#include <algorithm>

namespace vrx {
namespace {

/// Whether `run`, a pattern without stars, matches `text`, which has the same length.
bool SameRun(std::string_view text, std::string_view run) {
    return std::equal(text.begin(), text.end(), run.begin(),
                      [](char c, char wanted) { return c == wanted || wanted == '?'; });
}

/// The first position where `run`, a pattern without stars, matches a part of `text`, or npos.
size_t FindRun(std::string_view text, std::string_view run) {
    if (run.find('?') == run.npos) return text.find(run);
    for (size_t at = 0; at + run.size() <= text.size(); ++at) {
        if (SameRun(text.substr(at, run.size()), run)) return at;
    }
    return text.npos;
}

} // namespace

// The first place where a run fits is also the best one: whatever matches behind a later place matches behind
// the first as well. So no star is ever tried again.
bool MatchesWild(std::string_view text, std::string_view pattern) {
    if (text.empty() || pattern.empty()) return false;
    const size_t firstStar = pattern.find('*');
    if (firstStar == pattern.npos) return text.size() == pattern.size() && SameRun(text, pattern);
    if (text.size() < firstStar || !SameRun(text.substr(0, firstStar), pattern.substr(0, firstStar)))
        return false;
    text.remove_prefix(firstStar);
    pattern.remove_prefix(firstStar);

    while (pattern.size() > 1) {
        if (text.empty()) return false; // only the last star takes an empty rest: "a**" does not match "a"
        pattern.remove_prefix(1);
        const size_t run = std::min(pattern.find('*'), pattern.size());
        if (run == pattern.size()) {
            return text.size() >= run && SameRun(text.substr(text.size() - run), pattern);
        }
        const size_t at = FindRun(text, pattern.substr(0, run));
        if (at == text.npos) return false;
        text.remove_prefix(at + run);
        pattern.remove_prefix(run);
    }
    return true;
}

} // namespace vrx
