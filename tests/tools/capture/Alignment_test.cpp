#include "tools/capture/Alignment.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace vrx::tool;

namespace {

/// Exchanges whose requests are single letters: "1a" is an `a` on connection 1, "1a." ends the connection.
std::vector<Exchange> Make(const std::string& text) {
    std::vector<Exchange> all;
    for (const char c : text) {
        if (c == '.') {
            all.back().last = true;
        } else if (c >= '1' && c <= '9') {
            all.emplace_back().connection = static_cast<std::uint64_t>(c - '0');
            all.back().number = all.size();
            all.back().kind = Exchange::kLine;
        } else if (c != ' ') {
            all.back().request += std::string(1, c) + "\n";
        }
    }
    return all;
}

Alignment::Source From(std::vector<Exchange> all) {
    return [all = std::move(all), next = std::size_t{0}](Exchange& exchange) mutable {
        if (next == all.size()) return false;
        exchange = all[next++];
        return true;
    };
}

std::string Letter(const std::optional<Exchange>& exchange) {
    return exchange ? exchange->request.substr(0, 1) + std::to_string(exchange->number) : "-";
}

/// The pairs by their numbers: "a1a1 b2- -c2".
std::string Aligned(const std::string& a, const std::string& b, Alignment::Window window = {}) {
    Alignment alignment(From(Make(a)), From(Make(b)), window);
    std::vector<std::string> pairs;
    for (ExchangePair pair; alignment.Next(pair);) pairs.push_back(Letter(pair.a) + Letter(pair.b));
    std::string text;
    for (const std::string& pair : pairs) text += (text.empty() ? "" : " ") + pair;
    return text;
}

} // namespace

TEST(Alignment, PairsTheSameRequests) {
    struct Case {
        const char* name;
        const char* a;
        const char* b;
        const char* pairs;
    };
    const Case cases[] = {
        {"nothing", "", "", ""},
        {"the same", "1a 1b 1c.", "1a 1b 1c.", "a1a1 b2b2 c3c3"},
        {"only one side", "1a 1b.", "", "a1- b2-"},
        {"only the other", "", "1a.", "-a1"},
        {"one more in the middle", "1a 1b 1c.", "1a 1c.", "a1a1 b2- c3c2"},
        {"one more at the beginning", "1b 1c.", "1a 1b 1c.", "-a1 b1b2 c2c3"},
        {"one more at the end", "1a 1b.", "1a.", "a1a1 b2-"},
        {"another one", "1a 1b 1c.", "1a 1x 1c.", "a1a1 b2x2 c3c3"},
        {"all others", "1a 1b.", "1x 1y.", "a1x1 b2y2"},
        {"two for one", "1a 1b 1b 1c.", "1a 1x 1c.", "a1a1 b2x2 b3- c4c3"},
        {"no end of the connection", "1a 1b", "1a 1b", "a1a1 b2b2"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Aligned(c.a, c.b), c.pairs);
    }
}

TEST(Alignment, PairsConnectionsByHowTheyBegin) {
    EXPECT_EQ(Aligned("1a 2a 1b 2c 1d. 2e.", "1a 2a 1c 2b 1e. 2d."), "a1a2 b3b4 d5d6 a2a1 c4c3 e6e5");
    EXPECT_EQ(Aligned("1a 1b. 2x 2y.", "1x 1y."), "x3x1 y4y2 a1- b2-") << "the first one has no partner";
    EXPECT_EQ(Aligned("1a 1b 1c.", "1q 1r. 2a 2b 2d."), "a1a3 b2b4 c3d5 -q1 -r2") << "most alike";
}

TEST(Alignment, HoldsNoMoreThanItsWindow) {
    // Two long recordings of which the second lacks an exchange here and there.
    constexpr std::size_t kCount = 100000;
    std::size_t read[2] = {};
    std::size_t paired[2] = {};
    const auto source = [&](std::size_t side) {
        return [&read, side](Exchange& exchange) {
            const std::size_t at = read[side]++;
            if (at >= kCount) return false;
            exchange = {};
            exchange.connection = 1;
            exchange.number = at + 1;
            exchange.kind = Exchange::kLine;
            exchange.request = std::to_string(at + (side == 1 ? at / 1000 : 0)) + "\n";
            return true;
        };
    };
    Alignment alignment(source(0), source(1));
    std::size_t most = 0;
    std::size_t same = 0;
    for (ExchangePair pair; alignment.Next(pair);) {
        paired[0] += pair.a ? 1 : 0;
        paired[1] += pair.b ? 1 : 0;
        same += pair.a && pair.b && pair.a->request == pair.b->request ? 1 : 0;
        most = std::max({most, read[0] - paired[0], read[1] - paired[1]});
    }
    EXPECT_EQ(paired[0], kCount);
    EXPECT_EQ(paired[1], kCount);
    EXPECT_GE(same, kCount - 200);
    EXPECT_LE(most, 1000U);
}
