// The five encoders against slow twins, and decoded again where that gives the input back.
// The input is the text, NULs included.

#include "base/StringEncoding.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"

#include <cctype>
#include <cstdio>
#include <string>

using namespace vrx::fuzz;

namespace {

std::string Formatted(const char* format, char c) {
    char text[16];
    std::snprintf(text, sizeof text, format, static_cast<unsigned>(static_cast<unsigned char>(c)));
    return text;
}

bool IsPrintable(char c) {
    return std::isprint(static_cast<unsigned char>(c));
}

bool IsOneOf(char c, const char* set) {
    return std::string(set).find(c) != std::string::npos;
}

std::string SlowUrl(char c) {
    return IsPrintable(c) && !IsOneOf(c, " <>#%{}|\\^~[]';/?:@=&$") ? std::string(1, c)
                                                                    : Formatted("%%%02X", c);
}

std::string SlowXml(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"') return "&quot;";
    if (c == '&') return "&amp;";
    if (c == '\'') return "&apos;";
    if (c == '<') return "&lt;";
    if (c == '>') return "&gt;";
    if (IsPrintable(c)) return std::string(1, c);
    if (c == '\t' || c == '\n' || c == '\r' || byte >= 0x7F) return Formatted("&#x%02X;", c);
    return "&#8364;";
}

std::string SlowEscaped(char c) {
    if (IsOneOf(c, "\\\"'")) return std::string("\\") + c;
    if (IsPrintable(c)) return std::string(1, c);
    switch (c) {
    case '\b':
        return "\\b";
    case '\t':
        return "\\t";
    case '\n':
        return "\\n";
    case '\f':
        return "\\f";
    case '\r':
        return "\\r";
    default:
        return Formatted("\\%03o", c);
    }
}

std::string SlowEscapedBrace(char c) {
    return c == '{' ? "\\{" : SlowEscaped(c);
}

std::string SlowVisible(char c) {
    if (c == '\r') return "<CR>";
    if (c == '\n') return "<LF>";
    return IsPrintable(c) ? std::string(1, c) : Formatted("<%02X>", c);
}

std::string Joined(const std::string& text, std::string (*encoded)(char)) {
    std::string joined;
    for (const char c : text) joined += encoded(c);
    return joined;
}

/// XML has no characters for most control bytes: they come back as the low byte of the euro sign.
std::string WithoutForbidden(std::string text) {
    for (char& c : text)
        if (static_cast<unsigned char>(c) < 0x20 && !IsOneOf(c, "\t\n\r")) c = '\xAC';
    return text;
}

std::string Encoded(const std::string& text, String::Encoding encoding) {
    std::string output = "old";
    String::Encode(output, text, encoding);
    std::string inPlace = text;
    String::Encode(inPlace, inPlace, encoding);
    RequireSame(inPlace, output, "encoding in place");
    return output;
}

std::string Decoded(const std::string& text, String::Encoding encoding) {
    std::string output = "old";
    String::Decode(output, text, encoding);
    return output;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace String;
    FuzzInput input(data, size);
    const std::string text = input.Rest();

    const std::string url = Encoded(text, encURL);
    RequireSame(url, Joined(text, SlowUrl), "URL encoding");
    RequireSame(Decoded(url, encURL), text, "URL comes back");

    const std::string xml = Encoded(text, encXML);
    RequireSame(xml, Joined(text, SlowXml), "XML encoding");
    RequireSame(Decoded(xml, encXML), WithoutForbidden(text), "XML comes back");

    const std::string quoted = Encoded(text, encCQuoted);
    RequireSame(quoted, '"' + Joined(text, SlowEscaped) + '"', "quoted C escapes");
    RequireSame(Decoded(quoted, encCQuoted), text, "quoted C escapes come back");

    const std::string escaped = Encoded(text, encCEscaped);
    RequireSame(escaped, Joined(text, SlowEscapedBrace), "C escapes");
    RequireSame(Decoded(escaped, encCQuoted), text, "C escapes come back");

    RequireSame(Encoded(text, encVisible), Joined(text, SlowVisible), "visible control characters");
    RequireSame(Encoded(text, encNone), text, "no encoding copies");
    return 0;
}
