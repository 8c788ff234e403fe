#include "tests/support/FolderTest.h"
#include "tests/tools/VrxRun.h"
#include "tests/tools/capture/Requests.h"
#include "tools/capture/CaptureWriter.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

using namespace vrx::tool;

namespace {

using Told = std::vector<std::pair<std::string, std::string>>; // requests and replies

class DiffTest : public FolderTest {
protected:
    std::string File(const char* name, const Told& exchanges, std::uint16_t port = 40000) {
        CaptureWriter writer(Path(name), true);
        std::int64_t time = port;
        writer.Open(1, {"127.0.0.1", port}, {"127.0.0.1", 7000}, ++time);
        for (const auto& [request, reply] : exchanges) {
            writer.Bytes(1, Side::kClient, ++time, request);
            writer.Bytes(1, Side::kServer, ++time, reply);
        }
        writer.Close(1, Side::kClient, ++time);
        writer.Close(1, Side::kServer, ++time);
        return Path(name);
    }
};

} // namespace

TEST_F(DiffTest, TheSameExchangesAreTheSame) {
    const std::string a =
        File("a.pcap", {{"connect,a,1\n", "connected\n"}, {BlockRequest({1}), BlockReply({2}, 0, 3)}});
    const std::string b =
        File("b.pcap", {{"connect,b,2\n", "connected\n"}, {BlockRequest({1}), BlockReply({2}, 0, 9)}}, 50000);
    const auto end = Vrx({"diff", a, b, "--json"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.out, "{\"exchanges\":2,\"same\":2,\"different\":0,\"missing\":0,\"first\":null}\n");
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(Vrx({"diff", a, b}).out, "exchanges                        2\n"
                                       "same                             2\n"
                                       "different                        0\n"
                                       "missing                          0\n"
                                       "samples                          1\n"
                                       "samples that differ              0\n"
                                       "largest distance              none\n");
}

TEST_F(DiffTest, SaysTheFirstDifferenceAndCountsAll) {
    const Told first = {{BlockRequest({1}), BlockReply({0x3F000000})},
                        {BlockRequest({2}), BlockReply({0x3F000000})},
                        {BlockRequest({3}), BlockReply({0x3F000000})}};
    const Told second = {{BlockRequest({1}), BlockReply({0x3F000000})},
                         {BlockRequest({3}), BlockReply({0x3E800000})},
                         {BlockRequest({4}), BlockReply({0x3F000000})}};
    const std::string a = File("a.pcap", first);
    const std::string b = File("b.pcap", second);
    const auto end = Vrx({"diff", a, b, "--json"});
    EXPECT_EQ(end.exitCode, 4);
    const auto json = nlohmann::json::parse(end.out);
    EXPECT_EQ(json["exchanges"], 3);
    EXPECT_EQ(json["same"], 1);
    EXPECT_EQ(json["different"], 1);
    EXPECT_EQ(json["missing"], 2);
    EXPECT_EQ(json["first"]["exchange"], 2);
    EXPECT_EQ(json["first"]["a"], "a block of 1 word");
    EXPECT_EQ(json["first"]["b"], "no such exchange");
    EXPECT_EQ(end.err, "vrx diff: exchange 2, request: a block of 1 word in " + a + ", no such exchange in " +
                           b + "\n");
}

TEST_F(DiffTest, TellsSamplesApart) {
    const std::string a = File("a.pcap", {{BlockRequest({0}), BlockReply({0x3F000000, 0x3F000000})}});
    const std::string b = File("b.pcap", {{BlockRequest({0}), BlockReply({0x3F000000, 0x3E800000})}});
    const auto end = Vrx({"diff", a, b, "--json"});
    EXPECT_EQ(end.exitCode, 4);
    EXPECT_EQ(end.out, "{\"exchanges\":1,\"same\":0,\"different\":1,\"missing\":0,\"first\":{\"exchange\":1,"
                       "\"what\":\"reply "
                       "frame 2\",\"a\":0.5,\"b\":0.25}}\n");
    EXPECT_EQ(end.err, "vrx diff: exchange 1, reply frame 2: 0.5 in " + a + ", 0.25 in " + b + "\n");
    EXPECT_EQ(Vrx({"diff", a, b, "--tolerance", "-12"}).exitCode, 0);
    EXPECT_EQ(Vrx({"diff", a, b, "--tolerance", "-13"}).exitCode, 4);
}

TEST_F(DiffTest, DrawsWhereAndHowMuchTheyDiffer) {
    const Told first = {{"help\n", "commands\n"},
                        {BlockRequest({0}), BlockReply({0x3F000000, 0x3F000000})},
                        {BlockRequest({1}), BlockReply({0x3F000000, 0x3F000000})},
                        {BlockRequest({2}), BlockReply({0}, 1)},
                        {"status\n", "ok\n"}};
    const Told second = {{"help\n", "commands\n"},
                         {BlockRequest({0}), BlockReply({0x3F000000, 0x3F000000})},
                         {BlockRequest({1}), BlockReply({0x3F000000, 0x3E800000})},
                         {BlockRequest({2}), BlockReply({0}, 2)}};
    const std::string a = File("a.pcap", first);
    const std::string b = File("<b>.pcap", second);
    const auto end = Vrx({"diff", a, b, "--tolerance", "-90", "--report", Path("page.html")});
    EXPECT_EQ(end.exitCode, 4);
    const std::string page = Bytes("page.html");
    EXPECT_NE(page.find("They differ, first in exchange 3, reply frame 2: 0.5 in "), page.npos);
    EXPECT_NE(page.find("&lt;b&gt;.pcap"), page.npos) << "names are text, not markup";
    EXPECT_EQ(page.find("<b>"), page.npos);
    EXPECT_NE(page.find("<dt>largest distance</dt><dd>-12.0 dB</dd>"), page.npos);
    EXPECT_NE(page.find("tolerance -90 dB"), page.npos);
    EXPECT_NE(page.find("at place 3 of the pictures"), page.npos);
    for (const char* once : {"class=\"retried\"", "class=\"failed\""}) {
        const std::size_t at = page.find(once);
        ASSERT_NE(at, page.npos) << once;
        EXPECT_EQ(page.find(once, at + 1), page.npos) << once;
    }
    EXPECT_EQ(page.find("http://", page.find("<body>")), page.npos) << "nothing from outside";

    const auto again = Vrx({"diff", a, a, "--report", Path("page.html")});
    EXPECT_EQ(again.exitCode, 2) << "it exists";
    EXPECT_TRUE(IsOneLine(again.err)) << again.err;
    EXPECT_EQ(again.out, "");
    EXPECT_EQ(Vrx({"diff", a, a, "--report", Path("page.html"), "--force"}).exitCode, 0);
    EXPECT_NE(Bytes("page.html").find("Both hold the same 5 exchanges."), std::string::npos);
    const std::string whole = Bytes("a.pcap");
    EXPECT_EQ(Vrx({"diff", a, b, "--report", a, "--force"}).exitCode, 1);
    EXPECT_EQ(Bytes("a.pcap"), whole) << "a recording is not overwritten";
}

TEST_F(DiffTest, SaysThatAFileIsCutOff) {
    const std::string a = File("a.pcap", {{"help\n", "commands\n"}, {"help\n", "commands\n"}});
    const std::string whole = Bytes("a.pcap");
    const std::string b = Write("b.pcap", whole.substr(0, whole.size() - 200));
    const auto end = Vrx({"diff", b, b});
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_NE(end.err.find("ends in the middle of packet"), std::string::npos) << end.err;
}

TEST_F(DiffTest, RefusesWhatIsNoCapture) {
    const std::string a = File("a.pcap", {{"help\n", "commands\n"}});
    for (const std::string& wrong : {Path("none.pcap"), Write("wrong.pcap", "wrong")}) {
        const auto end = Vrx({"diff", a, wrong});
        EXPECT_EQ(end.exitCode, 2);
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        EXPECT_EQ(end.out, "");
    }
}
