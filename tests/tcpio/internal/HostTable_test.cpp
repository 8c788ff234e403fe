#include "tcpio/internal/HostTable.h"

#include "tests/support/SystemCalls.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

/// A host entry as the resolver hands it out, with storage of its own.
struct Entry {
    std::string name;
    Texts aliases;
    Texts addresses;
    std::vector<char*> aliasList;
    std::vector<char*> addressList;
    hostent host{};

    hostent* Fill() {
        const auto list = [](Texts& texts) {
            std::vector<char*> pointers;
            for (std::string& text : texts) pointers.push_back(text.data());
            pointers.push_back(nullptr);
            return pointers;
        };
        aliasList = list(aliases);
        addressList = list(addresses);
        host = {name.data(), aliasList.data(), AF_INET, 4, addressList.data()};
        return &host;
    }
};

class HostTable : public testing::Test {
protected:
    void SetUp() override {
        calls::Reset();
        calls::AnswerLookUps([this](const char*) { return m_answer.Fill(); });
    }
    void TearDown() override { calls::Reset(); }

    static Texts Strings(char** list, size_t size = 0) {
        Texts texts;
        for (; *list; ++list) texts.push_back(size > 0 ? std::string(*list, size) : std::string(*list));
        return texts;
    }

    Entry m_answer{"real.name", {"alias", "other alias"}, {"\x7F\1\2\3", "\x7F\4\5\6"}, {}, {}};
};

TEST_F(HostTable, CopyHoldsEverythingOfTheEntry) {
    const hostent* copy = vrx::LookUpHost("alias");
    m_answer = {"overwritten", {}, {}, {}, {}};
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy->h_name, "real.name");
    EXPECT_EQ(Strings(copy->h_aliases), (Texts{"alias", "other alias"}));
    EXPECT_EQ(copy->h_addrtype, AF_INET);
    EXPECT_EQ(copy->h_length, 4);
    EXPECT_EQ(Strings(copy->h_addr_list, 4), (Texts{"\x7F\1\2\3", "\x7F\4\5\6"}));
}

TEST_F(HostTable, EqualAnswersShareOneCopyAndOthersDoNot) {
    const hostent* copy = vrx::LookUpHost("name");
    EXPECT_EQ(vrx::LookUpHost("other"), copy);
    const Entry others[] = {
        {"other.name", m_answer.aliases, m_answer.addresses, {}, {}},
        {m_answer.name, {"alias"}, m_answer.addresses, {}, {}},
        {m_answer.name, m_answer.aliases, {"\x7F\1\2\3"}, {}, {}},
        {m_answer.name, m_answer.aliases, {"\x7F\4\5\6", "\x7F\1\2\3"}, {}, {}},
    };
    for (const Entry& other : others) {
        m_answer = other;
        EXPECT_NE(vrx::LookUpHost("name"), copy);
    }
}

TEST_F(HostTable, MissingPartsAreEmpty) {
    calls::AnswerLookUps([](const char*) {
        static hostent bare{nullptr, nullptr, AF_INET, 4, nullptr};
        return &bare;
    });
    const hostent* copy = vrx::LookUpHost("name");
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy->h_name, "");
    EXPECT_EQ(copy->h_aliases[0], nullptr);
    EXPECT_EQ(copy->h_addr_list[0], nullptr);
}

} // namespace
