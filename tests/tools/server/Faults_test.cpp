#include "tools/server/Faults.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;
using namespace std::chrono_literals;
using vrx::tool::Fault;
using vrx::tool::FaultPlan;
using vrx::tool::FaultStep;

/// The only fault of a list of one.
Fault One(const std::string& text) {
    std::vector<Fault> faults;
    EXPECT_EQ(vrx::tool::ParseFaults(text, faults), "");
    return faults.empty() ? Fault{} : faults[0];
}

struct ParseCase {
    const char* text;
    uint32_t bytes;
    std::chrono::milliseconds time;
};
constexpr ParseCase kFaults[] = {
    {"pieces=10", 10, 0ms},
    {"stall=500ms", 0, 500ms},
    {"stall-header=1s", 0, 1000ms},
    {"cut=0", 0, 0ms},
    {"reset", 0, 0ms},
    {"no-answer", 0, 0ms},
    {"wrong-tag", 0, 0ms},
    {"wrong-length=4294967295", 4294967295, 0ms},
    {"negative-status", 0, 0ms},
    {"text", 0, 0ms},
    {"endless-text", 0, 0ms},
    {"late=11s", 0, 11000ms},
    {"duplicate", 0, 0ms},
    {"refuse=3600s", 0, 3600000ms},
};

TEST(ParseFaults, ReadsEachScenario) {
    for (const ParseCase& c : kFaults) {
        SCOPED_TRACE(c.text);
        const Fault fault = One(c.text);
        EXPECT_NE(fault.scenario, nullptr);
        EXPECT_EQ(fault.bytes, c.bytes);
        EXPECT_EQ(fault.time, c.time);
    }
}

TEST(ParseFaults, ReadsAList) {
    std::vector<Fault> faults;
    ASSERT_EQ(vrx::tool::ParseFaults("reset,cut=20,reset", faults), "");
    ASSERT_EQ(faults.size(), 3U);
    EXPECT_EQ(faults[0].scenario, One("reset").scenario);
    EXPECT_EQ(faults[1].scenario, One("cut=1").scenario);
    EXPECT_EQ(faults[1].bytes, 20U);
    EXPECT_EQ(faults[2].scenario, One("reset").scenario);
}

TEST(ParseFaults, NamesTheFirstBadScenario) {
    for (const char* bad : {"", "boom", "reset=1", "reset=", "pieces", "pieces=", "pieces=0", "pieces=-1",
                            "pieces=4294967296", "cut=2x", "stall=5", "stall=ms", "stall=1m", "stall=-1s",
                            "late=3601s", "late=99999999999s", "text ", "Reset"}) {
        SCOPED_TRACE(bad);
        std::vector<Fault> faults(1);
        EXPECT_EQ(vrx::tool::ParseFaults("reset,"s + bad, faults),
                  "'"s + bad + "' is not a fault; --faults help lists them");
        EXPECT_EQ(faults.size(), 1U);
    }
}

TEST(DescribeFaults, NamesEveryScenario) {
    const std::string text = "\n" + vrx::tool::DescribeFaults();
    for (const ParseCase& c : kFaults) {
        const std::string name = std::string(c.text).substr(0, std::string(c.text).find('='));
        EXPECT_NE(text.find("\n" + name), text.npos) << name;
    }
}

// Status 0, both cycle words 256, one data word.
const std::string kReply = "\x03\x00\xFF\x07\x20\x00\x00\x00\x04\x00\x00\x00\x3A\x00\x00\x00"
                           "\x00\x00\x00\x00\x00\x01\x00\x00\x00\x01\x00\x00\xAA\xBB\xCC\xDD"s;
const std::string kRest = "\x04\x00\x00\x00\x3A\x00\x00\x00"
                          "\x00\x00\x00\x00\x00\x01\x00\x00\x00\x01\x00\x00\xAA\xBB\xCC\xDD"s;

/// Steps as one text: bytes as they are, the rest as <what>.
std::string Play(const Fault& fault) {
    std::string reply = kReply;
    FaultPlan plan(fault, reply);
    std::string played;
    while (const auto step = plan.Next()) {
        switch (step->kind) {
        case FaultStep::kSend:
            played += step->bytes;
            break;
        case FaultStep::kSendInPieces:
            ADD_FAILURE() << "pieces are handed out one by one";
            break;
        case FaultStep::kSendForever:
            played += "<forever " + std::to_string(step->bytes.size()) + ">";
            break;
        case FaultStep::kWait:
            played += "<wait " + std::to_string(step->time.count()) + ">";
            break;
        case FaultStep::kEnd:
            played += "<end>";
            break;
        case FaultStep::kReset:
            played += "<reset>";
            break;
        case FaultStep::kRefuse:
            played += "<refuse " + std::to_string(step->time.count()) + ">";
            break;
        }
    }
    return played;
}

struct PlanCase {
    const char* fault;
    std::string played;
};
const PlanCase kPlans[] = {
    {"pieces=12", kReply.substr(0, 12) + "<wait 1>" + kReply.substr(12, 12) + "<wait 1>" + kReply.substr(24)},
    {"pieces=32", kReply},
    {"pieces=4294967295", kReply},
    {"stall=70ms", kReply.substr(0, 16) + "<wait 70>" + kReply.substr(16)},
    {"stall-header=70ms", "\x03\x00\xFF\x07\x20\x00"s + "<wait 70>" + "\x00\x00"s + kRest},
    {"cut=20", kReply.substr(0, 20) + "<end>"},
    {"cut=0", "<end>"},
    {"cut=1000", kReply + "<end>"},
    {"reset", "<reset>"},
    {"no-answer", ""},
    {"wrong-tag", "\x04\x00\xFF\x07\x20\x00\x00\x00"s + kRest},
    {"wrong-length=16909060", "\x03\x00\xFF\x07\x04\x03\x02\x01"s + kRest},
    {"negative-status", kReply.substr(0, 16) + "\xFB\xFF\xFF\xFF" + kReply.substr(20)},
    {"text", "error: a fault on purpose\n"},
    {"endless-text", "<forever 65536>"},
    {"late=11000ms", "<wait 11000>" + kReply},
    {"duplicate", kReply + kReply},
    {"refuse=2000ms", "<refuse 2000><end>"},
};

TEST(FaultPlan, SpoilsTheReply) {
    for (const PlanCase& c : kPlans) {
        SCOPED_TRACE(c.fault);
        EXPECT_EQ(Play(One(c.fault)), c.played);
    }
}

TEST(FaultPlan, EndlessTextHasNoLineEnd) {
    std::string reply = kReply;
    FaultPlan plan(One("endless-text"), reply);
    EXPECT_EQ(plan.Next()->bytes.find_first_not_of('x'), std::string::npos);
}

TEST(FaultPlan, PointsIntoTheReplyInsteadOfCopyingIt) {
    std::string reply(1 << 20, 'r');
    for (const char* fault : {"pieces=1", "stall=1s", "cut=9", "late=1s", "duplicate", "wrong-tag"}) {
        SCOPED_TRACE(fault);
        FaultPlan plan(One(fault), reply);
        while (const auto step = plan.Next()) {
            if (step->kind != FaultStep::kSend) continue;
            ASSERT_GE(step->bytes.data(), reply.data());
            ASSERT_LE(step->bytes.data() + step->bytes.size(), reply.data() + reply.size());
        }
    }
}

/// The scenario each of the next `count` replies gets, '-' for none.
std::string Rolls(uint64_t seed, uint64_t connection, double chance, size_t count = 64) {
    const std::vector<Fault> faults{One("reset"), One("text")};
    vrx::tool::FaultDice dice(seed, connection);
    std::string rolls;
    while (rolls.size() < count) {
        const Fault* fault = dice.Roll(faults, chance);
        rolls += fault == nullptr ? '-' : fault->scenario == faults[0].scenario ? 'r' : 't';
    }
    return rolls;
}

TEST(FaultDice, RepeatsItselfForTheSameSeedAndConnection) {
    EXPECT_EQ(Rolls(1, 0, 0.5), Rolls(1, 0, 0.5));
    EXPECT_NE(Rolls(1, 0, 0.5), Rolls(2, 0, 0.5));
    EXPECT_NE(Rolls(1, 0, 0.5), Rolls(1, 1, 0.5));
    EXPECT_NE(Rolls(1, 0, 0.5), Rolls(uint64_t{1} << 32, 0, 0.5));
}

TEST(FaultDice, KeepsToTheChance) {
    EXPECT_EQ(Rolls(7, 0, 0), std::string(64, '-'));
    EXPECT_EQ(Rolls(7, 0, 1).find('-'), std::string::npos);
    EXPECT_NE(Rolls(7, 0, 1).find('r'), std::string::npos);
    EXPECT_NE(Rolls(7, 0, 1).find('t'), std::string::npos);
    const std::string some = Rolls(7, 0, 0.25, 10000);
    EXPECT_NEAR(static_cast<double>(std::count(some.begin(), some.end(), '-')), 7500, 250);
}

TEST(FaultDice, HasNothingToRollWithoutFaults) {
    vrx::tool::FaultDice dice(1, 1);
    EXPECT_EQ(dice.Roll({}, 1), nullptr);
}

} // namespace
