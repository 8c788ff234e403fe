#include "base/internal/Wildcard.h"

#include <algorithm>
#include <vector>

namespace vrx {
namespace {

/// Whether `text` begins with `run`, a pattern without stars.
bool BeginsWith(std::string_view text, std::string_view run) {
    return text.size() >= run.size() &&
           std::equal(run.begin(), run.end(), text.begin(),
                      [](char wanted, char c) { return wanted == c || wanted == '?'; });
}

/// The first position where `run`, a pattern without stars, fits a part of `text`, or npos.
size_t FindRun(std::string_view text, std::string_view run) {
    if (text.size() < run.size()) return text.npos;
    const size_t anchor = run.find_first_not_of('?');
    if (anchor == run.npos) return 0;

    size_t at = text.find(run[anchor], anchor);
    while (at != text.npos && !BeginsWith(text.substr(at - anchor), run)) at = text.find(run[anchor], at + 1);
    return at == text.npos ? at : at - anchor;
}

/// The part of the pattern before its first star.
std::string_view FirstRun(std::string_view pattern) {
    const auto star = std::find(pattern.begin(), pattern.end(), '*');
    return pattern.substr(0, static_cast<size_t>(star - pattern.begin()));
}

/// A star that absorbs text: what is left for the pattern behind it.
struct Star {
    std::string_view text;
    std::string_view behind;
};

/// Matches with every star on the way absorbing nothing; each is noted and put on the stack.
bool Attempt(std::string_view text, std::string_view pattern, std::vector<Star>& stars,
             std::string& capture) {
    while (!text.empty()) {
        const std::string_view run = FirstRun(pattern);
        if (!BeginsWith(text, run)) return false;
        text.remove_prefix(run.size());
        pattern.remove_prefix(run.size());
        if (pattern.empty()) return text.empty();
        if (pattern.size() == 1) return true; // the last star takes whatever is left
        capture += '*';
        pattern.remove_prefix(1);
        stars.push_back({text, pattern});
    }
    return false; // no pattern takes an empty rest: "a**" does not match "a"
}

} // namespace

// The first place where a run fits is also the best one: whatever matches behind a later place would match
// behind the first as well. So no star is ever tried again.
bool MatchesWild(std::string_view text, std::string_view pattern) {
    const std::string_view start = FirstRun(pattern);
    if (text.empty() || pattern.empty() || !BeginsWith(text, start)) return false;
    text.remove_prefix(start.size());
    pattern.remove_prefix(start.size());
    if (pattern.empty()) return text.empty();

    while (pattern.size() > 1) {
        if (text.empty()) return false; // only the last star takes an empty rest: "a**" does not match "a"
        pattern.remove_prefix(1);
        const std::string_view run = FirstRun(pattern);
        if (run.size() == pattern.size()) {
            return text.size() >= run.size() && BeginsWith(text.substr(text.size() - run.size()), run);
        }
        const size_t at = FindRun(text, run);
        if (at == text.npos) return false;
        text.remove_prefix(at + run.size());
        pattern.remove_prefix(run.size());
    }
    return true;
}

bool CapturesWild(std::string_view text, std::string_view pattern, std::string& capture) {
    if (text.empty() || pattern.empty()) return false;
    std::vector<Star> stars;
    bool matched = Attempt(text, pattern, stars, capture);
    while (!matched && !stars.empty()) {
        Star& star = stars.back();
        if (star.text.empty()) {
            stars.pop_back();
            continue;
        }
        capture += star.text.front();
        star.text.remove_prefix(1);
        matched = Attempt(star.text, star.behind, stars, capture);
    }
    return matched;
}

} // namespace vrx
