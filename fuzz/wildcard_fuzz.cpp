// The wildcard matchers against the literal algorithm, as far as that one comes in bounded work.
// Input: the pattern up to a NUL, then the text, which is read up to its first NUL.

#include "base/StringText.h"
#include "base/StringVector.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"

#include <ctime>
#include <string>
#include <string_view>

using namespace vrx::fuzz;

namespace {

/// The literal algorithm: every star tries every place, and the capture keeps what failed attempts added.
class SlowMatcher {
public:
    bool Matches(std::string_view text, std::string_view pattern) {
        if (++m_steps > kMostSteps || text.empty() || pattern.empty()) return false;
        size_t t = 0;
        size_t p = 0;
        if (pattern[0] != '*') {
            while (t < text.size() && p < pattern.size() && pattern[p] != '*') {
                if (pattern[p] != text[t] && pattern[p] != '?') return false;
                ++t;
                ++p;
            }
            if (p == pattern.size()) return t == text.size();
            if (pattern[p] != '*') return false;
        }
        return StarMatches(text.substr(t), pattern.substr(p + 1));
    }

    bool GaveUp() const { return m_steps > kMostSteps; }
    const std::string& Capture() const { return m_capture; }

private:
    bool StarMatches(std::string_view text, std::string_view rest) {
        if (rest.empty()) return true;
        m_capture += '*';
        for (; !text.empty(); text.remove_prefix(1)) {
            if (Matches(text, rest)) return true;
            if (GaveUp()) return false;
            m_capture += text.front();
        }
        return false;
    }

    static constexpr long kMostSteps = 20000;
    long m_steps = 0;
    std::string m_capture;
};

double ThreadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const std::string pattern = input.Field();
    const std::string text = input.Rest();

    // Text times pattern is at most some millions here: far below a second, which backtracking would exceed.
    const double before = ThreadSeconds();
    const bool matches = String::CompareWild(text, pattern, nullptr);
    Require(ThreadSeconds() - before < 1.0, "a match without a capture takes text times pattern at most");

    string_vector list;
    list.push_back(text);
    RequireSame(list.findwild(pattern.c_str(), 0), matches ? 0 : -1, "the list finds what matches");

    SlowMatcher slow;
    const bool want = slow.Matches(text.c_str(), pattern);
    if (slow.GaveUp()) return 0;
    RequireSame(matches, want, "the fast matcher's answer");
    std::string capture = "before";
    RequireSame(String::CompareWild(text, pattern, &capture), want, "the answer with a capture");
    RequireSame(capture, "before" + slow.Capture(), "the capture");
    return 0;
}
