// The exact types of everything that is exported: hosts and sibling programs compile against them.

#include "base/BaseHelpers.h"
#include "talker/CVRXTalker.h"
#include "tcpio/CTcpIOTalk.h"

#include <cstdarg>
#include <gtest/gtest.h>
#include <type_traits>

namespace {

using std::string;
using Strings = std::vector<std::string>;
using Macros = std::map<std::string, std::string>;

template <class Wanted, class Given>
constexpr bool kIs = std::is_same_v<Wanted, Given>;

// ---- the talker
using Talker = CVRXTalker;
static_assert(std::is_abstract_v<Talker> && std::has_virtual_destructor_v<Talker> &&
              sizeof(Talker) == sizeof(void*));
static_assert(kIs<decltype(&TalkerFactory), Talker* (*)()>);
static_assert(kIs<decltype(&Talker::GetAverageCycles), float (Talker::*)() const>);
static_assert(kIs<decltype(&Talker::GetPumpCycles), float (Talker::*)() const>);
static_assert(kIs<decltype(&Talker::Configure), bool (Talker::*)(const char*)>);
static_assert(kIs<decltype(&Talker::PumpAudio), int (Talker::*)(const void*, void*, unsigned, unsigned)>);
static_assert(kIs<decltype(&Talker::PinProps),
                  int (Talker::*)(unsigned&, unsigned&, unsigned&, unsigned&, unsigned&, unsigned&)>);
static_assert(kIs<decltype(&Talker::SendMessage), int (Talker::*)(const char*, string&)>);

static_assert(kIs<std::underlying_type_t<Talker::Result>, int> && Talker::kReplied == 1 &&
              Talker::kNoConnection == -1 && Talker::kNotAPacket == -1000 && Talker::kPeerClosed == -9995 &&
              Talker::kReceiveFailed == -9996 && Talker::kSendFailed == -9997 && Talker::kTimedOut == -9999);

// ---- the channel
using Talk = CTcpIOTalk;
static_assert(std::is_default_constructible_v<Talk> && !std::is_polymorphic_v<Talk>);
static_assert(kIs<decltype(&Talk::TranslateAddress), hostent* (*)(const char*)>);
static_assert(kIs<decltype(&Talk::SetHostEnt), void (Talk::*)(const char*, int)>);
static_assert(kIs<decltype(&Talk::MakeSocket), void (Talk::*)()>);
static_assert(kIs<decltype(&Talk::ConnectSocket), void (Talk::*)(unsigned int)>);
static_assert(kIs<decltype(&Talk::KillSocket), void (Talk::*)()>);
static_assert(kIs<decltype(&Talk::SendString), int (Talk::*)(int, const char*)>);
static_assert(kIs<decltype(&Talk::TimerThread), int (Talk::*)()>);
static_assert(kIs<decltype(&Talk::GetBinaryMessage), int (Talk::*)(string&, void*&, int&, int, bool)>);
static_assert(kIs<decltype(&Talk::SendTcpMessage),
                  int (Talk::*)(const char*, int, const char*, string&, void*&, int&, int)>);
static_assert(kIs<decltype(&Talk::SendBinaryMessage), int (Talk::*)(const char*, int, const unsigned char*,
                                                                    int, string&, void*&, int&, int, bool)>);
static_assert(kIs<decltype(&Talk::GetIPAddress), string (Talk::*)(int)>);

// ---- files
static_assert(kIs<decltype(&strNcpy), char* (*)(char*, const char*, size_t)>);
static_assert(std::has_virtual_destructor_v<File2> && std::is_default_constructible_v<File2>);
static_assert(std::is_constructible_v<File2, FILE*> &&
              std::is_constructible_v<File2, const char*, const char*, int>);
static_assert(kIs<decltype(&File2::open), bool (File2::*)(const char*, const char*)>);
static_assert(kIs<decltype(&File2::close), void (File2::*)()>);
static_assert(kIs<decltype(&File2::tell), int (File2::*)()>);
static_assert(kIs<decltype(&File2::seek), int (File2::*)(int, int)>);
static_assert(kIs<decltype(&File2::getLength), long (File2::*)()>);
static_assert(kIs<decltype(&File2::flush), bool (File2::*)()>);
static_assert(kIs<decltype(&File2::setBuffer), bool (File2::*)(void*, size_t)>);
static_assert(kIs<decltype(&File2::writeChar), int (File2::*)(int)>);
static_assert(kIs<decltype(&File2::read), size_t (File2::*)(void*, size_t)>);
constexpr long (File2::*kPrint)(const char*,
                                ...) = &File2::printf; // attributes do not go into template arguments
static_assert(kIs<decltype(&File2::fgets), bool (File2::*)(string&, bool, bool)>);

static_assert(std::is_constructible_v<CWaveReader, const char*> &&
              std::is_trivially_destructible_v<CWaveReader>);
static_assert(kIs<decltype(&CWaveReader::Open), int (CWaveReader::*)()>);
static_assert(kIs<decltype(&CWaveReader::Close), int (CWaveReader::*)()>);
static_assert(kIs<decltype(&CWaveReader::Rewind), int (CWaveReader::*)()>);
static_assert(kIs<decltype(&CWaveReader::ReadSamples), int (CWaveReader::*)(void*, unsigned int)>);
static_assert(std::is_constructible_v<CWaveWriter, const char*, int, int, int, bool> &&
              std::is_trivially_destructible_v<CWaveWriter>);
static_assert(kIs<decltype(&CWaveWriter::Open), int (CWaveWriter::*)()>);
static_assert(kIs<decltype(&CWaveWriter::Close), int (CWaveWriter::*)()>);
static_assert(kIs<decltype(&CWaveWriter::WriteSamples), int (CWaveWriter::*)(void*, unsigned int)>);
static_assert(kIs<decltype(&WriteSamplesEx), int (*)(void*, void*, unsigned int)>);

// ---- lists and maps
using Map = string_map;
using List = string_vector;
static_assert(std::is_base_of_v<Macros, Map> && sizeof(Map) == sizeof(Macros));
static_assert(kIs<decltype(&Map::Split), unsigned (Map::*)(const char*, char)>);
static_assert(std::is_base_of_v<Strings, List> && sizeof(List) == sizeof(Strings) &&
              !std::is_polymorphic_v<List>);
static_assert(kIs<decltype(&List::Split), void (List::*)(const char*, const char*, char)>);
static_assert(kIs<decltype(&List::find), int (List::*)(const char*, size_t) const>);
static_assert(kIs<decltype(&List::findi), int (List::*)(const char*, size_t) const>);
static_assert(kIs<decltype(&List::findwild), int (List::*)(const char*, size_t) const>);
static_assert(kIs<decltype(&List::LoadFromFile), int (List::*)(const char*)>);
static_assert(kIs<decltype(&List::LoadFromString), int (List::*)(const char*)>);
static_assert(kIs<decltype(&List::SaveToFile), bool (List::*)(const char*)>);
static_assert(kIs<decltype(&List::SaveToString), bool (List::*)(string&, bool) const>);
static_assert(
    kIs<decltype(&List::GetProfileStr), string (List::*)(const char*, const char*, const char*) const>);
static_assert(kIs<decltype(&List::GetProfileIntg), int (List::*)(const char*, const char*, int) const>);
static_assert(kIs<decltype(&List::WriteProfileStr), void (List::*)(const char*, const char*, const char*)>);
static_assert(kIs<decltype(&List::WriteProfileIntg), void (List::*)(const char*, const char*, int)>);
static_assert(kIs<decltype(&List::loadFromCSVString), bool (List::*)(const char*, bool, char, char)>);
static_assert(kIs<decltype(&List::saveToCSVString), string (List::*)(size_t, bool, char, char)>);
static_assert(kIs<decltype(&List::sort), void (List::*)(size_t)>);
static_assert(kIs<decltype(&List::sortrev), void (List::*)(size_t)>);
static_assert(kIs<decltype(&List::sorti), void (List::*)(size_t)>);
static_assert(kIs<decltype(&List::sortirev), void (List::*)(size_t)>);

// ---- string functions
using String::Encoding;
static_assert(kIs<std::underlying_type_t<Encoding>, int> && String::encNone == 0 && String::encURL == 1 &&
              String::encXML == 2 && String::encCQuoted == 3 && String::encCEscaped == 4 &&
              String::encVisible == 5);
constexpr string (*kFormat)(const char*, ...) = &String::Format;
constexpr string (*kFormatV)(const char*, va_list) = &String::FormatV;
static_assert(kIs<decltype(&String::FormatTime), string (*)(time_t, int)>);
static_assert(kIs<decltype(&String::FormatDate), string (*)(time_t, int)>);
static_assert(kIs<decltype(&String::FormatDateTime), string (*)(time_t, int)>);
static_assert(kIs<decltype(&String::ToUpper), void (*)(string&)>);
static_assert(kIs<decltype(&String::ToLower), void (*)(string&)>);
static_assert(kIs<decltype(&String::TrimLeft), void (*)(string&)>);
static_assert(kIs<decltype(&String::TrimRight), void (*)(string&, bool)>);
static_assert(kIs<decltype(&String::Trim), void (*)(string&)>);
static_assert(kIs<decltype(&String::Replace), string (*)(const string&, const string&, const string&)>);
static_assert(kIs<decltype(&String::Merge), string (*)(const Strings&, const string&)>);
static_assert(kIs<decltype(&String::CompareWild), bool (*)(const string&, const string&, string*)>);
static_assert(kIs<decltype(&String::Encode), void (*)(string&, const string&, Encoding)>);
static_assert(kIs<decltype(&String::Decode), void (*)(string&, const string&, Encoding)>);
static_assert(kIs<decltype(&String::IsIdentifier), bool (*)(const char*, const char*, const char*)>);
static_assert(
    kIs<decltype(&String::ExpandIdentifier), string (*)(const string&, const Macros&, const char*)>);
static_assert(
    kIs<decltype(&String::ExpandDelimited), string (*)(string&, const string&, const Macros&, bool, char)>);
static_assert(kIs<decltype(&String::ReadCSVField), int (*)(string&, const char*&, bool, char, char)>);
constexpr int (*kAddText)(string&, const char*, bool, char, char) = &String::AddCSVField;
constexpr int (*kAddString)(string&, const string&, bool, char, char) = &String::AddCSVField;
static_assert(kIs<decltype(&String::Split), void (*)(Strings&, const string&, const string&)>);
static_assert(kIs<decltype(&String::SplitQuoted), void (*)(Strings&, const string&)>);
static_assert(kIs<decltype(&String::SymmetricEncrypt), string (*)(uint64_t, const char*, const char*)>);

string FormatThroughV(const char* format, ...) {
    va_list args;
    va_start(args, format);
    string text = kFormatV(format, args);
    va_end(args);
    return text;
}

TEST(Signatures, VariadicFunctionsAndOverloadsAreThere) {
    EXPECT_EQ(kFormat("%d", 5), "5");
    EXPECT_EQ(FormatThroughV("%s", "v"), "v");
    File2 file;
    EXPECT_EQ((file.*kPrint)("%d", 5), 0);
    string row;
    EXPECT_EQ(kAddText(row, "a", false, ',', '"'), 1);
    EXPECT_EQ(kAddString(row, string("b"), false, ',', '"'), 1);
    EXPECT_EQ(row, "a,b");
}

} // namespace
