// Formatting, case, trimming, replacing, joining, wildcards, macros, words in quotes and scrambling.

#include "base/BaseHelpers.h"
#include "bench/Inputs.h"
#include "bench/Rounds.h"

#include <absl/strings/ascii.h>
#include <absl/strings/str_format.h>
#include <absl/strings/str_join.h>
#include <absl/strings/str_replace.h>
#include <boost/tokenizer.hpp>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fmt/printf.h>
#include <fnmatch.h>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace bench {
namespace {

using Strings = std::vector<std::string>;
using Macros = std::map<std::string, std::string>;
using MacroTable = std::unordered_map<std::string, std::string>;

// Formatting.

template <class... Args>
std::string Snprintf(const char* format, Args... args) {
    char buffer[256];
    const int length = std::snprintf(buffer, sizeof buffer, format, args...);
    return {buffer, static_cast<size_t>(length)};
}

/// `absl` calls absl::StrFormat with the same format, which that checks while it is compiled.
template <class Absl, class... Args>
void AddFormatRow(const char* format, Absl absl, Args... args) {
    Compare(
        "String::Format", format, [=] { return String::Format(format, args...); },
        Peer("absl::StrFormat", [=] { return absl(args...); }),
        Peer("snprintf into a std::string", [=] { return Snprintf(format, args...); }),
        Peer(
            "fmt::sprintf", [=] { return fmt::sprintf(format, args...); }, kNoLimit));
}

void AddFormatRows() {
    AddFormatRow(
        "%s=%s", [](auto... args) { return absl::StrFormat("%s=%s", args...); }, "servport",
        "a value of twenty-5");
    AddFormatRow(
        "%d", [](auto... args) { return absl::StrFormat("%d", args...); }, -1234567);
    AddFormatRow(
        "connect,%s,%d", [](auto... args) { return absl::StrFormat("connect,%s,%d", args...); },
        "server.example.org", 7001);
}

void AddDateRow(const char* input, const char* zone) {
    constexpr int kYearFirst24Hours = 0x21;
    static const std::string unpadded = "%Y/%-m/%-d %-H:%M:%S"; // the dashes are the C library's own
    static const time_t time = 1'709'658'309;
    Compare(
        "String::FormatDateTime", input, [] { return String::FormatDateTime(time, kYearFirst24Hours); },
        Peer("localtime and strftime",
             [] {
                 char buffer[64];
                 const size_t length =
                     std::strftime(buffer, sizeof buffer, unpadded.c_str(), std::localtime(&time));
                 return std::string(buffer, length);
             }),
        Before([zone] {
            if (zone)
                ::setenv("TZ", zone, 1);
            else
                ::unsetenv("TZ");
        }));
}

// Case and blanks, in place.

template <class Ours, class Theirs>
void AddInPlaceRow(const char* operation, const char* input, std::string text, Ours ours, const char* peer,
                   Theirs theirs) {
    const auto make = [text] { return text; };
    const size_t bytes = text.size() + sizeof(std::string);
    Compare(operation, input, InPlace(bytes, make, ours), Peer(peer, InPlace(bytes, make, theirs)));
}

/// Trimming a short text takes about as long as calling a function of a shared library; the peer's is inlined. So
/// the peer is also shown behind a call, without a limit.
template <class Ours, class Theirs>
void AddTrimRow(const char* operation, const char* input, std::string text, Ours ours,
                const std::string& peer, Theirs theirs) {
    const auto make = [text] { return text; };
    const auto called = [theirs](std::string & s) __attribute__((noinline)) {
        theirs(s);
    };
    const size_t bytes = text.size() + sizeof(std::string);
    Compare(operation, input, InPlace(bytes, make, ours), Peer(peer, InPlace(bytes, make, theirs)),
            Peer(peer + " behind a call", InPlace(bytes, make, called), kNoLimit));
}

void AddCaseAndTrimRows() {
    const struct {
        const char* name;
        size_t bytes;
    } kSizes[] = {{"40 B", 40}, {"1 KB", 1000}, {"1 MB", kMegabyte}};

    for (const auto& [name, bytes] : kSizes) {
        const std::string text = TextWith(bytes, "ABCDEFGHIJKLMNOPQRSTUVWXYZ 0123456789", 40);
        AddInPlaceRow(
            "String::ToUpper", name, text, [](std::string& s) { String::ToUpper(s); },
            "absl::AsciiStrToUpper", [](std::string& s) { absl::AsciiStrToUpper(&s); });
        AddInPlaceRow(
            "String::ToLower", name, text, [](std::string& s) { String::ToLower(s); },
            "absl::AsciiStrToLower", [](std::string& s) { absl::AsciiStrToLower(&s); });
    }
    for (const auto& [name, bytes] : kSizes) { // a tenth of the bytes are blanks
        const std::string blanks = Repeated(" ", bytes / 10);
        const std::string word = TextWith(bytes - blanks.size(), " ", 10) + ".";
        AddTrimRow(
            "String::TrimLeft", name, blanks + word, [](std::string& s) { String::TrimLeft(s); },
            "absl::StripLeadingAsciiWhitespace",
            [](std::string& s) {
                s.resize(std::strlen(s.c_str())); // ours ends the text at a NUL
                absl::StripLeadingAsciiWhitespace(&s);
            });
        AddTrimRow(
            "String::TrimRight", name, word + blanks, [](std::string& s) { String::TrimRight(s, true); },
            "absl::StripTrailingAsciiWhitespace",
            [](std::string& s) { absl::StripTrailingAsciiWhitespace(&s); });
        AddTrimRow(
            "String::Trim", name, blanks + word, [](std::string& s) { String::Trim(s); },
            "absl::StripAsciiWhitespace", [](std::string& s) { absl::StripAsciiWhitespace(&s); });
    }
}

// Replacing and joining.

void AddReplaceRow(const char* input, const std::string& text, const char* find, const char* replacement) {
    const std::string wanted = find;
    const std::string with = replacement;
    const std::string result = absl::StrReplaceAll(text, {{wanted, with}});
    Compare(
        "String::Replace", input, [&text, wanted, with] { return String::Replace(text, wanted, with); },
        Peer("absl::StrReplaceAll",
             [&text, wanted, with] {
                 return absl::StrReplaceAll(text, {{wanted, with}});
             }),
        Floor("copy of the result", [result] { return std::string(result); }));
}

void AddReplaceRows() {
    static const std::string text = Repeated(WordText(60, 4, 10, " ") + " needle ", kMegabyte / 70);
    AddReplaceRow("1 MB, same length", text, "needle", "thread");
    AddReplaceRow("1 MB, growing", text, "needle", "a longer thread");
    AddReplaceRow("1 MB, shrinking", text, "needle", "pin");
    AddReplaceRow("1 MB, no hit", text, "needless", "thread");
}

void AddMergeRow(const char* input, size_t count) {
    const Strings items = Words(count, 4, 16);
    const std::string separator = ", ";
    Compare(
        "String::Merge", input, [=] { return String::Merge(items, separator); },
        Peer(
            "absl::StrJoin", [=] { return absl::StrJoin(items, separator); }, 1.05),
        Floor("copy of the result", [result = Joined(items, separator)] { return std::string(result); }));
}

// Wildcards.

void AddWildRow(const char* input, const std::string& text, const std::string& pattern) {
    Compare(
        "String::CompareWild", input, [=] { return String::CompareWild(text, pattern, nullptr); },
        Peer("fnmatch", [=] { return ::fnmatch(pattern.c_str(), text.c_str(), 0) == 0; }));
}

void AddWildRows() {
    AddWildRow("short, match", "report-2024.wav", "rep*-20?4.*");
    AddWildRow("short, no match", "report-2024.wav", "*.mp3");
    AddWildRow("4 KB, 3 stars", WordText(2000, 3, 9, " ") + " Needle " + WordText(2000, 3, 9, " ") + " End",
               "*Need?e*nd");
    AddWildRow("`*a*a*a*a*b` on 2,000 a", Repeated("a", 2000), "*a*a*a*a*b");
}

// Macros.

bool StartsWord(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || c == '$' || c == '@';
}

bool ContinuesWord(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

std::string ExpandWordsByHand(const std::string& text, const MacroTable& macros) {
    std::string out;
    for (size_t pos = 0; pos < text.size();) {
        if (!StartsWord(text[pos])) {
            out += text[pos++];
            continue;
        }
        size_t end = pos + 1;
        while (end < text.size() && ContinuesWord(text[end])) ++end;
        const std::string word = text.substr(pos, end - pos);
        const auto macro = macros.find(word);
        out += macro != macros.end() ? macro->second : word;
        pos = end;
    }
    return out;
}

bool IsIdentifierByHand(const std::string& name) {
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0]))) return false;
    for (const char c : name) {
        if (!ContinuesWord(c)) return false;
    }
    return true;
}

std::string ExpandByHand(const std::string& text, const MacroTable& macros, bool checked) {
    std::string out;
    size_t pos = 0;
    for (;;) {
        const size_t open = text.find('$', pos);
        const size_t close = open == text.npos ? open : text.find('$', open + 1);
        if (close == text.npos) return out.append(text, pos);
        out.append(text, pos, open - pos);
        const std::string name = text.substr(open + 1, close - open - 1);
        const auto macro = !checked || IsIdentifierByHand(name) ? macros.find(name) : macros.end();
        if (macro != macros.end())
            out += macro->second;
        else
            out.append(text, open, close + 1 - open);
        pos = close + 1;
    }
}

void AddMacroRows() {
    static const Macros macros = [] {
        Macros all;
        for (const std::string& name : Words(1000, 4, 12)) all[name] = "the value of " + name;
        return all;
    }();
    static const MacroTable table(macros.begin(), macros.end());
    static const std::string marked = [] {
        std::string text;
        const Strings plain = Words(1000, 10, 60);
        for (auto macro = macros.begin(); text.size() < kMegabyte;) {
            text += plain[text.size() % plain.size()] + " $" + macro->first + "$ ";
            if (++macro == macros.end()) macro = macros.begin();
        }
        return text;
    }();
    static const std::string words = String::Replace(marked, "$", "");
    const char* const input = "1 MB, 1,000 macros";

    for (const bool checked : {false, true}) {
        Compare(
            "String::ExpandDelimited", std::string(input) + (checked ? ", names checked" : ""),
            [checked] {
                std::string out;
                (void)String::ExpandDelimited(out, marked, macros, checked, '$'); // no name is unknown
                return out;
            },
            Peer("loop over an unordered_map", [checked] { return ExpandByHand(marked, table, checked); }),
            Floor("copy of the result",
                  [result = ExpandByHand(marked, table, checked)] { return std::string(result); }));
    }
    Compare(
        "String::ExpandIdentifier", input, [] { return String::ExpandIdentifier(words, macros, nullptr); },
        Peer("loop over an unordered_map", [] { return ExpandWordsByHand(words, table); }),
        Floor("copy of the result",
              [result = ExpandWordsByHand(words, table)] { return std::string(result); }));

    static const Strings names = [] {
        Strings all = Words(1000, 4, 20);
        for (size_t i = 0; i < all.size(); i += 4) all[i].back() = '-';
        return all;
    }();
    const auto count = [](auto isIdentifier) {
        return [isIdentifier] { return std::count_if(names.begin(), names.end(), isIdentifier); };
    };
    Compare("String::IsIdentifier", "1,000 names", count([](const std::string& name) {
                return String::IsIdentifier(name.c_str(), nullptr, nullptr);
            }),
            Peer("loop by hand", count(IsIdentifierByHand)));
}

// Words in quotes: single blanks between them, because the peer makes an empty word between two.

void AddQuotedRow(const char* input, size_t bytes) {
    std::string text;
    const Strings words = Words(1000, 3, 10);
    for (size_t i = 0; text.size() < bytes; ++i) {
        if (!text.empty()) text += ' ';
        text += i % 3 == 0 ? "\"" + words[i % 1000] + " " + words[i * 7 % 1000] + "\"" : words[i % 1000];
        if (i % 10 == 9) text += "\\\"\\n";
    }
    Compare(
        "String::SplitQuoted", input,
        [=] {
            Strings result;
            String::SplitQuoted(result, text);
            return result;
        },
        Peer("boost escaped_list_separator", [=] {
            const boost::escaped_list_separator<char> separator('\\', ' ', '"');
            const boost::tokenizer tokens(text, separator);
            return Strings(tokens.begin(), tokens.end());
        }));
}

// Scrambling.

std::string ScrambleByteByByte(uint64_t seed, std::string_view key, const char* text) {
    std::string out = text;
    size_t at = seed % (key.size() - 1);
    for (char& c : out) {
        c = static_cast<char>(c ^ ((key[at] & 0x3F) | 0x80));
        if (++at == key.size()) at = 0;
    }
    return out;
}

void AddScrambleRow(const char* input, size_t bytes) {
    const std::string text = TextWith(bytes, " ", 10);
    const std::string key = "a key of 23 characters.";
    Compare(
        "String::SymmetricEncrypt", input,
        [=] { return String::SymmetricEncrypt(5, key.c_str(), text.c_str()); },
        Peer("byte by byte", [=] { return ScrambleByteByByte(5, key.c_str(), text.c_str()); }),
        Floor("copy of the text", [=] { return std::string(text); }));
}

} // namespace

void AddRows() {
    AddFormatRows();
    AddDateRow("TZ unset", nullptr);
    AddDateRow("TZ=UTC", "UTC");
    AddCaseAndTrimRows();
    AddReplaceRows();
    AddMergeRow("5 items", 5);
    AddMergeRow("10,000 items", 10'000);
    AddWildRows();
    AddMacroRows();
    AddQuotedRow("100 B", 100);
    AddQuotedRow("64 KB", 64'000);
    AddScrambleRow("32 B", 32);
    AddScrambleRow("1 MB", kMegabyte);
}

} // namespace bench
