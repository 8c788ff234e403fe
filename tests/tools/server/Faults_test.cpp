#include "tools/server/Faults.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;
using namespace std::chrono_literals;
using vrx::tool::Fault;
using vrx::tool::FaultStep;

struct ParseCase {
    const char* text;
    Fault::Kind kind;
    uint32_t bytes;
    std::chrono::milliseconds time;
};
constexpr ParseCase kFaults[] = {
    {"pieces=10", Fault::kPieces, 10, 0ms},
    {"stall=500ms", Fault::kStall, 0, 500ms},
    {"stall-header=1s", Fault::kStallHeader, 0, 1000ms},
    {"cut=0", Fault::kCut, 0, 0ms},
    {"reset", Fault::kReset, 0, 0ms},
    {"no-answer", Fault::kNoAnswer, 0, 0ms},
    {"wrong-tag", Fault::kWrongTag, 0, 0ms},
    {"wrong-length=4294967295", Fault::kWrongLength, 4294967295, 0ms},
    {"negative-status", Fault::kNegativeStatus, 0, 0ms},
    {"text", Fault::kText, 0, 0ms},
    {"endless-text", Fault::kEndlessText, 0, 0ms},
    {"late=11s", Fault::kLate, 0, 11000ms},
    {"duplicate", Fault::kDuplicate, 0, 0ms},
    {"refuse=3600s", Fault::kRefuse, 0, 3600000ms},
};

TEST(ParseFaults, ReadsEachScenario) {
    for (const ParseCase& c : kFaults) {
        SCOPED_TRACE(c.text);
        std::vector<Fault> faults;
        ASSERT_EQ(vrx::tool::ParseFaults(c.text, faults), "");
        ASSERT_EQ(faults.size(), 1U);
        EXPECT_EQ(faults[0].kind, c.kind);
        EXPECT_EQ(faults[0].bytes, c.bytes);
        EXPECT_EQ(faults[0].time, c.time);
    }
}

TEST(ParseFaults, ReadsAList) {
    std::vector<Fault> faults;
    ASSERT_EQ(vrx::tool::ParseFaults("reset,cut=20,reset", faults), "");
    ASSERT_EQ(faults.size(), 3U);
    EXPECT_EQ(faults[1].kind, Fault::kCut);
    EXPECT_EQ(faults[1].bytes, 20U);
    EXPECT_EQ(faults[2].kind, Fault::kReset);
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
    std::string played;
    for (const FaultStep& step : vrx::tool::PlanFault(fault, kReply)) {
        switch (step.kind) {
        case FaultStep::kSend:
            played += step.bytes;
            break;
        case FaultStep::kSendForever:
            played += "<forever " + std::to_string(step.bytes.size()) + ">";
            break;
        case FaultStep::kWait:
            played += "<wait " + std::to_string(step.time.count()) + ">";
            break;
        case FaultStep::kEnd:
            played += "<end>";
            break;
        case FaultStep::kReset:
            played += "<reset>";
            break;
        case FaultStep::kRefuse:
            played += "<refuse " + std::to_string(step.time.count()) + ">";
            break;
        }
    }
    return played;
}

struct PlanCase {
    Fault fault;
    std::string played;
};
const PlanCase kPlans[] = {
    {{Fault::kPieces, 12, 0ms},
     kReply.substr(0, 12) + "<wait 1>" + kReply.substr(12, 12) + "<wait 1>" + kReply.substr(24)},
    {{Fault::kPieces, 32, 0ms}, kReply},
    {{Fault::kPieces, 4294967295, 0ms}, kReply},
    {{Fault::kStall, 0, 70ms}, kReply.substr(0, 16) + "<wait 70>" + kReply.substr(16)},
    {{Fault::kStallHeader, 0, 70ms}, "\x03\x00\xFF\x07\x20\x00"s + "<wait 70>" + "\x00\x00"s + kRest},
    {{Fault::kCut, 20, 0ms}, kReply.substr(0, 20) + "<end>"},
    {{Fault::kCut, 0, 0ms}, "<end>"},
    {{Fault::kCut, 1000, 0ms}, kReply + "<end>"},
    {{Fault::kReset, 0, 0ms}, "<reset>"},
    {{Fault::kNoAnswer, 0, 0ms}, ""},
    {{Fault::kWrongTag, 0, 0ms}, "\x04\x00\xFF\x07\x20\x00\x00\x00"s + kRest},
    {{Fault::kWrongLength, 0x01020304, 0ms}, "\x03\x00\xFF\x07\x04\x03\x02\x01"s + kRest},
    {{Fault::kNegativeStatus, 0, 0ms}, kReply.substr(0, 16) + "\xFB\xFF\xFF\xFF" + kReply.substr(20)},
    {{Fault::kText, 0, 0ms}, "error: a fault on purpose\n"},
    {{Fault::kEndlessText, 0, 0ms}, "<forever 65536>"},
    {{Fault::kLate, 0, 11000ms}, "<wait 11000>" + kReply},
    {{Fault::kDuplicate, 0, 0ms}, kReply + kReply},
    {{Fault::kRefuse, 0, 2000ms}, "<refuse 2000><end>"},
};

TEST(PlanFault, SpoilsTheReply) {
    for (const PlanCase& c : kPlans) {
        SCOPED_TRACE(c.fault.kind);
        EXPECT_EQ(Play(c.fault), c.played);
    }
}

TEST(PlanFault, EndlessTextHasNoLineEnd) {
    const auto steps = vrx::tool::PlanFault({Fault::kEndlessText, 0, 0ms}, kReply);
    EXPECT_EQ(steps.at(0).bytes.find_first_not_of('x'), std::string::npos);
}

/// The scenario each of the next `count` replies gets, '-' for none.
std::string Rolls(uint64_t seed, uint64_t connection, double chance, size_t count = 64) {
    const std::vector<Fault> faults{{Fault::kReset, 0, 0ms}, {Fault::kText, 0, 0ms}};
    vrx::tool::FaultDice dice(seed, connection);
    std::string rolls;
    while (rolls.size() < count) {
        const Fault* fault = dice.Roll(faults, chance);
        rolls += fault == nullptr ? '-' : fault->kind == Fault::kReset ? 'r' : 't';
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
