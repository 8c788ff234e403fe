#include "base/BaseHelpers.h"
#include "talker/CVRXTalker.h"
#include "tcpio/CTcpIOTalk.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <memory>

namespace {

TEST(Abi, TalkerComesFromTheLoadedPlugInByItsMangledName) {
    void* library = dlopen(VRX_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto* const factory = reinterpret_cast<CVRXTalker* (*)()>(dlsym(library, "_Z13TalkerFactoryv"));
    ASSERT_NE(factory, nullptr) << dlerror();
    EXPECT_EQ(dlsym(library, "TalkerFactory"), nullptr);
    std::unique_ptr<CVRXTalker> talker(factory());
    EXPECT_EQ(talker->GetAverageCycles(), 0.0f);
    EXPECT_FALSE(talker->Configure(""));
    talker.reset();
    EXPECT_EQ(dlclose(library), 0);
}

// Hosts call by slot number, whatever their own header says.
TEST(Abi, SlotsComeInTheirOrder) {
    std::unique_ptr<CVRXTalker> talker(TalkerFactory());
    void* const* const slots = *reinterpret_cast<void***>(talker.get());
    using Cycles = float (*)(const CVRXTalker*);
    using Config = bool (*)(CVRXTalker*, const char*);
    using Pump = int (*)(CVRXTalker*, const void*, void*, unsigned, unsigned);
    using Pins = int (*)(CVRXTalker*, unsigned&, unsigned&, unsigned&, unsigned&, unsigned&, unsigned&);
    using Message = int (*)(CVRXTalker*, const char*, std::string&);
    unsigned pin = 0;
    std::string reply;
    testing::internal::CaptureStdout();
    EXPECT_EQ(reinterpret_cast<Cycles>(slots[2])(talker.get()), 0.0f);
    EXPECT_EQ(reinterpret_cast<Cycles>(slots[3])(talker.get()), 0.0f);
    EXPECT_FALSE(reinterpret_cast<Config>(slots[4])(talker.get(), "x"));
    EXPECT_EQ(reinterpret_cast<Pump>(slots[5])(talker.get(), nullptr, nullptr, 0, 0), -1);
    EXPECT_EQ(reinterpret_cast<Pins>(slots[6])(talker.get(), pin, pin, pin, pin, pin, pin), -1);
    EXPECT_EQ(reinterpret_cast<Message>(slots[7])(talker.get(), "x", reply), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "CVRXTalker::Configure: 'server' argument missing\n"
                                                      "CVRXTalker::PumpAudio: m_tcpio is NULL\n"
                                                      "CVRXTalker::PinProps: m_tcpio is NULL\n"
                                                      "CVRXTalker::SendMessage: m_tcpio is NULL\n");
    reinterpret_cast<void (*)(CVRXTalker*)>(slots[1])(talker.release()); // the deleting destructor
}

TEST(Abi, ChannelAndToolkitLinkFromTheSharedLibrary) {
    const std::unique_ptr<CTcpIOTalk> talk = std::make_unique<CTcpIOTalk>();
    EXPECT_EQ(talk->SendString(-1, ""), 0);
    EXPECT_EQ(CTcpIOTalk::TranslateAddress(""), nullptr);
    EXPECT_EQ(String::Format("%d", 5), "5");
    string_vector list;
    list.Split("a b", " ", 0);
    EXPECT_EQ(list.size(), 2u);
}

} // namespace
