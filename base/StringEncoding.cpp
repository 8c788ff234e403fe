#include "base/StringEncoding.h"

#include "base/internal/ByteClass.h"
#include "base/internal/ByteSet.h"
#include "base/internal/Escapes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

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

/// Gathers short pieces in a block and appends the block when it is full: an append each would cost more
/// than the pieces.
class BlockWriter {
public:
    explicit BlockWriter(std::string& out) : m_out(out) {}

    void Add(const Escape& escape) {
        if (sizeof m_block - m_used < sizeof escape.text) Flush();
        std::memcpy(m_block + m_used, escape.text, sizeof escape.text);
        m_used += escape.size;
    }
    void Add(std::string_view run) {
        if (sizeof m_block - m_used < run.size()) Flush();
        if (sizeof m_block < run.size()) {
            m_out.append(run);
            return;
        }
        std::memcpy(m_block + m_used, run.data(), run.size());
        m_used += run.size();
    }
    void Flush() {
        m_out.append(m_block, m_used);
        m_used = 0;
    }

private:
    std::string& m_out;
    size_t m_used = 0;
    char m_block[512];
};

std::string Encoded(std::string_view text, const Scheme& scheme, std::string_view frame) {
    vrx::ByteClass plain([&](unsigned char byte) {
        return std::isprint(byte) != 0 && !scheme.special.Has(static_cast<char>(byte));
    });
    std::string out;
    out.reserve(text.size() * 2 + 50);
    BlockWriter writer(out);
    writer.Add(frame);
    for (size_t pos = 0; pos < text.size();) {
        const size_t run = pos;
        pos = plain.SkipWhile(text, pos);
        writer.Add(text.substr(run, pos - run));
        if (pos < text.size()) writer.Add(scheme.escapes[static_cast<unsigned char>(text[pos++])]);
    }
    writer.Add(frame);
    writer.Flush();
    return out;
}

/// A string of a known greatest size, filled from the front. No decoder writes more than it reads.
class Decoded {
public:
    explicit Decoded(size_t most) : m_text(most, '\0'), m_end(m_text.data()) {}

    void Add(char c) { *m_end++ = c; }
    void Add(std::string_view run) { m_end = std::copy(run.begin(), run.end(), m_end); }
    std::string Take() {
        m_text.resize(static_cast<size_t>(m_end - m_text.data()));
        return std::move(m_text);
    }

private:
    std::string m_text;
    char* m_end;
};

/// The byte that two bytes behind a percent sign stand for: what strtoul makes of them in base 16, so that
/// a blank or a sign in front of a digit counts and anything else gives 0.
char UrlByte(char first, char second) {
    const int high = vrx::HexValue(first);
    const int low = vrx::HexValue(second);
    if (high >= 0 && low >= 0) return static_cast<char>(high << 4 | low);
    const char digits[] = {first, second, '\0'};
    return static_cast<char>(std::strtoul(digits, nullptr, 16));
}

std::string DecodedUrl(std::string_view text) {
    Decoded out(text.size());
    for (size_t pos = 0; pos < text.size();) {
        if (text[pos] == '%' && text.size() - pos > 2) {
            out.Add(UrlByte(text[pos + 1], text[pos + 2]));
            pos += 3;
            continue;
        }
        const size_t run = pos;
        pos = std::min(text.find('%', pos + 1), text.size());
        out.Add(text.substr(run, pos - run));
    }
    return out.Take();
}

/// The low byte of a character reference's number. `digits` is the text behind the "#"; strtoul ends at
/// the ";" at the latest.
char ReferencedByte(const char* digits) {
    const unsigned long number =
        *digits == 'x' ? std::strtoul(digits + 1, nullptr, 16) : std::strtoul(digits, nullptr, 0);
    return static_cast<char>(number);
}

void AddEntity(Decoded& out, std::string_view entity) {
    if (entity[1] == '#')
        out.Add(ReferencedByte(entity.data() + 2));
    else if (entity == "&quot;")
        out.Add('"');
    else if (entity == "&amp;")
        out.Add('&');
    else if (entity == "&apos;")
        out.Add('\'');
    else if (entity == "&lt;")
        out.Add('<');
    else if (entity == "&gt;")
        out.Add('>');
    else
        out.Add(entity);
}

std::string DecodedXml(std::string_view text) {
    Decoded out(text.size());
    for (size_t pos = 0; pos < text.size();) {
        const size_t start = std::min(text.find('&', pos), text.size());
        out.Add(text.substr(pos, start - pos));
        const size_t end = text.find(';', start);
        // an "&" without a ";" drops the rest of the text: callers rely on it
        if (end == text.npos) break;
        pos = end + 1;
        AddEntity(out, text.substr(start, pos - start));
    }
    return out.Take();
}

std::string DecodedC(std::string_view text) {
    static constexpr vrx::ByteSet kSpecial("\\\"");
    Decoded out(text.size());
    for (size_t pos = 0; pos < text.size();) {
        const size_t run = pos;
        pos = vrx::FindFirst(text, pos, kSpecial);
        out.Add(text.substr(run, pos - run));
        if (pos == text.size()) break;
        const char c = text[pos++];
        if (c == '"') continue; // unescaped quotes only frame the text
        out.Add(pos < text.size() ? vrx::TakeEscape(text, pos, 1) : c);
    }
    return out.Take();
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
        output = DecodedUrl(input);
        break;
    case encXML:
        output = DecodedXml(input);
        break;
    case encCQuoted:
        output = DecodedC(input);
        break;
    default:
        output = input;
        break;
    }
}
