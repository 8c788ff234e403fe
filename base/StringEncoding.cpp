#include "base/StringEncoding.h"

#include "base/internal/ByteClass.h"
#include "base/internal/ByteSet.h"
#include "base/internal/Escapes.h"
#include "base/internal/WideFind.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

/// The text that stands for one byte; at most "&#8364;".
struct Escape {
    char text[7] = {};
    unsigned char size = 0;

    constexpr Escape& Add(std::string_view piece) {
        for (const char c : piece) text[size++] = c;
        return *this;
    }
};

constexpr Escape& AppendHex(Escape& out, unsigned byte) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    return out.Add(kDigits.substr(byte >> 4, 1)).Add(kDigits.substr(byte & 15, 1));
}

constexpr Escape& AppendOctal(Escape& out, unsigned byte) {
    constexpr std::string_view kDigits = "01234567";
    return out.Add(kDigits.substr(byte >> 6, 1))
        .Add(kDigits.substr(byte >> 3 & 7, 1))
        .Add(kDigits.substr(byte & 7, 1));
}

constexpr Escape UrlEscape(unsigned byte) {
    Escape out;
    return AppendHex(out.Add("%"), byte);
}

constexpr Escape XmlEscape(unsigned byte) {
    Escape out;
    if (byte == '"') return out.Add("&quot;");
    if (byte == '&') return out.Add("&amp;");
    if (byte == '\'') return out.Add("&apos;");
    if (byte == '<') return out.Add("&lt;");
    if (byte == '>') return out.Add("&gt;");
    // XML 1.0 has no form for the other control bytes: they become the euro sign, and readers rely on it
    if (byte < 0x7F && byte != '\t' && byte != '\n' && byte != '\r') return out.Add("&#8364;");
    return AppendHex(out.Add("&#x"), byte).Add(";");
}

constexpr Escape CEscape(unsigned byte) {
    constexpr std::string_view kThemselves = "\\\"'{";
    constexpr std::string_view kBytes = "\b\t\n\f\r";
    constexpr std::string_view kLetters = "btnfr";
    Escape out;
    out.Add("\\");
    const size_t itself = kThemselves.find(static_cast<char>(byte));
    if (itself != kThemselves.npos) return out.Add(kThemselves.substr(itself, 1));
    const size_t letter = kBytes.find(static_cast<char>(byte));
    if (letter != kBytes.npos) return out.Add(kLetters.substr(letter, 1));
    return AppendOctal(out, byte);
}

constexpr Escape VisibleEscape(unsigned byte) {
    Escape out;
    if (byte == '\r') return out.Add("<CR>");
    if (byte == '\n') return out.Add("<LF>");
    return AppendHex(out.Add("<"), byte).Add(">");
}

/// How an encoding writes: printable bytes are copied unless they are in `special`, all others are written
/// as their escape.
struct Scheme {
    vrx::ByteSet special;
    std::array<Escape, 256> escapes;

    constexpr Scheme(std::string_view specialBytes, Escape (*escape)(unsigned)) : special(specialBytes) {
        for (unsigned byte = 0; byte < 256; ++byte) escapes[byte] = escape(byte);
    }
};

constexpr Scheme kUrl(" <>#%{}|\\^~[]';/?:@=&$", UrlEscape);
constexpr Scheme kXml("\"&'<>", XmlEscape);
constexpr Scheme kCQuoted("\\\"'", CEscape);
constexpr Scheme kCEscaped("\\\"'{", CEscape);
constexpr Scheme kVisible("\r\n", VisibleEscape);

std::string Encoded(std::string_view text, const Scheme& scheme, std::string_view frame) {
    constexpr size_t kChunk = 512;
    vrx::ByteClass plain([&](unsigned char byte) {
        return std::isprint(byte) != 0 && !scheme.special.Has(static_cast<char>(byte));
    });
    std::string out;
    out.reserve(text.size() * 2 + 50);
    out += frame;
    // Chunks become blocks, and blocks are appended: an append per byte would cost more than the byte.
    for (; !text.empty(); text.remove_prefix(std::min(kChunk, text.size()))) {
        char block[kChunk * sizeof(Escape::text)];
        char* end = block;
        for (const char c : text.substr(0, kChunk)) {
            if (plain.Has(c)) {
                *end++ = c;
                continue;
            }
            const Escape& escape = scheme.escapes[static_cast<unsigned char>(c)];
            std::memcpy(end, escape.text, sizeof escape.text); // a fixed size is copied without a call
            end += escape.size;
        }
        out.append(block, static_cast<size_t>(end - block));
    }
    out += frame;
    return out;
}

// The decoders write to `to`, which has room for as many bytes as they read, and return the end of what they
// wrote.

char* Copy(char* to, std::string_view run) {
    return std::copy(run.begin(), run.end(), to);
}

/// The byte that two bytes behind a percent sign stand for: what strtoul makes of them in base 16, so that
/// a blank or a sign in front of a digit counts and anything else gives 0.
char UrlByte(char first, char second) {
    const int high = vrx::HexValue(first);
    const int low = vrx::HexValue(second);
    if (high >= 0 && low >= 0) return static_cast<char>(high << 4 | low);
    const char digits[] = {first, second, '\0'};
    return static_cast<char>(std::strtoul(digits, nullptr, 16));
}

char* DecodeUrl(char* to, std::string_view text) {
    for (size_t pos = 0; pos < text.size();) {
        if (text[pos] != '%' || text.size() - pos < 3) {
            const size_t run = pos;
            pos = std::min(text.find('%', pos + 1), text.size());
            to = Copy(to, text.substr(run, pos - run));
            continue;
        }
        *to++ = UrlByte(text[pos + 1], text[pos + 2]);
        pos += 3;
    }
    return to;
}

/// The low byte of a character reference's number. `digits` is the text behind the "#"; strtoul ends at
/// the ";" at the latest.
char ReferencedByte(const char* digits) {
    const unsigned long number =
        *digits == 'x' ? std::strtoul(digits + 1, nullptr, 16) : std::strtoul(digits, nullptr, 0);
    return static_cast<char>(number);
}

char* DecodeEntity(char* to, std::string_view entity) {
    if (entity[1] == '#')
        *to++ = ReferencedByte(entity.data() + 2);
    else if (entity == "&quot;")
        *to++ = '"';
    else if (entity == "&amp;")
        *to++ = '&';
    else if (entity == "&apos;")
        *to++ = '\'';
    else if (entity == "&lt;")
        *to++ = '<';
    else if (entity == "&gt;")
        *to++ = '>';
    else
        to = Copy(to, entity);
    return to;
}

char* DecodeXml(char* to, std::string_view text) {
    for (size_t pos = 0; pos < text.size();) {
        if (text[pos] != '&') {
            const size_t run = pos;
            pos = std::min(text.find('&', pos), text.size());
            to = Copy(to, text.substr(run, pos - run));
            continue;
        }
        const size_t end = text.find(';', pos);
        // an "&" without a ";" drops the rest of the text: callers rely on it
        if (end == text.npos) break;
        to = DecodeEntity(to, text.substr(pos, end + 1 - pos));
        pos = end + 1;
    }
    return to;
}

char* DecodeC(char* to, std::string_view text) {
    for (size_t pos = 0; pos < text.size();) {
        const char c = text[pos];
        if (c == '\\' && pos + 1 < text.size()) {
            ++pos;
            *to++ = vrx::TakeEscape(text, pos, 1);
        } else if (c == '"') {
            ++pos; // unescaped quotes only frame the text
        } else {
            *to++ = c; // a backslash at the very end stands for itself
            ++pos;
            to = vrx::WideCopy(to, text, pos, {'\\', '"', '\\', '"'});
        }
    }
    return to;
}

void DecodeWith(std::string& output, const std::string& input, char* (*decode)(char*, std::string_view)) {
    const auto room = std::make_unique_for_overwrite<char[]>(input.size());
    const char* end = decode(room.get(), input);
    output.assign(room.get(), static_cast<size_t>(end - room.get()));
}

} // namespace

void String::Encode(std::string& output, const std::string& input, Encoding encoding) {
    switch (encoding) {
    case encURL:
        output = Encoded(input, kUrl, "");
        break;
    case encXML:
        output = Encoded(input, kXml, "");
        break;
    case encCQuoted:
        output = Encoded(input, kCQuoted, "\"");
        break;
    case encCEscaped:
        output = Encoded(input, kCEscaped, "");
        break;
    case encVisible:
        output = Encoded(input, kVisible, "");
        break;
    default:
        output = input;
        break;
    }
}

void String::Decode(std::string& output, const std::string& input, Encoding encoding) {
    switch (encoding) {
    case encURL:
        DecodeWith(output, input, DecodeUrl);
        break;
    case encXML:
        DecodeWith(output, input, DecodeXml);
        break;
    case encCQuoted:
        DecodeWith(output, input, DecodeC);
        break;
    default:
        output = input;
        break;
    }
}
