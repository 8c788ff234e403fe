#include "base/BaseHelpers.h"
#include "talker/CVRXTalker.h"
#include "tcpio/CTcpIOTalk.h"

#include "tests/support/NoMemory.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>

namespace {

using enum CTcpIOTalk::Result;

/// Runs `operation` with its first allocation failing, then its second, and so on until none is left to fail.
/// Nothing but the standard exception may come out; leaks are for the sanitizers to find.
/// Returns how many allocations failed in turn.
size_t FailEachAllocationOf(const std::function<void()>& operation) {
    for (size_t number = 0;; ++number) {
        const FailAllocation failing(number);
        try {
            operation();
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(failing.Failed());
        }
        if (!failing.Failed()) return number;
        if (number > 100000) {
            ADD_FAILURE() << "the allocations never end";
            return number;
        }
    }
}

/// A server for any number of connections: answers each line, and each packet with 64 words.
void Serve(Peer& peer) {
    for (std::string start = peer.Read(1); !start.empty(); start = peer.Read(1)) {
        if (start != "\x03") {
            peer.ReadLine();
            peer.Send("hello\n");
            continue;
        }
        const std::string head = peer.Read(7);
        const auto byte = [&](size_t at) { return static_cast<unsigned char>(head[at]); };
        peer.Read(byte(3) + 256u * byte(4) - 8);
        std::string reply = Words({0x07FF0003, 28 + 4 * 64, 0, 0, 0, 0, 0});
        for (unsigned word = 0; word < 64; ++word) reply += Words({word});
        peer.Send(reply);
    }
}

class TalkerWithoutMemory : public testing::Test {
protected:
    TalkerWithoutMemory() : m_server(std::vector<ScriptedServer::Script>(200, Serve)) {
        // Long names keep every string on the heap.
        m_args = "server=127.0.0.1,servport=" + std::to_string(m_server.Port()) +
                 ",clport=7001,input=" + std::string(40, 'i') + ",output=" + std::string(40, 'o') +
                 ",layout=" + std::string(40, 'l');
    }

    ScriptedServer m_server;
    std::string m_args;
};

TEST_F(TalkerWithoutMemory, FactoryAndConfigure) {
    const size_t failures = FailEachAllocationOf([&] {
        const std::unique_ptr<CVRXTalker> talker(TalkerFactory());
        EXPECT_TRUE(talker->Configure(m_args.c_str()));
    });
    EXPECT_GT(failures, 10u);
}

TEST_F(TalkerWithoutMemory, TalkerStaysUsableAfterEachFailure) {
    const std::unique_ptr<CVRXTalker> talker(TalkerFactory());
    ASSERT_TRUE(talker->Configure(m_args.c_str()));
    std::vector<unsigned> out(64);
    unsigned pins[6];
    std::string reply;
    const auto everything = [&] {
        EXPECT_TRUE(talker->Configure(m_args.c_str()));
        EXPECT_EQ(talker->PumpAudio(out.data(), out.data(), 64, 64), 0);
        EXPECT_EQ(talker->PinProps(pins[0], pins[1], pins[2], pins[3], pins[4], pins[5]), 0);
        EXPECT_EQ(talker->SendMessage("a text that is long enough for the heap", reply), kReplied);
        EXPECT_EQ(reply, "hello");
    };
    const size_t failures = FailEachAllocationOf([&] {
        everything();
        out.assign(64, 0);
    });
    EXPECT_GT(failures, 8u);
    everything();
    EXPECT_EQ(out[63], 63u);
}

TEST_F(TalkerWithoutMemory, ChannelInTextAndCollectingMode) {
    const auto talk = std::make_unique<CTcpIOTalk>();
    std::string reply;
    void* data;
    int length;
    const std::string packet = Words({0x07FF0003, 20, 1, 0x3A, 3});
    const auto* bytes = reinterpret_cast<const unsigned char*>(packet.data());
    const auto both = [&] {
        EXPECT_EQ(talk->SendTcpMessage("localhost", m_server.Port(), "hi", reply, data, length, 1000), 1);
        EXPECT_EQ(reply, "hello");
        std::string().swap(reply);
        EXPECT_EQ(talk->SendBinaryMessage("localhost", m_server.Port(), bytes, 20, reply, data, length, 1000,
                                          false),
                  1);
        EXPECT_EQ(length, 284);
        std::string().swap(reply);
    };
    FailEachAllocationOf([&] {
        talk->KillSocket();
        both();
    });
    both();
    FailEachAllocationOf([&] { (void)talk->GetIPAddress(0); });
    // Replies of 284 bytes, far from the 8,188 that their first word announces: the second receive times out.
    FailEachAllocationOf([&] {
        const int result = talk->SendBinaryMessage("127.0.0.1", m_server.Port() - 65536, bytes, 20, reply,
                                                   data, length, 10, true);
        EXPECT_TRUE(result == kReplied || result == kTimedOut) << result;
    });
    both();
}

TEST(ToolkitWithoutMemory, EachOperation) {
    const TemporaryFolder folder;
    const std::string file = folder / "lines.txt";
    const std::string longText =
        "  The quick \"brown\" fox; jumps = over & the <lazy> dog, again and again  ";
    const std::string rows =
        "alpha beta gamma delta,\"quoted, long enough for the heap\",last one in the row here";
    const std::map<std::string, std::string> macros = {{"name", "a value that is long enough for the heap"},
                                                       {"outer", "before $name$ after, again long enough"}};
    string_vector list;
    list.assign({"[Section of a name that is long]", "key = value that is long enough for the heap", "",
                 "[Other section, also long enough]", "z=1"});
    ASSERT_TRUE(list.SaveToFile(file.c_str()));
    string_vector work = list;
    string_map settings;
    std::string out;
    const std::vector<std::function<void()>> operations = {
        [&] { settings.Split("server=a long name of a server for the heap,key=another long value here", 0); },
        [&] { work.Split(longText.c_str(), " ", '"'); },
        [&] { work.LoadFromFile(file.c_str()); },
        [&] {
            work.LoadFromString("first line that is long enough\nsecond line that is long enough\r\nthird");
        },
        [&] { work.SaveToFile(file.c_str()); },
        [&] { work.SaveToString(out, true); },
        [&] { (void)work.findwild("*no such line, and long enough*", 0); },
        [&] { (void)list.GetProfileStr("Section of a name that is long", "key ", nullptr); },
        [&] {
            work = list;
            work.WriteProfileStr("Section of a name that is long", "new key, long enough for the heap",
                                 "value");
            work.WriteProfileIntg("A section that is not there at all", "number", 5);
        },
        [&] { work.loadFromCSVString(rows.c_str(), true, ',', '"'); },
        [&] { (void)list.saveToCSVString(0, true, ',', '"'); },
        [&] { (void)String::Format("%s and %d, all of it long enough for the heap", "text", 5); },
        [&] { (void)String::FormatDateTime(1000000000, 0x21); },
        [&] {
            out = longText;
            String::ToUpper(out);
            String::ToLower(out);
            String::TrimLeft(out);
            String::TrimRight(out, true);
            String::Trim(out);
        },
        [&] { (void)String::Replace(longText, "a", "something much longer than the letter"); },
        [&] { (void)String::Merge(list, ", and then "); },
        [&] {
            std::string capture;
            (void)String::CompareWild(longText, "*o*o*a*z", &capture);
        },
        [&] {
            for (int encoding = 0; encoding <= 5; ++encoding) {
                String::Encode(out, longText, static_cast<String::Encoding>(encoding));
                String::Decode(out, out, static_cast<String::Encoding>(encoding));
            }
        },
        [&] { (void)String::ExpandIdentifier("name and outer, name and outer", macros, nullptr); },
        [&] {
            (void)String::ExpandDelimited(out, "$outer$ and $nothing at all of that name$ $", macros, true,
                                          '$');
        },
        [&] {
            std::vector<std::string> words;
            String::Split(words, longText, " ");
            String::SplitQuoted(words, longText);
        },
        [&] { (void)String::SymmetricEncrypt(5, "a key", longText.c_str()); },
    };
    for (size_t i = 0; i < operations.size(); ++i) {
        SCOPED_TRACE(i);
        std::string().swap(out); // so that it has to allocate
        EXPECT_GT(FailEachAllocationOf([&] {
                      std::string().swap(out);
                      string_vector().swap(work);
                      work = list;
                      operations[i]();
                  }),
                  0u);
    }
    // The sorts do without memory for their buffer.
    for (const auto sort :
         {&string_vector::sort, &string_vector::sortrev, &string_vector::sorti, &string_vector::sortirev}) {
        string_vector wanted = list;
        (wanted.*sort)(0);
        FailEachAllocationOf([&] {
            work.swap(work);
            (work.*sort)(0);
        });
        work = list;
        {
            const NoMemory none;
            (work.*sort)(0);
        }
        EXPECT_EQ(work, wanted);
    }
}

} // namespace
