// The three decoders against slow twins on any text. The input is the text, NULs included.

#include "base/StringEncoding.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/twins/Escapes.h"

#include <string>

using namespace vrx::fuzz;

namespace {

std::string SlowUrl(const std::string& text) {
    std::string output;
    for (size_t pos = 0; pos < text.size(); ++pos) {
        if (text[pos] == '%' && pos + 2 < text.size()) {
            output += LowByte(text.substr(pos + 1, 2), 16);
            pos += 2;
        } else {
            output += text[pos];
        }
    }
    return output;
}

std::string SlowEntity(const std::string& entity) {
    if (entity[1] == '#') {
        const bool isHex = entity[2] == 'x';
        return std::string(1, isHex ? LowByte(entity.substr(3), 16) : LowByte(entity.substr(2), 0));
    }
    if (entity == "&quot;") return "\"";
    if (entity == "&amp;") return "&";
    if (entity == "&apos;") return "'";
    if (entity == "&lt;") return "<";
    if (entity == "&gt;") return ">";
    return entity;
}

std::string SlowXml(const std::string& text) {
    std::string output;
    for (size_t pos = 0; pos < text.size(); ++pos) {
        if (text[pos] != '&') {
            output += text[pos];
            continue;
        }
        const size_t end = text.find(';', pos);
        if (end == std::string::npos) return output;
        output += SlowEntity(text.substr(pos, end + 1 - pos));
        pos = end;
    }
    return output;
}

void RequireDecoded(const std::string& text, String::Encoding encoding, const std::string& want,
                    const char* what) {
    std::string output = "old";
    String::Decode(output, text, encoding);
    RequireSame(output, want, what);
    std::string inPlace = text;
    String::Decode(inPlace, inPlace, encoding);
    RequireSame(inPlace, want, what);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const std::string text = input.Rest();

    RequireDecoded(text, String::encURL, SlowUrl(text), "URL decoding");
    RequireDecoded(text, String::encXML, SlowXml(text), "XML decoding");
    RequireDecoded(text, String::encCQuoted, SlowDecodedC(text), "C escapes");
    for (const auto encoding : {String::encNone, String::encCEscaped, String::encVisible})
        RequireDecoded(text, encoding, text, "without a decoder the text is copied");
    return 0;
}
