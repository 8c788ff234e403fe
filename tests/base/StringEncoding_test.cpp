#include "base/BaseHelpers.h"

#include "tests/support/ScopedLocale.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

using namespace std::string_literals;

namespace {

std::string Encoded(const std::string& input, String::Encoding encoding) {
    std::string output = "old";
    String::Encode(output, input, encoding);
    return output;
}

std::string Decoded(const std::string& input, String::Encoding encoding) {
    std::string output = "old";
    String::Decode(output, input, encoding);
    return output;
}

/// All 256 bytes in order.
std::string AllBytes() {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
    return bytes;
}

constexpr String::Encoding kUnknown = static_cast<String::Encoding>(9);

struct Case {
    const char* name;
    std::string input;
    std::string want;
};

void CheckEncode(const std::vector<Case>& cases, String::Encoding encoding) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Encoded(c.input, encoding), c.want);
    }
}

void CheckDecode(const std::vector<Case>& cases, String::Encoding encoding) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Decoded(c.input, encoding), c.want);
    }
}

} // namespace

TEST(StringEncoding, ValuesAreFixed) {
    EXPECT_EQ(String::encNone, 0);
    EXPECT_EQ(String::encURL, 1);
    EXPECT_EQ(String::encXML, 2);
    EXPECT_EQ(String::encCQuoted, 3);
    EXPECT_EQ(String::encCEscaped, 4);
    EXPECT_EQ(String::encVisible, 5);
}

// Every byte, in runs of 16 from 0x00 to 0xFF.

TEST(Encode, UrlOfEveryByte) {
    EXPECT_EQ(Encoded(AllBytes(), String::encURL), "%00%01%02%03%04%05%06%07%08%09%0A%0B%0C%0D%0E%0F"
                                                   "%10%11%12%13%14%15%16%17%18%19%1A%1B%1C%1D%1E%1F"
                                                   "%20!\"%23%24%25%26%27()*+,-.%2F"
                                                   "0123456789%3A%3B%3C%3D%3E%3F"
                                                   "%40ABCDEFGHIJKLMNO"
                                                   "PQRSTUVWXYZ%5B%5C%5D%5E_"
                                                   "`abcdefghijklmno"
                                                   "pqrstuvwxyz%7B%7C%7D%7E%7F"
                                                   "%80%81%82%83%84%85%86%87%88%89%8A%8B%8C%8D%8E%8F"
                                                   "%90%91%92%93%94%95%96%97%98%99%9A%9B%9C%9D%9E%9F"
                                                   "%A0%A1%A2%A3%A4%A5%A6%A7%A8%A9%AA%AB%AC%AD%AE%AF"
                                                   "%B0%B1%B2%B3%B4%B5%B6%B7%B8%B9%BA%BB%BC%BD%BE%BF"
                                                   "%C0%C1%C2%C3%C4%C5%C6%C7%C8%C9%CA%CB%CC%CD%CE%CF"
                                                   "%D0%D1%D2%D3%D4%D5%D6%D7%D8%D9%DA%DB%DC%DD%DE%DF"
                                                   "%E0%E1%E2%E3%E4%E5%E6%E7%E8%E9%EA%EB%EC%ED%EE%EF"
                                                   "%F0%F1%F2%F3%F4%F5%F6%F7%F8%F9%FA%FB%FC%FD%FE%FF");
}

TEST(Encode, XmlOfEveryByte) {
    EXPECT_EQ(
        Encoded(AllBytes(), String::encXML),
        "&#8364;&#8364;&#8364;&#8364;&#8364;&#8364;&#8364;&#8364;" // 0x00 to 0x07
        "&#8364;&#x09;&#x0A;&#8364;&#8364;&#x0D;&#8364;&#8364;"    // 0x08 to 0x0F
        "&#8364;&#8364;&#8364;&#8364;&#8364;&#8364;&#8364;&#8364;" // 0x10 to 0x17
        "&#8364;&#8364;&#8364;&#8364;&#8364;&#8364;&#8364;&#8364;" // 0x18 to 0x1F
        " !&quot;#$%&amp;&apos;()*+,-./"
        "0123456789:;&lt;=&gt;?"
        "@ABCDEFGHIJKLMNO"
        "PQRSTUVWXYZ[\\]^_"
        "`abcdefghijklmno"
        "pqrstuvwxyz{|}~&#x7F;"
        "&#x80;&#x81;&#x82;&#x83;&#x84;&#x85;&#x86;&#x87;&#x88;&#x89;&#x8A;&#x8B;&#x8C;&#x8D;&#x8E;&#x8F;"
        "&#x90;&#x91;&#x92;&#x93;&#x94;&#x95;&#x96;&#x97;&#x98;&#x99;&#x9A;&#x9B;&#x9C;&#x9D;&#x9E;&#x9F;"
        "&#xA0;&#xA1;&#xA2;&#xA3;&#xA4;&#xA5;&#xA6;&#xA7;&#xA8;&#xA9;&#xAA;&#xAB;&#xAC;&#xAD;&#xAE;&#xAF;"
        "&#xB0;&#xB1;&#xB2;&#xB3;&#xB4;&#xB5;&#xB6;&#xB7;&#xB8;&#xB9;&#xBA;&#xBB;&#xBC;&#xBD;&#xBE;&#xBF;"
        "&#xC0;&#xC1;&#xC2;&#xC3;&#xC4;&#xC5;&#xC6;&#xC7;&#xC8;&#xC9;&#xCA;&#xCB;&#xCC;&#xCD;&#xCE;&#xCF;"
        "&#xD0;&#xD1;&#xD2;&#xD3;&#xD4;&#xD5;&#xD6;&#xD7;&#xD8;&#xD9;&#xDA;&#xDB;&#xDC;&#xDD;&#xDE;&#xDF;"
        "&#xE0;&#xE1;&#xE2;&#xE3;&#xE4;&#xE5;&#xE6;&#xE7;&#xE8;&#xE9;&#xEA;&#xEB;&#xEC;&#xED;&#xEE;&#xEF;"
        "&#xF0;&#xF1;&#xF2;&#xF3;&#xF4;&#xF5;&#xF6;&#xF7;&#xF8;&#xF9;&#xFA;&#xFB;&#xFC;&#xFD;&#xFE;&#xFF;");
}

namespace {

// What both C escapers write for 0x00 to 0x1F and for 0x7F to 0xFF.
constexpr const char* kCControls = R"(\000\001\002\003\004\005\006\007\b\t\n\013\f\r\016\017)"
                                   R"(\020\021\022\023\024\025\026\027\030\031\032\033\034\035\036\037)";
constexpr const char* kCUpper = R"(\177)"
                                R"(\200\201\202\203\204\205\206\207\210\211\212\213\214\215\216\217)"
                                R"(\220\221\222\223\224\225\226\227\230\231\232\233\234\235\236\237)"
                                R"(\240\241\242\243\244\245\246\247\250\251\252\253\254\255\256\257)"
                                R"(\260\261\262\263\264\265\266\267\270\271\272\273\274\275\276\277)"
                                R"(\300\301\302\303\304\305\306\307\310\311\312\313\314\315\316\317)"
                                R"(\320\321\322\323\324\325\326\327\330\331\332\333\334\335\336\337)"
                                R"(\340\341\342\343\344\345\346\347\350\351\352\353\354\355\356\357)"
                                R"(\360\361\362\363\364\365\366\367\370\371\372\373\374\375\376\377)";

} // namespace

TEST(Encode, CQuotedOfEveryByte) {
    std::string want = "\"";
    want += kCControls;
    want += R"( !\"#$%&\'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`)";
    want += "abcdefghijklmnopqrstuvwxyz{|}~";
    want += kCUpper;
    want += "\"";
    EXPECT_EQ(Encoded(AllBytes(), String::encCQuoted), want);
}

TEST(Encode, CEscapedOfEveryByte) {
    std::string want = kCControls;
    want += R"( !\"#$%&\'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`)";
    want += R"(abcdefghijklmnopqrstuvwxyz\{|}~)";
    want += kCUpper;
    EXPECT_EQ(Encoded(AllBytes(), String::encCEscaped), want);
}

TEST(Encode, VisibleOfEveryByte) {
    EXPECT_EQ(Encoded(AllBytes(), String::encVisible),
              "<00><01><02><03><04><05><06><07><08><09><LF><0B><0C><CR><0E><0F>"
              "<10><11><12><13><14><15><16><17><18><19><1A><1B><1C><1D><1E><1F>"
              " !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNO"
              "PQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~<7F>"
              "<80><81><82><83><84><85><86><87><88><89><8A><8B><8C><8D><8E><8F>"
              "<90><91><92><93><94><95><96><97><98><99><9A><9B><9C><9D><9E><9F>"
              "<A0><A1><A2><A3><A4><A5><A6><A7><A8><A9><AA><AB><AC><AD><AE><AF>"
              "<B0><B1><B2><B3><B4><B5><B6><B7><B8><B9><BA><BB><BC><BD><BE><BF>"
              "<C0><C1><C2><C3><C4><C5><C6><C7><C8><C9><CA><CB><CC><CD><CE><CF>"
              "<D0><D1><D2><D3><D4><D5><D6><D7><D8><D9><DA><DB><DC><DD><DE><DF>"
              "<E0><E1><E2><E3><E4><E5><E6><E7><E8><E9><EA><EB><EC><ED><EE><EF>"
              "<F0><F1><F2><F3><F4><F5><F6><F7><F8><F9><FA><FB><FC><FD><FE><FF>");
}

TEST(Encode, NoneAndUnknownCopyEveryByte) {
    EXPECT_EQ(Encoded(AllBytes(), String::encNone), AllBytes());
    EXPECT_EQ(Encoded(AllBytes(), kUnknown), AllBytes());
    EXPECT_EQ(Encoded(AllBytes(), static_cast<String::Encoding>(-1)), AllBytes());
}

TEST(Encode, Url) {
    CheckEncode({{"empty", "", ""},
                 {"reserved between plain", "a b&c", "a%20b%26c"},
                 {"percent", "100%", "100%25"},
                 {"plus stays", "1+1", "1+1"}},
                String::encURL);
}

TEST(Encode, Xml) {
    CheckEncode({{"empty", "", ""},
                 {"a tag", "<a href=\"x\">", "&lt;a href=&quot;x&quot;&gt;"},
                 {"TAB", "a\tb", "a&#x09;b"},
                 {"a control byte is the euro sign", "\x01", "&#8364;"}},
                String::encXML);
}

TEST(Encode, C) {
    EXPECT_EQ(Encoded("", String::encCQuoted), "\"\"");
    EXPECT_EQ(Encoded("", String::encCEscaped), "");
    EXPECT_EQ(Encoded("say \"hi\"\n", String::encCQuoted), "\"say \\\"hi\\\"\\n\"");
    EXPECT_EQ(Encoded("{a}", String::encCEscaped), "\\{a}");
    EXPECT_EQ(Encoded("{a}", String::encCQuoted), "\"{a}\"");
}

TEST(Encode, Visible) {
    CheckEncode({{"empty", "", ""}, {"line end", "ok\r\n", "ok<CR><LF>"}, {"TAB", "a\tb", "a<09>b"}},
                String::encVisible);
}

TEST(Encode, FollowsTheLocalesPrintableBytes) {
    {
        const ScopedLocale latin1(ScopedLocale::kLatin1);
        EXPECT_EQ(Encoded("\xE9\x85", String::encURL), "\xE9%85"); // 0x85 is a control byte of ISO 8859-1
        EXPECT_EQ(Encoded("\xE9\x85", String::encXML), "\xE9&#x85;");
        EXPECT_EQ(Encoded("\xE9\x85", String::encCQuoted), "\"\xE9\\205\"");
        EXPECT_EQ(Encoded("\xE9\x85", String::encCEscaped), "\xE9\\205");
        EXPECT_EQ(Encoded("\xE9\x85", String::encVisible), "\xE9<85>");
    }
    const ScopedLocale utf8(ScopedLocale::kUtf8);
    EXPECT_EQ(Encoded("\xC3\xA9", String::encURL), "%C3%A9");
    EXPECT_EQ(Encoded("\xC3\xA9", String::encXML), "&#xC3;&#xA9;");
    EXPECT_EQ(Encoded("\xC3\xA9", String::encVisible), "<C3><A9>");
}

TEST(Encode, LongTextsOfEachKind) {
    const size_t count = 100'000;
    std::string percents;
    std::string euros;
    std::string mixed;
    std::string mixedWant;
    for (size_t i = 0; i < count; ++i) {
        percents += "%25";
        euros += "&#8364;";
        mixed.append(i % 700, 'x') += '%';
        mixedWant.append(i % 700, 'x') += "%25";
        if (mixed.size() > 1'000'000) break;
    }
    for (size_t i = percents.size() / 3; i < count; ++i) percents += "%25";
    for (size_t i = euros.size() / 7; i < count; ++i) euros += "&#8364;";
    EXPECT_EQ(Encoded(std::string(count, 'x'), String::encURL), std::string(count, 'x'));
    EXPECT_EQ(Encoded(std::string(count, '%'), String::encURL), percents);
    EXPECT_EQ(Encoded(std::string(count, '\0'), String::encXML), euros);
    EXPECT_EQ(Encoded(mixed, String::encURL), mixedWant);
}

TEST(Encode, OutputMayBeTheInput) {
    for (const auto& [encoding, want] :
         std::vector<std::pair<String::Encoding, std::string>>{{String::encNone, "a\"\0&"s},
                                                               {String::encURL, "a\"%00%26"},
                                                               {String::encXML, "a&quot;&#8364;&amp;"},
                                                               {String::encCQuoted, "\"a\\\"\\000&\""},
                                                               {String::encCEscaped, "a\\\"\\000&"},
                                                               {String::encVisible, "a\"<00>&"},
                                                               {kUnknown, "a\"\0&"s}}) {
        SCOPED_TRACE(encoding);
        std::string text = "a\"\0&"s;
        String::Encode(text, text, encoding);
        EXPECT_EQ(text, want);
    }
}

TEST(Decode, Url) {
    CheckDecode(
        {
            {"empty", "", ""},
            {"upper-case digits", "%4A", "J"},
            {"lower-case digits", "%7e", "~"},
            {"plus stays", "a+b", "a+b"},
            {"one byte behind it", "%4", "%4"},
            {"nothing behind it", "%", "%"},
            {"at the end of a text", "abc%4", "abc%4"},
            {"two in a row at the end", "%%", "%%"},
            {"a percent sign among the two bytes", "%%41", "\0001"s},
            {"no digit", "%GG", "\0"s},
            {"first byte no digit", "%G1", "\0"s},
            {"second byte no digit", "%1G", "\x01"},
            {"blank before a digit", "% 1", "\x01"},
            {"TAB before a digit", "%\t1", "\x01"},
            {"line feed before a digit", "%\nA", "\x0A"},
            {"blank behind a digit", "%1 ", "\x01"},
            {"plus before a digit", "%+1", "\x01"},
            {"minus before a digit", "%-1", "\xFF"},
            {"minus before a greater digit", "%-f", "\xF1"},
            {"a prefix without a digit", "%0x", "\0"s},
            {"two blanks", "%  ", "\0"s},
            {"a NUL", "%\0001"s, "\0"s},
            {"a NUL behind a digit", "%1\0"s, "\x01"},
            {"greatest byte", "%FF", "\xFF"},
            {"step over three bytes", "%410", "A0"},
            {"other bytes", "\xE9\0&;"s, "\xE9\0&;"s},
        },
        String::encURL);
}

TEST(Decode, Xml) {
    CheckDecode(
        {
            {"empty", "", ""},
            {"named", "&quot;&amp;&apos;&lt;&gt;", "\"&'<>"},
            {"names are case-sensitive", "&LT;&Amp;", "&LT;&Amp;"},
            {"unknown name", "&nbsp;", "&nbsp;"},
            {"blank name", "& b;", "& b;"},
            {"no name", "&;", "&;"},
            {"a longer name", "&ltt;", "&ltt;"},
            {"no semicolon", "x&amp", "x"},
            {"no semicolon drops the rest", "x&amp y &", "x"},
            {"nothing but an ampersand", "&", ""},
            {"semicolon before the ampersand", "a;b&c", "a;b"},
            {"up to the first semicolon", "a & b &amp; c", "a & b &amp; c"},
            {"decoded once", "&amp;lt;", "&lt;"},
            {"decimal", "&#65;", "A"},
            {"hexadecimal", "&#x41;", "A"},
            {"hexadecimal letters of both cases", "&#xe9;&#xE9;", "\xE9\xE9"},
            {"octal", "&#0101;", "A"},
            {"automatic hexadecimal", "&#0x41;&#0X41;", "AA"},
            {"prefix behind the x", "&#x0x41;", "A"},
            {"upper-case x", "&#X41;", "\0"s},
            {"no number", "&#;", "\0"s},
            {"x alone", "&#x;", "\0"s},
            {"no digit", "&#abc;", "\0"s},
            {"no hexadecimal digit", "&#xg;", "\0"s},
            {"euro sign", "&#8364;", "\xAC"},
            {"256", "&#256;", "\0"s},
            {"ends at a letter", "&#65a;", "A"},
            {"ends at a blank", "&#65 66;", "A"},
            {"blanks before it", "&# \t\n65;", "A"},
            {"blanks before hexadecimal digits", "&#x 41;", "A"},
            {"plus", "&#+65;", "A"},
            {"minus", "&#-1;", "\xFF"},
            {"hexadecimal minus", "&#x-2;", "\xFE"},
            {"greatest number", "&#18446744073709551615;", "\xFF"},
            {"one more saturates", "&#18446744073709551616;", "\xFF"},
            {"a very long number saturates", std::string(1000, '1').insert(0, "&#x").append("0;"), "\xFF"},
            {"a negative saturates", "&#-99999999999999999999;", "\xFF"},
            {"octal digit 8 ends it", "&#018;", "\x01"},
            {"ampersand inside a number", "&#6&5;", "\x06"},
            {"NUL inside a number", "&#6\0005;"s, "\x06"},
            {"NUL inside a name", "&a\0mp;"s, "&a\0mp;"s},
            {"NUL behind a name", "&lt\0;"s, "&lt\0;"s},
            {"other bytes", "\xE9\0%41;"s, "\xE9\0%41;"s},
        },
        String::encXML);
}

TEST(Decode, CQuoted) {
    CheckDecode(
        {
            {"empty", "", ""},
            {"framed", R"("abc")", "abc"},
            {"no frame", "abc", "abc"},
            {"quotes anywhere", R"(a"b""c)", "abc"},
            {"escaped quote", R"("say \"hi\"\n")", "say \"hi\"\n"},
            {"letters", R"(\a\b\f\t\r\n\v)", "\x07\x08\x0C\x09\x0D\x0A\x0B"},
            {"octal", R"(\101)", "A"},
            {"one digit", R"(\0)", "\0"s},
            {"two digits", R"(\12x)", "\nx"},
            {"three digits at most", R"(\1012)", "A2"},
            {"low byte", R"(\777\501)",
             "\xFF"
             "A"},
            {"9 is taken", R"(\19)", "\x01"},
            {"9 ends the number", R"(\191)", "\x01"},
            {"8 first", R"(\8)", "\0"s},
            {"8 first takes all three", R"(\8123)",
             "\0"
             "3"s},
            {"x takes one digit and gives 0", R"(\x41)",
             "\0"
             "1"s},
            {"x with a letter digit", R"(\xfF)", "\0F"s},
            {"X", R"(\X4)", "\0"s},
            {"x alone", R"(\x)", "\0"s},
            {"x before no digit", R"(\xg)", "\0g"s},
            {"other bytes give themselves", R"(\\\'\{\?\z\A)", R"(\'{?zA)"},
            {"backslash at the end", "a\\", "a\\"},
            {"backslash before a closing quote", "\"a\\\"", "a\""},
            {"backslash before a NUL", "\\\0b"s, "\0b"s},
            {"other bytes", "\xE9\0%41&lt;"s, "\xE9\0%41&lt;"s},
        },
        String::encCQuoted);
}

TEST(Decode, TheOthersCopy) {
    const std::string text = "%41&lt;\\n\"{<CR>\0\xE9"s;
    for (const String::Encoding encoding :
         {String::encNone, String::encCEscaped, String::encVisible, kUnknown}) {
        SCOPED_TRACE(encoding);
        EXPECT_EQ(Decoded(text, encoding), text);
        EXPECT_EQ(Decoded("\\{a}", encoding), "\\{a}");
        EXPECT_EQ(Decoded("", encoding), "");
    }
}

TEST(Decode, EveryByteComesBack) {
    const std::string all = AllBytes();
    EXPECT_EQ(Decoded(Encoded(all, String::encURL), String::encURL), all);
    EXPECT_EQ(Decoded(Encoded(all, String::encCQuoted), String::encCQuoted), all);
    EXPECT_EQ(Decoded(Encoded(all, String::encCEscaped), String::encCQuoted), all);
    EXPECT_EQ(Decoded(Encoded("{a}", String::encCEscaped), String::encCQuoted), "{a}");
}

TEST(Decode, XmlControlBytesComeBackAsOne) {
    std::string want = AllBytes();
    for (size_t byte = 0; byte < 32; ++byte) {
        if (byte != 9 && byte != 10 && byte != 13) want[byte] = '\xAC';
    }
    EXPECT_EQ(Decoded(Encoded(AllBytes(), String::encXML), String::encXML), want);
}

TEST(Decode, RoundTripsInAnEightBitLocale) {
    const ScopedLocale latin1(ScopedLocale::kLatin1);
    const std::string all = AllBytes();
    EXPECT_EQ(Decoded(Encoded(all, String::encURL), String::encURL), all);
    EXPECT_EQ(Decoded(Encoded(all, String::encCQuoted), String::encCQuoted), all);
}

TEST(Decode, OutputMayBeTheInput) {
    for (const auto& [encoding, want] :
         std::vector<std::pair<String::Encoding, std::string>>{{String::encNone, "%41&lt;\"\\n"},
                                                               {String::encURL, "A&lt;\"\\n"},
                                                               {String::encXML, "%41<\"\\n"},
                                                               {String::encCQuoted, "%41&lt;\n"},
                                                               {String::encCEscaped, "%41&lt;\"\\n"}}) {
        SCOPED_TRACE(encoding);
        std::string text = "%41&lt;\"\\n";
        String::Decode(text, text, encoding);
        EXPECT_EQ(text, want);
    }
}

// The decoders' rules once more, byte by byte and as plainly as they can be said.
namespace {

unsigned long Number(const std::string& text, int base) {
    return std::strtoul(text.c_str(), nullptr, base);
}

std::string PlainUrl(const std::string& in) {
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] == '%' && i + 2 < in.size()) {
            out += static_cast<char>(Number(in.substr(i + 1, 2), 16));
            i += 2;
        } else {
            out += in[i];
        }
    }
    return out;
}

std::string PlainXml(const std::string& in) {
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] != '&') {
            out += in[i];
            continue;
        }
        const size_t end = in.find(';', i);
        if (end == std::string::npos) break;
        const std::string entity = in.substr(i, end - i + 1);
        i = end;
        if (entity.compare(0, 3, "&#x") == 0)
            out += static_cast<char>(Number(entity.substr(3), 16));
        else if (entity.compare(0, 2, "&#") == 0)
            out += static_cast<char>(Number(entity.substr(2), 0));
        else if (entity == "&quot;")
            out += '"';
        else if (entity == "&amp;")
            out += '&';
        else if (entity == "&apos;")
            out += '\'';
        else if (entity == "&lt;")
            out += '<';
        else if (entity == "&gt;")
            out += '>';
        else
            out += entity;
    }
    return out;
}

std::string PlainC(const std::string& in) {
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] == '"') continue;
        if (in[i] != '\\' || i + 1 == in.size()) {
            out += in[i];
            continue;
        }
        const char c = in[++i];
        std::string digits(1, c);
        if (std::strchr("0123456789", c) != nullptr && c != '\0') {
            while (digits.size() < 3 && i + 1 < in.size() && in[i + 1] >= '0' && in[i + 1] <= '9') {
                digits += in[++i];
            }
            out += static_cast<char>(Number(digits, 8));
        } else if (c == 'x' || c == 'X') {
            if (i + 1 < in.size() && std::isxdigit(static_cast<unsigned char>(in[i + 1]))) digits += in[++i];
            out += static_cast<char>(Number(digits, 16));
        } else if (c == 'a') {
            out += '\x07';
        } else if (c == 'b') {
            out += '\x08';
        } else if (c == 'f') {
            out += '\x0C';
        } else if (c == 't') {
            out += '\x09';
        } else if (c == 'r') {
            out += '\x0D';
        } else if (c == 'n') {
            out += '\x0A';
        } else if (c == 'v') {
            out += '\x0B';
        } else {
            out += c;
        }
    }
    return out;
}

/// Every text of up to four characters of `alphabet`, between `before` and `after`.
template <class Check>
void ForAllTexts(const std::string& before, std::string_view alphabet, const std::string& after,
                 Check check) {
    std::vector<std::string> texts{before};
    for (size_t done = 0, length = 0; length <= 4; ++length) {
        const size_t end = texts.size();
        for (; done < end; ++done) {
            check(texts[done] + after);
            if (testing::Test::HasFailure()) return;
            if (length == 4) continue;
            for (const char c : alphabet) texts.push_back(texts[done] + c);
        }
    }
}

constexpr std::string_view kSpecial("%&;#x\\\"'{0189AG+- \0\r\n\xE9", 22);

} // namespace

TEST(Decode, UrlOfAllShortTexts) {
    ForAllTexts("", kSpecial, "",
                [](const std::string& text) { ASSERT_EQ(Decoded(text, String::encURL), PlainUrl(text)); });
}

TEST(Decode, XmlOfAllShortTexts) {
    ForAllTexts("", kSpecial, "",
                [](const std::string& text) { ASSERT_EQ(Decoded(text, String::encXML), PlainXml(text)); });
    ForAllTexts("&#", kSpecial, ";",
                [](const std::string& text) { ASSERT_EQ(Decoded(text, String::encXML), PlainXml(text)); });
}

TEST(Decode, COfAllShortTexts) {
    ForAllTexts("", kSpecial, "",
                [](const std::string& text) { ASSERT_EQ(Decoded(text, String::encCQuoted), PlainC(text)); });
    ForAllTexts("\\", "0178abfnrtvxX\\\"", "1",
                [](const std::string& text) { ASSERT_EQ(Decoded(text, String::encCQuoted), PlainC(text)); });
}

TEST(Decode, AllPairsOfBytesBehindAPercentSign) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const std::string text{'%', static_cast<char>(first), static_cast<char>(second)};
            ASSERT_EQ(Decoded(text, String::encURL), PlainUrl(text)) << first << ' ' << second;
        }
    }
}

TEST(Decode, LongHostileTextsEnd) {
    const size_t count = 1'000'000;
    EXPECT_EQ(Decoded(std::string(count, '&'), String::encXML), "");
    EXPECT_EQ(Decoded(std::string(count, '&') + ";", String::encXML), std::string(count, '&') + ";");
    EXPECT_EQ(Decoded(std::string(count, '\\'), String::encCQuoted), std::string(count / 2, '\\'));
    EXPECT_EQ(Decoded(std::string(count, '"'), String::encCQuoted), "");
    EXPECT_EQ(Decoded(std::string(count - 1, '%'), String::encURL), std::string(count / 3, '\0'));
}
