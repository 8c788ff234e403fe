#include "tools/capture/ExchangeComparer.h"

#include "tests/tools/capture/Requests.h"

#include <bit>
#include <gtest/gtest.h>
#include <limits>
#include <string>

using namespace vrx::tool;

namespace {

Exchange Make(std::string request, std::vector<std::string> pieces, ServerEnd end = ServerEnd::kStays) {
    Exchange exchange;
    exchange.kind = request.starts_with("\x03") ? Exchange::kPacket
                    : request.ends_with('\n')   ? Exchange::kLine
                    : request.empty()           ? Exchange::kNothing
                                                : Exchange::kBytes;
    exchange.request = std::move(request);
    for (std::string& piece : pieces) exchange.reply.push_back({0, std::move(piece)});
    exchange.end = end;
    exchange.whole = true;
    return exchange;
}

std::string Told(const std::optional<Difference>& difference) {
    return difference ? difference->what + ": " + difference->a.text + " / " + difference->b.text : "same";
}

std::uint32_t Word(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

std::string Block(const std::vector<float>& samples) {
    std::vector<std::uint32_t> words;
    for (const float sample : samples) words.push_back(Word(sample));
    return BlockRequest(words);
}

const Exchange kPins = [] {
    std::string request = BlockRequest({0, 0, 0, 0});
    const std::string objects = "-1,In.info1,Out.info1";
    request = request.substr(0, 36) + objects + std::string(3, '\0');
    request[4] = 60;
    request[16] = 5;
    return Make(request, {BlockReply({(480U << 10) | 2U, (480U << 10) | 2U})}); // integers, two channels
}();

} // namespace

TEST(ExchangeComparer, SaysWhatDiffersFirst) {
    const std::string block = Block({0.5F, 0.25F});
    const std::string other = Block({0.5F, 0.125F});
    std::string elsewhere = block;
    elsewhere.replace(elsewhere.find("Main"), 4, "Mine");
    const std::string reply = BlockReply({Word(0.5F), Word(-1.0F)});
    struct Case {
        const char* name;
        Exchange a;
        Exchange b;
        const char* told;
    };
    const Case cases[] = {
        {"the same", Make(block, {reply}), Make(block, {reply}), "same"},
        {"other pieces", Make(block, {reply}), Make(block, {reply.substr(0, 5), reply.substr(5)}), "same"},
        {"other cycles", Make(block, {reply}), Make(block, {BlockReply({Word(0.5F), Word(-1.0F)}, 0, 77)}),
         "same"},
        {"other ports", Make("connect,a,1\n", {"connected\n"}), Make("connect,b,2\n", {"connected\n"}),
         "same"},
        {"other uptime", Make("status\n", {"packets=1 uptime=2.5s\n"}),
         Make("status\n", {"packets=1 uptime=3.0s\n"}), "same"},
        {"another count", Make("status\n", {"packets=1 uptime=2.5s\n"}),
         Make("status\n", {"packets=2 uptime=2.5s\n"}),
         "reply text: 'packets=1 uptime=*s' / 'packets=2 uptime=*s'"},
        {"other times in JSON", Make("x\n", {"{\"uptime_s\":1,\"uptime\": 2.5,\"busy\":3}\n"}),
         Make("x\n", {"{\"uptime_s\":1,\"uptime\": 9,\"busy\":4}\n"}), "same"},
        {"a time of a million digits", Make("x\n", {"uptime=" + std::string(1'000'000, '1') + "\n"}),
         Make("x\n", {"uptime=2\n"}), "same"},
        {"a time without a figure", Make("x\n", {"uptime=a busy"}), Make("x\n", {"uptime=b busy"}),
         "reply text: 'uptime=a busy' / 'uptime=b busy'"},
        {"a difference far behind", Make("x\n", {std::string(60, 'x') + "=1\n"}),
         Make("x\n", {std::string(60, 'x') + "=23\n"}),
         "reply text from byte 46: 'xxxxxxxxxxxxxxx=1' / 'xxxxxxxxxxxxxxx=23'"},
        {"other text", Make("help\n", {}), Make("status\n", {}), "request text: 'help' / 'status'"},
        {"another kind", Make("help\n", {}), Make(block, {}),
         "request: the text 'help' / a block of 2 words"},
        {"other samples", Make(block, {reply}), Make(other, {reply}), "request frame 2: 0.25 / 0.125"},
        {"other objects", Make(block, {}), Make(elsewhere, {}),
         "request objects: 'Main,In.samples[0],Out.samples[0]' / 'Mine,In.samples[0],Out.samples[0]'"},
        {"another size", Make(block, {}), Make(Block({0.5F}), {}), "request argument words: 3 / 2"},
        {"garbage", Make("\x01\x02", {}), Make("\x01\x03", {}), "request byte 2: 2 / 3"},
        {"another status", Make(block, {reply}),
         Make(block, {BlockReply({Word(0.5F), Word(-1.0F)}, 0xFFFFFFFB)}), "reply status: 0 / -5"},
        {"another sample", Make(block, {reply}), Make(block, {BlockReply({Word(0.5F), Word(1.0F)})}),
         "reply frame 2: -1 / 1"},
        {"a shorter reply", Make(block, {reply}), Make(block, {reply.substr(0, 32)}),
         "reply size: 36 bytes / 32 bytes"},
        {"no reply", Make(block, {reply}), Make(block, {}), "reply: a packet of 36 bytes / nothing"},
        {"a second copy", Make(block, {reply}), Make(block, {reply + reply}),
         "reply: nothing / a packet of 36 bytes"},
        {"the same copies", Make(block, {reply + BlockReply({Word(0.5F), Word(-1.0F)}, 0, 9)}),
         Make(block, {reply + reply}), "same"},
        {"a text", Make(block, {reply}), Make(block, {"error: no\n"}),
         "reply: a packet of 36 bytes / the text 'error: no'"},
        {"another tag", Make(block, {reply}), Make(block, {"\x04" + reply.substr(1)}),
         "reply tag: 134152195 / 134152196"},
        {"an end", Make(block, {reply}, ServerEnd::kCloses), Make(block, {reply}),
         "end of the connection: the server closes it / it stays open"},
        {"another end", Make(block, {}, ServerEnd::kCloses), Make(block, {}, ServerEnd::kResets),
         "end of the connection: the server closes it / the server resets it"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Told(ExchangeComparer({}).Compare(c.a, c.b)), c.told);
        if (std::string(c.told) == "same") {
            EXPECT_EQ(RequestKey(c.a), RequestKey(c.b));
        }
    }
}

TEST(ExchangeComparer, AReplyNobodyWaitedForCountsAsFarAsItCame) {
    Exchange cut = Make("x\n", {std::string(1000, 'x')});
    cut.cut = true;
    EXPECT_EQ(Told(ExchangeComparer({}).Compare(cut, Make("x\n", {std::string(3000, 'x')}))), "same");
    EXPECT_EQ(Told(ExchangeComparer({}).Compare(Make("x\n", {std::string(3000, 'x')}), cut)), "same");
    EXPECT_NE(Told(ExchangeComparer({}).Compare(cut, Make("x\n", {std::string(3000, 'y')}))), "same");
}

TEST(ExchangeComparer, ToleratesWhatLiesBelowTheTolerance) {
    const float step = 0x1p-15F; // -90.3 dB
    const Exchange a = Make(Block({0}), {BlockReply({Word(0.5F), Word(0.25F)})});
    const Exchange b = Make(Block({0}), {BlockReply({Word(0.5F + step), Word(0.25F)})});
    ExchangeComparer tolerant(-90);
    EXPECT_EQ(Told(tolerant.Compare(a, b)), "same");
    EXPECT_EQ(tolerant.Signals().samples, 2U);
    EXPECT_EQ(tolerant.Signals().differing, 0U);
    EXPECT_EQ(tolerant.Signals().largest, step);
    ExchangeComparer strict(-91);
    EXPECT_EQ(Told(strict.Compare(a, b)), "reply frame 1: 0.5 / 0.5000305");
    EXPECT_EQ(strict.Signals().differing, 1U);
}

TEST(ExchangeComparer, WhatIsNoNumberIsNeverClose) {
    const float none = std::numeric_limits<float>::quiet_NaN();
    const Exchange a = Make(Block({0}), {BlockReply({Word(none)})});
    const Exchange b = Make(Block({0}), {BlockReply({Word(0)})});
    EXPECT_NE(Told(ExchangeComparer(200).Compare(a, b)), "same");
    EXPECT_EQ(Told(ExchangeComparer({}).Compare(a, a)), "same");
}

TEST(ExchangeComparer, LearnsTheSamplesFromThePins) {
    ExchangeComparer comparer({});
    EXPECT_EQ(Told(comparer.Compare(kPins, kPins)), "same");
    const Exchange a = Make(BlockRequest({1, 2, 3, 4}), {BlockReply({1, 2, 3, 4})});
    const Exchange b = Make(BlockRequest({1, 2, 3, 4}), {BlockReply({1, 2, 3, 0xFFFFFFFF})});
    EXPECT_EQ(Told(comparer.Compare(a, b)), "reply frame 2, channel 2: 4 / -1");
    EXPECT_EQ(comparer.Signals().samples, 4U) << "pins are no signal";
    EXPECT_EQ(
        Told(ExchangeComparer(200).Compare(kPins, Make(kPins.request, {BlockReply({(480U << 10) | 2U, 3})}))),
        "reply output pin: 491522 / 3");
}
