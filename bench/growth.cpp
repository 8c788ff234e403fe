// How long four times the input takes.

#include "base/BaseHelpers.h"
#include "bench/Inputs.h"
#include "bench/Rounds.h"

#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <unistd.h>

namespace bench {
namespace {

// So many that the processor's branch prediction does not learn the smaller input by heart.
constexpr size_t kLeastBytes = 200'000;
const char* const kInput = "800 KB";

void GrowLists() {
    Grow("string_vector::Split", kInput, [](size_t n) {
        return [text = WordText(n * kLeastBytes, 2, 8, " ")] {
            string_vector tokens;
            tokens.Split(text.c_str(), " ,", 0);
            return tokens;
        };
    });
    Grow("string_vector::LoadFromString", kInput, [](size_t n) {
        return [text = WordText(n * kLeastBytes, 10, 60, "\n")] {
            string_vector lines;
            lines.LoadFromString(text.c_str());
            return lines;
        };
    });
    Grow("string_vector::LoadFromFile", kInput, [](size_t n) {
        const std::string name = "/dev/shm/bench-growth-" + std::to_string(::getpid());
        std::ofstream(name, std::ios::binary) << WordText(n * kLeastBytes, 10, 60, "\n");
        const std::shared_ptr<std::FILE> file(std::fopen(name.c_str(), "rb"), std::fclose);
        ::unlink(name.c_str()); // read by its descriptor, so that nothing stays behind
        return [file, path = "/proc/self/fd/" + std::to_string(::fileno(file.get()))] {
            string_vector lines;
            lines.LoadFromFile(path.c_str());
            return lines;
        };
    });
    Grow("string_vector::loadFromCSVString", kInput, [](size_t n) {
        return [row = WordText(n * kLeastBytes, 2, 12, ",\"a, b\",")] {
            string_vector fields;
            fields.loadFromCSVString(row.c_str(), false, ',', '"');
            return fields;
        };
    });
    Grow("string_vector::saveToCSVString", kInput, [](size_t n) {
        string_vector fields;
        fields.Split(WordText(n * kLeastBytes, 2, 12, " a,b ").c_str(), " ", 0);
        return [fields]() mutable { return fields.saveToCSVString(0, false, ',', '"'); };
    });
}

void GrowReplace(const char* input, const std::string& replacement) {
    Grow("String::Replace", input, [&](size_t n) {
        return [text = WordText(n * kLeastBytes, 20, 60, " needle "), replacement] {
            return String::Replace(text, "needle", replacement);
        };
    });
}

void GrowMacros() {
    Grow("String::ExpandDelimited", kInput, [](size_t n) {
        return [text = WordText(n * kLeastBytes, 20, 60, " $name$ ")] {
            const std::map<std::string, std::string> macros{{"name", "a value"}};
            std::string out;
            (void)String::ExpandDelimited(out, text, macros, true, '$');
            return out;
        };
    });
    Grow("String::ExpandIdentifier", kInput, [](size_t n) {
        return [text = WordText(n * kLeastBytes, 2, 8, " ")] {
            return String::ExpandIdentifier(text, {{"name", "a value"}}, nullptr);
        };
    });
}

std::string ToEncode(size_t bytes) {
    return TextWith(bytes, "<&\"\n\x01\xE9", 10);
}

void GrowEncode(const char* scheme, String::Encoding encoding) {
    Grow(std::string("String::Encode ") + scheme, kInput, [encoding](size_t n) {
        return [text = ToEncode(n * kLeastBytes), encoding] {
            std::string out;
            String::Encode(out, text, encoding);
            return out;
        };
    });
}

void GrowDecode(const char* scheme, String::Encoding encoding) {
    Grow(std::string("String::Decode ") + scheme, kInput, [encoding](size_t n) {
        std::string coded;
        String::Encode(coded, ToEncode(n * kLeastBytes), encoding);
        return [coded, encoding] {
            std::string out;
            String::Decode(out, coded, encoding);
            return out;
        };
    });
}

void GrowWild(const char* pattern) {
    Grow("String::CompareWild", std::string("40,000 times a, pattern `") + pattern + "`",
         [pattern](size_t n) {
             return [text = Repeated("a", n * 10'000), wanted = std::string(pattern)] {
                 return String::CompareWild(text, wanted, nullptr);
             };
         });
}

} // namespace

void AddRows() {
    GrowLists();
    GrowReplace("800 KB, same length", "thread");
    GrowReplace("800 KB, growing", "a much longer thread");
    GrowReplace("800 KB, shrinking", "pin");
    GrowMacros();
    GrowEncode("encURL", String::encURL);
    GrowEncode("encXML", String::encXML);
    GrowEncode("encCQuoted", String::encCQuoted);
    GrowEncode("encCEscaped", String::encCEscaped);
    GrowEncode("encVisible", String::encVisible);
    GrowDecode("encURL", String::encURL);
    GrowDecode("encXML", String::encXML);
    GrowDecode("encCQuoted", String::encCQuoted); // the other two are copied
    GrowWild("*a*a*a*a*b");
    GrowWild("*aab*");
    GrowWild("a*a?b*a");
}

} // namespace bench
