#include "base/internal/LittleEndian.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::string_literals;

TEST(LittleEndian, LoadsWordsAtAnyAddress) {
    const char bytes[] = "\x01\x02\x03\x84\x85\xFF";
    EXPECT_EQ(vrx::LoadLe16(bytes), 0x0201u);
    EXPECT_EQ(vrx::LoadLe16(bytes + 3), 0x8584u);
    EXPECT_EQ(vrx::LoadLe32(bytes), 0x84030201u);
    EXPECT_EQ(vrx::LoadLe32(bytes + 1), 0x85840302u);
    EXPECT_EQ(vrx::LoadLe32(bytes + 2), 0xFF858403u);
}

TEST(LittleEndian, WritesFieldsOneBehindTheOther) {
    std::string bytes(18, '#');
    vrx::LeWriter to(bytes.data());
    to.U16(0x0102);
    to.U32(0xF3040506);
    to.Raw("text", 4);
    to.Raw(nullptr, 0);
    to.Part("xyz", 1);
    to.U16(0xFFFE);
    EXPECT_EQ(bytes, "\x02\x01"
                     "\x06\x05\x04\xF3"
                     "text"
                     "x"
                     "\xFE\xFF"
                     "\0" // the end of what the part left behind
                     "####"s);
}

} // namespace
