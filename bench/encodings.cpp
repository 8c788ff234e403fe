// The five text encodings. The special bytes of each input are those that ours and the peers write alike;
// elsewhere the schemes differ.

#include "base/BaseHelpers.h"
#include "bench/Inputs.h"
#include "bench/Rounds.h"

#include <absl/strings/escaping.h>
#include <absl/strings/str_cat.h>
#include <absl/strings/str_replace.h>
#include <curl/curl.h>
#include <glib.h>
#include <string>

namespace bench {
namespace {

constexpr const char* kUrlSpecials = " &%/?=#<>\xE9\x01\x7F";
constexpr const char* kXmlSpecials = "<>&\"'";
constexpr const char* kCSpecials = "\n\r\t\"\\\x01\x1F\x7F\xE9";
constexpr const char* kVisibleSpecials = "\r\n\t";

/// A string of GLib's, copied and freed as its callers have to.
std::string FromGlib(char* text) {
    std::string copy = text;
    g_free(text);
    return copy;
}

CURL* Curl() {
    static CURL* const curl = curl_easy_init();
    return curl;
}

std::string EscapeWithCurl(const std::string& text) {
    char* const escaped = curl_easy_escape(Curl(), text.data(), static_cast<int>(text.size()));
    std::string copy = escaped;
    curl_free(escaped);
    return copy;
}

std::string UnescapeWithCurl(const std::string& text) {
    int length = 0;
    char* const plain = curl_easy_unescape(Curl(), text.data(), static_cast<int>(text.size()), &length);
    std::string copy(plain, static_cast<size_t>(length));
    curl_free(plain);
    return copy;
}

std::string EntitiesWithAbsl(const std::string& text) {
    return absl::StrReplaceAll(
        text, {{"&", "&amp;"}, {"<", "&lt;"}, {">", "&gt;"}, {"\"", "&quot;"}, {"'", "&apos;"}});
}

std::string PlainWithAbsl(const std::string& text) {
    return absl::StrReplaceAll(
        text, {{"&amp;", "&"}, {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}});
}

/// GLib decodes entities only while it parses an element's text.
std::string PlainWithGlib(const std::string& text) {
    std::string plain;
    GMarkupParser parser{};
    parser.text = [](GMarkupParseContext*, const char* piece, gsize size, void* out, GError**) {
        static_cast<std::string*>(out)->append(piece, size);
    };
    GMarkupParseContext* const context = g_markup_parse_context_new(&parser, {}, &plain, nullptr);
    g_markup_parse_context_parse(context, "<t>", 3, nullptr);
    g_markup_parse_context_parse(context, text.data(), static_cast<gssize>(text.size()), nullptr);
    g_markup_parse_context_parse(context, "</t>", 4, nullptr);
    g_markup_parse_context_free(context);
    return plain;
}

std::string UnescapeWithAbsl(const std::string& text) {
    std::string plain;
    absl::CUnescape(text, &plain);
    return plain;
}

std::string VisibleWithAbsl(const std::string& text) {
    return absl::StrReplaceAll(text, {{"\r", "<CR>"}, {"\n", "<LF>"}, {"\t", "<09>"}});
}

auto Encoding(const std::string& text, String::Encoding scheme) {
    return [text, scheme] {
        std::string out;
        String::Encode(out, text, scheme);
        return out;
    };
}

auto Decoding(const std::string& text, String::Encoding scheme) {
    return [text, scheme] {
        std::string out;
        String::Decode(out, text, scheme);
        return out;
    };
}

auto CopyOf(const std::string& text) {
    return Floor("copy of the result", [text] { return std::string(text); });
}

/// One line of text for all schemes: `percent` of the bytes are special.
void AddSchemes(const char* input, unsigned percent) {
    const auto sample = [percent](const char* specials) { return TextWith(kMegabyte, specials, percent); };
    {
        const std::string plain = sample(kUrlSpecials);
        const std::string coded = EscapeWithCurl(plain);
        Compare("String::Encode encURL", input, Encoding(plain, String::encURL),
                Peer("g_uri_escape_string",
                     [plain] { return FromGlib(g_uri_escape_string(plain.c_str(), nullptr, false)); }),
                Peer("curl_easy_escape", [plain] { return EscapeWithCurl(plain); }), CopyOf(coded));
        Compare("String::Decode encURL", input, Decoding(coded, String::encURL),
                Peer("g_uri_unescape_string",
                     [coded] { return FromGlib(g_uri_unescape_string(coded.c_str(), nullptr)); }),
                Peer("curl_easy_unescape", [coded] { return UnescapeWithCurl(coded); }), CopyOf(plain));
    }
    {
        const std::string plain = sample(kXmlSpecials);
        const std::string coded = EntitiesWithAbsl(plain);
        Compare("String::Encode encXML", input, Encoding(plain, String::encXML),
                Peer("g_markup_escape_text",
                     [plain] { return FromGlib(g_markup_escape_text(plain.c_str(), -1)); }),
                Peer("absl::StrReplaceAll", [plain] { return EntitiesWithAbsl(plain); }), CopyOf(coded));
        Compare("String::Decode encXML", input, Decoding(coded, String::encXML),
                Peer("g_markup_parse_context", [coded] { return PlainWithGlib(coded); }),
                Peer("absl::StrReplaceAll", [coded] { return PlainWithAbsl(coded); }), CopyOf(plain));
    }
    {
        const std::string plain = sample(kCSpecials);
        const std::string coded = absl::CEscape(plain);
        const std::string quoted = absl::StrCat("\"", coded, "\"");
        Compare("String::Encode encCQuoted", input, Encoding(plain, String::encCQuoted),
                Peer("absl::CEscape in quotes",
                     [plain] { return absl::StrCat("\"", absl::CEscape(plain), "\""); }),
                Peer("g_strescape in quotes",
                     [plain] {
                         char* const escaped = g_strescape(plain.c_str(), nullptr);
                         std::string out = absl::StrCat("\"", escaped, "\"");
                         g_free(escaped);
                         return out;
                     }),
                CopyOf(quoted));
        Compare("String::Encode encCEscaped", input, Encoding(plain, String::encCEscaped),
                Peer("absl::CEscape", [plain] { return absl::CEscape(plain); }),
                Peer("g_strescape", [plain] { return FromGlib(g_strescape(plain.c_str(), nullptr)); }),
                CopyOf(coded));
        Compare("String::Decode encCQuoted", input, Decoding(coded, String::encCQuoted),
                Peer("absl::CUnescape", [coded] { return UnescapeWithAbsl(coded); }),
                Peer("g_strcompress", [coded] { return FromGlib(g_strcompress(coded.c_str())); }),
                CopyOf(plain));
    }
    {
        const std::string plain = sample(kVisibleSpecials);
        Compare("String::Encode encVisible", input, Encoding(plain, String::encVisible),
                Peer("absl::StrReplaceAll", [plain] { return VisibleWithAbsl(plain); }),
                CopyOf(VisibleWithAbsl(plain)));
    }
}

} // namespace

void AddRows() {
    AddSchemes("1 MB, 3 % special", 3);
    AddSchemes("1 MB, all special", 100);
}

} // namespace bench
